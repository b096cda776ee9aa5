#include "rvsetup/report/zip_file.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "rvsetup/report/checksum.h"
#include "rvsetup/report/redactor.h"
#include "rvsetup/report/report_options.h"
#include "rvsetup/report/report_target.h"

namespace ravlo::test {
namespace {

/// Takes bits from the low end of each byte.
class BitReader {
public:
    explicit BitReader(std::string_view bytes) : m_bytes(bytes) {}

    std::uint32_t Bit() {
        if (m_at >= m_bytes.size() * 8) {
            throw std::runtime_error("the compressed data end too early");
        }
        const auto byte = static_cast<unsigned char>(m_bytes[m_at / 8]);
        return (byte >> (m_at++ % 8)) & 1U;
    }
    std::uint32_t Bits(int count) {
        std::uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            value |= Bit() << i;
        }
        return value;
    }
    void ToByte() { m_at = (m_at + 7) / 8 * 8; }

private:
    std::string_view m_bytes;
    std::size_t m_at = 0;
};

/// A literal or a length, by the fixed code.
std::uint32_t FixedSymbol(BitReader& bits) {
    std::uint32_t code = 0;
    for (int length = 1; length <= 9; ++length) {
        code = (code << 1) | bits.Bit();
        if (length == 7 && code < 24) {
            return 256 + code;
        }
        if (length == 8 && code >= 48 && code < 192) {
            return code - 48;
        }
        if (length == 8 && code >= 192 && code < 200) {
            return code - 192 + 280;
        }
        if (length == 9 && code >= 400) {
            return code - 400 + 144;
        }
    }
    throw std::runtime_error("a code that does not exist");
}

/// Unpacks blocks that are stored or use the fixed codes, which is all that our writer makes.
std::string Inflated(std::string_view packed) {
    static constexpr std::uint32_t kLengths[] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                                 31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
    static constexpr int kLengthBits[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                          2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
    static constexpr std::uint32_t kDistances[] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                                   33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                                   1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
    BitReader bits(packed);
    std::string result;
    for (bool isLast = false; !isLast;) {
        isLast = bits.Bit() != 0;
        const std::uint32_t type = bits.Bits(2);
        if (type == 0) {
            bits.ToByte();
            const std::uint32_t length = bits.Bits(16);
            bits.Bits(16);
            for (std::uint32_t i = 0; i < length; ++i) {
                result += static_cast<char>(bits.Bits(8));
            }
            continue;
        }
        if (type != 1) {
            throw std::runtime_error("a kind of block that our writer does not make");
        }
        for (std::uint32_t symbol = 0; (symbol = FixedSymbol(bits)) != 256;) {
            if (symbol < 256) {
                result += static_cast<char>(symbol);
                continue;
            }
            const std::uint32_t length = kLengths[symbol - 257] + bits.Bits(kLengthBits[symbol - 257]);
            std::uint32_t code = 0;
            for (int i = 0; i < 5; ++i) {
                code = (code << 1) | bits.Bit();
            }
            const std::uint32_t distance = kDistances[code] + bits.Bits(code < 4 ? 0 : static_cast<int>(code / 2 - 1));
            for (std::uint32_t i = 0; i < length; ++i) {
                result += result.at(result.size() - distance);
            }
        }
    }
    return result;
}

std::uint32_t Number(std::string_view bytes, std::size_t at, std::size_t length) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < length; ++i) {
        value |= std::uint32_t{static_cast<unsigned char>(bytes.at(at + i))} << (8 * i);
    }
    return value;
}

