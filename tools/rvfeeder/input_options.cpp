#include "rvfeeder/input_options.h"

#include "rvfeeder/camera_limits.h"
#include "rvfeeder/input_path.h"

#include <utility>

namespace ravlo {
namespace {

constexpr FrameGeometry kCardGeometry{1920, 1080, 30, 1};

std::optional<NumberPair> ParseUsableRate(const std::string& text) {
    const auto rate = ParseRate(text);
    return rate && rate->first != 0 && rate->second != 0 ? rate : std::nullopt;
}

std::string WhyNoRate(const std::string& text) {
    return "--rate " + text + " is no rate: give frames a second such as 30 or 30000/1001";
}

std::optional<NumberPair> ParseUsableSize(const std::string& text) {
    const auto size = ParseSize(text);
    return size && IsValidGeometry({size->first, size->second, 1, 1}) ? size : std::nullopt;
}

std::string WhyNoSize(const std::string& option, const std::string& text) {
    return option + " " + text + " is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720";
}

}  // namespace

void InputOptionSet::Declare(OptionSet& options) {
    options.Positional("input", m_input, false, "Y4M, PNG, JPEG or raw NV12 file, or - for standard input");
    options.Group("Input");
    options.Flag("--test-card", m_testCard, "Show a moving test card instead of an input");
    options.Text("--size", "WxH", m_size,
                 "Size of raw NV12 input, such as 1280x720, or of the test card (default 1920x1080)");
    options.Text("--rate", "N/D", m_rate,
                 "Frames a second, such as 30 or 30000/1001, of raw NV12 input, a still picture or the test card "
                 "(default 30 for these two)");
    options.Text("--expect", "WxH", m_expect, "Refuse an input of any other size");
    options.Flag("--loop", m_loop, "Begin again at the end of a file");
}

std::optional<std::string> InputOptionSet::Interpret(InputOptions& result) const {
    result = InputOptions{};
    result.path = m_input;
    result.testCard = m_testCard;
    result.loop = m_loop;
    if (auto wrong = m_testCard ? InterpretCard(result) : InterpretFile(result)) {
        return wrong;
    }
    return InterpretExpectation(result);
}

std::optional<std::string> InputOptionSet::InterpretForCommand(InputOptions& result) const {
    result = InputOptions{};
    const std::pair<bool, std::string> contradictions[] = {
        {!m_input.empty(), '"' + m_input + '"'},
        {m_testCard, "--test-card"},
        {m_loop, "--loop"},
        {!m_size.empty(), "--size"},
        {!m_rate.empty(), "--rate"},
    };
    for (const auto& [isGiven, what] : contradictions) {
        if (isGiven) {
            return "--on-demand takes Y4M pictures from its command; leave out " + what;
        }
    }
    return InterpretExpectation(result);
}

std::optional<std::string> InputOptionSet::InterpretCard(InputOptions& result) const {
    if (!m_input.empty()) {
        return "--test-card needs no input: leave out \"" + m_input + "\" or --test-card";
    }
    FrameGeometry geometry = kCardGeometry;
    if (!m_size.empty()) {
        const auto size = ParseUsableSize(m_size);
        if (!size) {
            return WhyNoSize("--size", m_size);
        }
        geometry.width = size->first;
        geometry.height = size->second;
    }
    if (!m_rate.empty()) {
        const auto rate = ParseUsableRate(m_rate);
        if (!rate) {
            return WhyNoRate(m_rate);
        }
        geometry.rateNumerator = rate->first;
        geometry.rateDenominator = rate->second;
    }
    result.cardGeometry = geometry;
    return WhyBeyondCamera(geometry);
}

std::optional<std::string> InputOptionSet::InterpretFile(InputOptions& result) const {
    if (m_input.empty()) {
        return "nothing to show: give a file, - for standard input, or --test-card";
    }
    if (m_loop && m_input == kStandardInputPath) {
        return "--loop needs a file: standard input cannot begin again";
    }
    if (m_loop && IsNamedPipePath(m_input)) {
        return "--loop needs a file: a named pipe cannot begin again";
    }
    if (!m_size.empty() && m_rate.empty()) {
        return "raw NV12 input needs both --size and --rate; a Y4M input needs neither";
    }
    if (!m_size.empty()) {
        result.rawGeometry = ParseGeometry(m_size + "@" + m_rate);
        if (!result.rawGeometry) {
            return "--size " + m_size + " --rate " + m_rate +
                   " describes no NV12 stream: an even WIDTHxHEIGHT up to 16384 and a rate such as 30 or 30000/1001";
        }
        return WhyBeyondCamera(*result.rawGeometry);
    }
    if (!m_rate.empty()) {
        result.rate = ParseUsableRate(m_rate);
        if (!result.rate) {
            return WhyNoRate(m_rate);
        }
        return WhyBeyondCamera({2, 2, result.rate->first, result.rate->second});
    }
    return std::nullopt;
}

std::optional<std::string> InputOptionSet::InterpretExpectation(InputOptions& result) const {
    if (m_expect.empty()) {
        return std::nullopt;
    }
    result.expect = ParseUsableSize(m_expect);
    if (!result.expect) {
        return WhyNoSize("--expect", m_expect);
    }
    for (const auto& given : {result.rawGeometry, result.cardGeometry}) {
        if (given) {
            if (auto unexpected = WhyUnexpected(*given, *result.expect)) {
                return unexpected;
            }
        }
    }
    return std::nullopt;
}

}  // namespace ravlo
