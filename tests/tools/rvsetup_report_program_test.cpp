// rvsetup.exe report as a user runs it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/wide_text.h"
#include "pipe/authorized_user.h"
#include "support/camera.h"
#include "support/trace_log.h"
#include "tools/program.h"
#include "tools/rvsetup_doctor_stage.h"

namespace ravlo::test {
namespace {

ProgramResult Report(Arguments more = {}) {
    more.insert(more.begin(), L"report");
    return RunProgram(L"rvsetup", more);
}

class ReportProgram : public ::testing::Test {
protected:
    ReportProgram() {
        const ModuleUnderTest module;
        TraceLog log;
        const Camera camera(module);
        if (!log.WaitForLine("PIPE created ")) {
            throw std::runtime_error("the camera wrote no log");
        }
    }

    /// The account's name without its domain.
    std::string Account() const {
        std::wstring account;
        DWORD use = 0;
        LookupSidUse(CurrentUserSid(), account, use);
        return ToUtf8(account.substr(account.find(L'\\') + 1));
    }
    std::string Sid() const { return ToUtf8(CurrentUserSid()); }

    AnchorGuard m_anchor{CurrentUserSid()};
    RegisteredClass m_class{BuiltDll()};
    TemporaryFolder m_folder;
};

TEST_F(ReportProgram, AFolderHoldsWhatWasListedFirst) {
    const ProgramResult result = Report({m_folder.File(L"report")});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(
        result.output.starts_with("rvsetup: the report contains:\n"
                                  "rvsetup:   about.txt: versions of this program and of Windows ("))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "rvsetup:   of persons: SID and name of the authorized user: "))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "rvsetup: --redact replaces names, SIDs and user folders by placeholders\n"));
    EXPECT_TRUE(result.output.ends_with("rvsetup: written: " + ToUtf8(m_folder.File(L"report")) + "\n"))
        << result.output;
    EXPECT_TRUE(m_folder.Read(L"report\\doctor.txt").starts_with("OK   Windows "))
        << m_folder.Read(L"report\\doctor.txt");
    EXPECT_TRUE(m_folder.Read(L"report\\doctor.json").starts_with("{\"checks\":["));
    const std::string registry = m_folder.Read(L"report\\registry.txt");
    EXPECT_TRUE(Contains(registry, "\\InprocServer32 = " + ToUtf8(BuiltDll()) + "\n")) << registry;
    EXPECT_TRUE(Contains(registry, "\\ThreadingModel = Both\n")) << registry;
    EXPECT_TRUE(Contains(registry, "AuthorizedUserSid: OK = " + Sid())) << registry;
    const std::string files = m_folder.Read(L"report\\files.txt");
    EXPECT_TRUE(Contains(files, ToUtf8(BuiltDll()) + "  ")) << files;
    EXPECT_TRUE(Contains(files, " bytes  version ")) << files;
    EXPECT_TRUE(Contains(files, "  sha256 ")) << files;
    EXPECT_TRUE(Contains(m_folder.Read(L"report\\logs\\program-data.log"), " PIPE created ")) << files;
}

TEST_F(ReportProgram, AZipFileIsWrittenWholeAndNeverOverAnother) {
    const std::wstring target = m_folder.File(L"r\u00E9port.zip");
    const ProgramResult first = Report({target});
    EXPECT_EQ(first.code, 0) << first.output;
    const std::string zip = m_folder.Read(L"r\u00E9port.zip");
    EXPECT_TRUE(zip.starts_with("PK\x03\x04"));
    for (const char* name :
         {"about.txt", "doctor.txt", "doctor.json", "registry.txt", "files.txt", "logs/program-data.log"}) {
        EXPECT_TRUE(Contains(zip, name)) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path() / L"r\u00E9port.zip.part"));
    const ProgramResult second = Report({target});
    EXPECT_EQ(second.code, 1);
    EXPECT_EQ(second.output, "rvsetup: " + ToUtf8(target) + " is there already; --force writes over it\n");
    EXPECT_EQ(m_folder.Read(L"r\u00E9port.zip"), zip);
    EXPECT_EQ(Report({L"--force", target}).code, 0);
}

TEST_F(ReportProgram, RedactedItNamesNobody) {
    const ProgramResult result = Report({L"--redact", m_folder.File(L"report")});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_FALSE(Contains(result.output, Sid())) << result.output;
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.Path() / L"report")) {
        if (entry.is_regular_file()) {
            const std::string content = m_folder.Read(entry.path().lexically_relative(m_folder.Path()).wstring());
            EXPECT_FALSE(Contains(content, Sid())) << entry.path();
            EXPECT_FALSE(Contains(content, "\\" + Account())) << entry.path();
            ++files;
        }
    }
    EXPECT_GE(files, 6U);
    EXPECT_TRUE(Contains(m_folder.Read(L"report\\registry.txt"), "AuthorizedUserSid: OK = <SID-"));
}

TEST(Report, WorksWithNothingInstalled) {
    AnchorGuard anchor;
    anchor.DeleteKey();
    const TemporaryFolder folder;
    const ProgramResult result = Report({folder.File(L"report")});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(folder.Read(L"report\\registry.txt"), "{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}: absent\n"));
    EXPECT_TRUE(Contains(folder.Read(L"report\\registry.txt"), "AuthorizedUserSid: ABSENT\n"));
    EXPECT_TRUE(Contains(folder.Read(L"report\\doctor.txt"), "FAIL the camera is not installed"));
}

TEST(Report, WrongInputIsAnsweredWithOneClearSentence) {
    const TemporaryFolder folder;
    folder.Write(L"file.txt", "x");
    std::filesystem::create_directories(folder.Path() / L"folder.zip");
    const std::string place = ToUtf8(folder.Path().wstring());
    const struct {
        Arguments arguments;
        int code;
        std::string sentence;
    } cases[] = {
        {{}, 2, "rvsetup: TARGET is required\n"},
        {{L""}, 2, "rvsetup: say where the report goes: a FILE.zip or a folder\n"},
        {{L"--redakt", L"a.zip"}, 2, "rvsetup: unknown option --redakt; did you mean --redact?\n"},
        {{L"a.zip", L"b.zip"}, 2, "rvsetup: what is \"b.zip\" for? Nothing more was expected here\n"},
        {{L"--force", folder.File(L"new")}, 2, "rvsetup: --force is for a FILE.zip; a folder must be new or empty\n"},
        {{folder.Path().wstring()}, 1, "rvsetup: " + place + " is not empty; give a new folder, or a FILE.zip\n"},
        {{folder.File(L"file.txt")}, 1, "rvsetup: " + place + "\\file.txt is a file without .zip at its end; "},
        {{folder.File(L"folder.zip")}, 1, "rvsetup: " + place + "\\folder.zip is a folder; "},
        {{folder.File(L"none\\a.zip")}, 1, "rvsetup: there is no folder " + place + "\\none\n"},
        {{folder.File(L"file.txt\\a.zip")}, 1, "rvsetup: there is no folder " + place + "\\file.txt\n"},
    };
    for (const auto& wrong : cases) {
        const ProgramResult result = Report(wrong.arguments);
        EXPECT_EQ(result.code, wrong.code) << wrong.sentence << result.output;
        EXPECT_TRUE(result.output.starts_with(wrong.sentence)) << result.output;
    }
    EXPECT_EQ(folder.Read(L"file.txt"), "x");
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / L"new"));
}

}  // namespace
}  // namespace ravlo::test