/// The files of a zip file, found as unpackers do: from its end through its directory.
std::map<std::string, std::string> Unzipped(std::string_view zip) {
    const std::size_t end = zip.size() - 22;
    EXPECT_EQ(Number(zip, end, 4), 0x06054B50U);
    const std::uint32_t count = Number(zip, end + 10, 2);
    std::size_t entry = Number(zip, end + 16, 4);
    EXPECT_EQ(entry + Number(zip, end + 12, 4), end);
    std::map<std::string, std::string> files;
    for (std::uint32_t i = 0; i < count; ++i) {
        EXPECT_EQ(Number(zip, entry, 4), 0x02014B50U);
        EXPECT_EQ(Number(zip, entry + 8, 2), 0x0800U);  // names in UTF-8
        const std::uint32_t method = Number(zip, entry + 10, 2);
        const std::uint32_t crc = Number(zip, entry + 16, 4);
        const std::uint32_t packed = Number(zip, entry + 20, 4);
        const std::uint32_t whole = Number(zip, entry + 24, 4);
        const std::uint32_t nameLength = Number(zip, entry + 28, 2);
        const std::size_t local = Number(zip, entry + 42, 4);
        const std::string name(zip.substr(entry + 46, nameLength));
        EXPECT_EQ(Number(zip, local, 4), 0x04034B50U);
        EXPECT_EQ(zip.substr(local + 30, nameLength), name);
        EXPECT_EQ(zip.substr(local + 6, 22), zip.substr(entry + 8, 22));
        const std::string_view data = zip.substr(local + 30 + nameLength, packed);
        const std::string content = method == 8 ? Inflated(data) : std::string(data);
        EXPECT_EQ(content.size(), whole) << name;
        EXPECT_EQ(Crc32(content), crc) << name;
        files[name] = content;
        entry += 46 + nameLength;
    }
    EXPECT_EQ(entry, end);
    return files;
}

std::string Hashed(const std::string& bytes) {
    Sha256 hash;
    hash.Add(bytes);
    return hash.Text();
}

TEST(Checksum, PiecesOfAnyLengthGiveTheSame) {
    const std::string bytes(300, 'a');
    for (std::size_t length : {1, 63, 64, 65, 150}) {
        Sha256 hash;
        for (std::size_t at = 0; at < bytes.size(); at += length) {
            hash.Add(std::string_view(bytes).substr(at, length));
        }
        EXPECT_EQ(hash.Text(), Hashed(bytes)) << length;
    }
}

