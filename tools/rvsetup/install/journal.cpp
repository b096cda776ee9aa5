#include "rvsetup/install/journal.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstddef>
#include <stdexcept>

namespace ravlo {
namespace {

using Json = nlohmann::ordered_json;

/// Raised when a later version stores something that this one would put back wrongly.
constexpr int kFormat = 1;

constexpr std::array<char, 16> kHexDigits{'0', '1', '2', '3', '4', '5', '6', '7',
                                          '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

std::string ToHex(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kHexDigits[byte >> 4U];
        text += kHexDigits[byte & 0xFU];
    }
    return text;
}

std::uint8_t HexValue(char digit) {
    for (std::size_t value = 0; value < kHexDigits.size(); ++value) {
        if (kHexDigits[value] == digit) {
            return static_cast<std::uint8_t>(value);
        }
    }
    throw std::invalid_argument("no hexadecimal digit");
}

std::vector<std::uint8_t> FromHex(const std::string& text) {
    if (text.size() % 2 != 0) {
        throw std::invalid_argument("half a byte");
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(HexValue(text[i]) << 4U | HexValue(text[i + 1])));
    }
    return bytes;
}

Json ToJson(const RegistryValue& value) {
    return {{"name", value.name}, {"type", value.type}, {"bytes", ToHex(value.bytes)}};
}

RegistryValue ValueFromJson(const Json& json) {
    return {json.at("name").get<std::string>(), json.at("type").get<std::uint32_t>(),
            FromHex(json.at("bytes").get<std::string>())};
}

Json ToJson(const RegistryTree& tree) {
    Json values = Json::array();
    for (const RegistryValue& value : tree.values) {
        values.push_back(ToJson(value));
    }
    Json keys = Json::array();
    for (const RegistryTree& key : tree.keys) {
        keys.push_back(ToJson(key));
    }
    return {{"name", tree.name}, {"values", std::move(values)}, {"keys", std::move(keys)}};
}

RegistryTree TreeFromJson(const Json& json) {
    RegistryTree tree{json.at("name").get<std::string>(), {}, {}};
    for (const Json& value : json.at("values")) {
        tree.values.push_back(ValueFromJson(value));
    }
    for (const Json& key : json.at("keys")) {
        tree.keys.push_back(TreeFromJson(key));
    }
    return tree;
}

Json ToJson(const AnchorRecord& anchor) {
    return {{"keyExisted", anchor.keyExisted},
            {"before", anchor.before ? ToJson(*anchor.before) : Json(nullptr)},
            {"written", anchor.written}};
}

AnchorRecord AnchorFromJson(const Json& json) {
    AnchorRecord anchor{json.at("keyExisted").get<bool>(), {}, json.at("written").get<std::vector<std::string>>()};
    if (!json.at("before").is_null()) {
        anchor.before = ValueFromJson(json.at("before"));
    }
    return anchor;
}

Journal FromJson(const Json& json) {
    if (json.at("format").get<int>() != kFormat) {
        throw std::invalid_argument("another format");
    }
    Journal journal;
    if (json.contains("anchor")) {
        journal.anchor = AnchorFromJson(json["anchor"]);
    }
    if (json.contains("class")) {
        const Json& before = json["class"].at("before");
        journal.classKey = ClassRecord{};
        if (!before.is_null()) {
            journal.classKey->before = TreeFromJson(before);
        }
    }
    if (json.contains("log")) {
        const Json& log = json["log"];
        journal.log = LogRecord{log.at("existed").get<bool>(), log.at("fileExisted").get<bool>(),
                                log.at("security").get<std::string>()};
    }
    for (const Json& file : json.at("files")) {
        journal.files.push_back({file.at("path").get<std::string>(), file.at("existed").get<bool>()});
    }
    journal.folders = json.at("folders").get<std::vector<std::string>>();
    return journal;
}

}  // namespace

std::string AsidePath(const std::string& path) {
    return path + ".before";
}

std::string JournalToText(const Journal& journal) {
    Json json{{"format", kFormat}};
    if (journal.anchor) {
        json["anchor"] = ToJson(*journal.anchor);
    }
    if (journal.classKey) {
        const std::optional<RegistryTree>& before = journal.classKey->before;
        json["class"] = Json{{"before", before ? ToJson(*before) : Json(nullptr)}};
    }
    if (journal.log) {
        json["log"] = Json{{"existed", journal.log->existed},
                           {"fileExisted", journal.log->fileExisted},
                           {"security", journal.log->security}};
    }
    json["files"] = Json::array();
    for (const FileRecord& file : journal.files) {
        json["files"].push_back(Json{{"path", file.path}, {"existed", file.existed}});
    }
    json["folders"] = journal.folders;
    constexpr int kIndent = 2;
    return json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<Journal> JournalFromText(std::string_view text) {
    try {
        return FromJson(Json::parse(text));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace ravlo