TEST(Checksum, KnownValues) {
    EXPECT_EQ(Crc32(""), 0U);
    EXPECT_EQ(Crc32("123456789"), 0xCBF43926U);
    EXPECT_EQ(Hashed(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Hashed("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(Hashed("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(Hashed(std::string(1'000'000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(ZipFile, WhatIsPackedComesOutAgain) {
    std::string log;
    for (int i = 0; i < 3000; ++i) {
        log += "[" + std::to_string(i) + ":2 host.exe] 10:00:00.000 PIPE created \\\\.\\pipe\\Ravlo\r\n";
    }
    std::string noise;
    std::uint32_t state = 1;
    for (int i = 0; i < 70'000; ++i) {
        state = state * 1664525 + 1013904223;
        noise += static_cast<char>(state >> 24);
    }
    ZipFile zip({2026, 11, 20, 15, 27, 31});
    zip.Add("logs/a.log", log);
    zip.Add("\xC3\xA4.txt", "x");
    zip.Add("empty.txt", "");
    zip.Add("noise.bin", noise);
    const std::string bytes = zip.Finish();
    EXPECT_LT(bytes.size(), noise.size() + log.size() / 3);
    const std::map<std::string, std::string> files = Unzipped(bytes);
    ASSERT_EQ(files.size(), 4U);
    EXPECT_EQ(files.at("logs/a.log"), log);
    EXPECT_EQ(files.at("\xC3\xA4.txt"), "x");
    EXPECT_EQ(files.at("empty.txt"), "");
    EXPECT_EQ(files.at("noise.bin"), noise);
    EXPECT_EQ(Number(bytes, 10, 2), 0x7B6FU);  // 15:27:30
    EXPECT_EQ(Number(bytes, 12, 2), 0x5D74U);  // 2026-11-20
}

TEST(ZipFile, WithoutFilesItIsTheEndRecordAlone) {
    std::string endRecord = "PK\x05\x06";
    endRecord.resize(22, '\0');
    EXPECT_EQ(ZipFile({}).Finish(), endRecord);
}

TEST(Redactor, AccountNumbersBecomeEqualPlaceholders) {
    Redactor redactor;
    EXPECT_EQ(redactor.Redact("S-1-5-21-1-2-3-1001 and S-1-5-21-1-2-3-1002, s-1-5-21-1-2-3-1001 - end"),
              "<SID-1> and <SID-2>, <SID-1> - end");
    EXPECT_EQ(redactor.Redact("DACL grants S-1-5-21-1-2-3-1002-"), "DACL grants <SID-2>-");
    EXPECT_EQ(redactor.Redact("S-1-12-1-5-6"), "<SID-3>");
    EXPECT_EQ(redactor.Redact("S-1-5-19 S-1-5-18 S-1-5-32-545 S-1-1-0"), "S-1-5-19 S-1-5-18 S-1-5-32-545 S-1-1-0");
    EXPECT_EQ(redactor.Redact("S-1-"), "S-1-");
}

TEST(Redactor, NamesAreReplacedAsWholeWordsInAnyCase) {
    Redactor redactor;
    redactor.AddName("mira", "<user>");
    redactor.AddName("MIRA-PC", "<machine>");
    redactor.AddName("x", "<never>");
    EXPECT_EQ(redactor.Redact("Mira-PC\\Mira (miracle, mira_2) x"), "<machine>\\<user> (miracle, mira_2) x");
    EXPECT_EQ(redactor.Redact("mira"), "<user>");
}

TEST(Redactor, FoldersOfUsersLoseTheirName) {
    Redactor redactor;
    EXPECT_EQ(redactor.Redact("C:\\Users\\Mira K\\cam\\a.dll"), "C:\\Users\\<user>\\cam\\a.dll");
    EXPECT_EQ(redactor.Redact("\"C:\\\\users\\\\mira\\\\a.dll\""), "\"C:\\\\users\\\\<user>\\\\a.dll\"");
    EXPECT_EQ(redactor.Redact("C:\\Users\\mira"), "C:\\Users\\<user>");
    EXPECT_EQ(redactor.Redact("C:\\Users\\Public\\a C:\\Users\\"), "C:\\Users\\Public\\a C:\\Users\\");
    EXPECT_EQ(redactor.Redact("users are people"), "users are people");
}

TEST(Redactor, AccountsThatEveryMachineHasKeepTheirNames) {
    Redactor redactor;
    redactor.AddAccount("S-1-5-18", "NT AUTHORITY\\SYSTEM", "<running user>");
    redactor.AddAccount("S-1-5-21-1-2-3-1001", "PC\\mira", "<authorized user>");
    redactor.AddAccount("S-1-12-1-2", "AzureAD\\noor", "<running user>");
    EXPECT_EQ(redactor.Redact("LOCAL SYSTEM, NT AUTHORITY, pc\\Mira, AzureAD\\noor"),
              "LOCAL SYSTEM, NT AUTHORITY, <machine>\\<authorized user>, <machine>\\<running user>");
}

TEST(Redactor, OfATextThatWasCutTheTornLineGoes) {
    EXPECT_EQ(WithoutTornLine("5-21-1-2-3-1001 and\r\nwhole\r\n"), "whole\r\n");
    EXPECT_EQ(WithoutTornLine("no end"), "");
}

TEST(ReportOptions, TheTargetIsAZipFileOrAFolder) {
    EXPECT_TRUE(IsZipName("a.zip"));
    EXPECT_TRUE(IsZipName("C:\\b\\A.ZIP"));
    EXPECT_FALSE(IsZipName("zip"));
    EXPECT_FALSE(IsZipName("a.zip\\b"));
    EXPECT_EQ(WhatIsWrongWith(ReportOptions{.target = "a.zip", .force = true}), "");
    EXPECT_EQ(WhatIsWrongWith(ReportOptions{.target = ""}), "say where the report goes: a FILE.zip or a folder");
    EXPECT_EQ(WhatIsWrongWith(ReportOptions{.target = "folder", .force = true}),
              "--force is for a FILE.zip; a folder must be new or empty");
}

/// A folder of this test; gone with the object.
class ReportTarget : public ::testing::Test {
protected:
    ReportTarget()
        : m_folder(std::filesystem::temp_directory_path() /
                   ("ravlo-report-" + std::to_string(std::random_device()()))) {
        std::filesystem::create_directories(m_folder);
    }
    ~ReportTarget() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string Path(const std::string& name) const { return (m_folder / name).string(); }
    std::string Read(const std::string& name) const {
        std::ifstream file(m_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    void Write(const std::string& name) const { std::ofstream(m_folder / name) << "here before"; }

    std::filesystem::path m_folder;
    ReportContent m_content{{{"about.txt", "one", "about"}, {"logs/temp.log", "two", "log"}}, {}};
};

TEST_F(ReportTarget, AFolderReceivesTheFiles) {
    const ReportOptions options{.target = Path("new/report")};
    EXPECT_EQ(WhyNoTarget(options), "");
    EXPECT_EQ(WriteReport(options, m_content).problem, "");
    EXPECT_EQ(Read("new/report/about.txt"), "one");
    EXPECT_EQ(Read("new/report/logs/temp.log"), "two");
    EXPECT_NE(WhyNoTarget(options).find("is not empty; give a new folder, or a FILE.zip"), std::string::npos);
}

TEST_F(ReportTarget, AZipFileHoldsTheFiles) {
    const ReportOptions options{.target = Path("report.zip")};
    EXPECT_EQ(WhyNoTarget(options), "");
    EXPECT_EQ(WriteReport(options, m_content).problem, "");
    const std::map<std::string, std::string> expected{{"about.txt", "one"}, {"logs/temp.log", "two"}};
    EXPECT_EQ(Unzipped(Read("report.zip")), expected);
    EXPECT_NE(WhyNoTarget(options).find("is there already; --force writes over it"), std::string::npos);
    EXPECT_EQ(WhyNoTarget({.target = options.target, .force = true}), "");
}

TEST_F(ReportTarget, PlacesThatCannotTakeAReportAreRefusedWithAReason) {
    Write("file");
    std::filesystem::create_directories(m_folder / "folder.zip");
    EXPECT_NE(WhyNoTarget({.target = Path("file")}).find("is a file without .zip at its end"), std::string::npos);
    EXPECT_NE(WhyNoTarget({.target = Path("folder.zip")}).find("is a folder; give a file"), std::string::npos);
    EXPECT_NE(WhyNoTarget({.target = Path("none/a.zip")}).find("there is no folder "), std::string::npos);
    EXPECT_NE(WriteReport({.target = Path("file/report")}, m_content).problem.find("cannot write "), std::string::npos);
    EXPECT_NE(WriteReport({.target = Path("none/a.zip")}, m_content).problem.find("cannot write "), std::string::npos);
    EXPECT_EQ(Read("file"), "here before");
    EXPECT_EQ(WriteReport({.target = Path("none/a.zip")}, m_content).code, ExitCode::Failure);
}

TEST_F(ReportTarget, OfAFolderThatCannotBeFinishedNothingStays) {
    m_content.parts.push_back({"about.txt/inner.txt", "three", "a file in a file"});
    EXPECT_NE(WriteReport({.target = Path("new/report")}, m_content).problem.find("cannot write "), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "new"));
}

TEST_F(ReportTarget, AFileBesideTheZipFileThatLooksLikeAPartOfItStays) {
    Write("report.zip.part");
    EXPECT_EQ(WriteReport({.target = Path("report.zip")}, m_content).problem, "");
    EXPECT_EQ(Read("report.zip.part"), "here before");
}

}  // namespace
}  // namespace ravlo::test
