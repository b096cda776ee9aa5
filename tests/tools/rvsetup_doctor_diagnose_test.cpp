#include "rvsetup/doctor/diagnose.h"
#include "rvsetup/doctor/load_check.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/rvsetup_doctor_facts.h"

namespace ravlo::test {
namespace {

TEST(Diagnose, AHealthyMachineHasNothingButOkInTheOrderOfThePicture) {
    std::vector<std::string> ids;
    for (const Finding& finding : Diagnose(Healthy())) {
        EXPECT_EQ(finding.result, FindingResult::Ok) << finding.found;
        ids.push_back(finding.id);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"windows", "module", "module-load", "access", "anchor", "log", "pipe",
                                             "gate", "producer", "failure"}));
    EXPECT_EQ(CodeOf(Healthy()), ExitCode::Ok);
    EXPECT_EQ(
        Shown(Healthy(), "pipe"),
        "OK \\\\.\\pipe\\Ravlo is there, with a producer on it; served by svchost.exe (40), owner LOCAL SERVICE (the "
        "camera service of Windows), lets in S-1-5-21-1-2-3-1001; samples are being asked for");
    EXPECT_EQ(Shown(Healthy(), "producer"), "OK a producer sends 1280x720 to \\\\.\\pipe\\Ravlo; rvfeeder runs (50)");
    EXPECT_EQ(Shown(Healthy(), "failure"), "OK the log tells of no failure that still stands (7 lines read)");
}

TEST(Diagnose, OlderWindowsIsAWarningAboutWhatStillWorks) {
    DoctorFacts facts = Healthy();
    facts.windows.build = 19045;
    EXPECT_TRUE(
        Has(Shown(facts, "windows"), "WARN Windows 10.0 build 19045 has no virtual cameras; only programs that"));
    facts.windows.build = 22000;
    EXPECT_TRUE(Has(Shown(facts, "windows"), "OK "));
    facts.windows.build = 0;
    EXPECT_TRUE(Has(Shown(facts, "windows"), "cannot be found out"));
    EXPECT_EQ(CodeOf(facts), ExitCode::Ok);
}

TEST(Diagnose, AModuleThatIsNotThereEndsWithNotInstalled) {
    DoctorFacts absent = Healthy();
    absent.module = {};
    EXPECT_EQ(Shown(absent, "module"),
              "FAIL the camera is not installed: its class is not registered | as administrator: rvsetup install --me");
    EXPECT_EQ(Shown(absent, "access"), "no such check");
    EXPECT_EQ(CodeOf(absent), ExitCode::NotInstalled);
    DoctorFacts withoutPath = Healthy();
    withoutPath.module.path.clear();
    EXPECT_TRUE(Has(Shown(withoutPath, "module"), "FAIL the camera is registered without a file"));
    DoctorFacts withoutFile = Healthy();
    withoutFile.module.fileExists = false;
    EXPECT_TRUE(Has(Shown(withoutFile, "module"), "FAIL the registered file is not there: C:\\Program Files"));
    EXPECT_EQ(CodeOf(withoutFile), ExitCode::NotInstalled);
}

TEST(Diagnose, AModuleThatIsNoCameraIsNamedForWhatItIs) {
    DoctorFacts facts = Healthy();
    facts.module.pe.exports.clear();
    EXPECT_TRUE(Has(Shown(facts, "module"), "exports no DllGetClassObject"));
    facts.module.pe.isDll = false;
    EXPECT_TRUE(Has(Shown(facts, "module"), "is a program and no DLL"));
    facts.module.pe.is64 = false;
    EXPECT_TRUE(Has(Shown(facts, "module"), "is no 64-bit file"));
    facts.module.pe.isPe = false;
    EXPECT_TRUE(Has(Shown(facts, "module"), "is no Windows program file"));
    EXPECT_EQ(CodeOf(facts), ExitCode::Failure);
    facts.module.fileError = "Access is denied (error 5)";
    EXPECT_EQ(CodeOf(facts), ExitCode::AccessDenied);
    DoctorFacts key = Healthy();
    key.module.keyError = "Access is denied (error 5)";
    EXPECT_EQ(CodeOf(key), ExitCode::AccessDenied);
}

TEST(Diagnose, TheThreadingModelMustBeBoth) {
    DoctorFacts facts = Healthy();
    facts.module.threadingModel = "Apartment";
    EXPECT_TRUE(Has(Shown(facts, "module"), "FAIL the registered threading model is \"Apartment\" and must be Both"));
    facts.module.threadingModel.clear();
    EXPECT_TRUE(Has(Shown(facts, "module"), "FAIL the registration names no threading model"));
    EXPECT_EQ(CodeOf(facts), ExitCode::Failure);
}

TEST(Diagnose, AModuleThatDoesNotLoadNamesWhatIsMissing) {
    DoctorFacts facts = Healthy();
    facts.module.loadError = "Module not found (error 126)";
    facts.module.missingImports = {"mfplat.dll", "mf.dll"};
    EXPECT_EQ(
        Shown(facts, "module-load"),
        "FAIL the module cannot be loaded: Module not found (error 126); missing: mfplat.dll, mf.dll | install what "
        "brings mfplat.dll, mf.dll (for mf*.dll: the Media Feature Pack of Windows)");
    facts.module.loadError.clear();
    facts.module.missingImports.clear();
    facts.module.pe.version = "0.9.0";
    EXPECT_TRUE(Has(Shown(facts, "module-load"),
                    "WARN the module loads and offers the camera's class; it is version 0.9.0, this rvsetup 1.0.0"));
}

TEST(Diagnose, AModuleThatWasNotRunIsJudgedByWhatItNeeds) {
    DoctorFacts facts = Healthy();
    facts.module.whyNotRun = "rvsetup doctor --probe runs it";
    EXPECT_EQ(Shown(facts, "module-load"),
              "OK the module and the DLLs that it needs are there; it was not run (rvsetup doctor --probe runs it); "
              "version 1.0.0");
    facts.module.missingImports = {"mfplat.dll"};
    EXPECT_TRUE(Has(Shown(facts, "module-load"), "FAIL the module cannot be loaded; missing: mfplat.dll | install"));
    EXPECT_EQ(CodeOf(facts), ExitCode::Failure);
}

TEST(Diagnose, ARelativePathLeadsToAnotherModuleInEachProgram) {
    DoctorFacts facts = Healthy();
    facts.module.path = "rvmediasource.dll";
    facts.module.fileExists = false;
    EXPECT_TRUE(Has(Shown(facts, "module"), "FAIL the registered path is not absolute: rvmediasource.dll; "));
    EXPECT_EQ(CodeOf(facts), ExitCode::Failure);
    facts.module.path = "\\\\server\\share\\rvmediasource.dll";
    EXPECT_TRUE(Has(Shown(facts, "module"), "FAIL the registered file is not there"));
}

TEST(Diagnose, WhoeverMayReplaceTheModuleIsNamed) {
    EXPECT_EQ(Shown(Healthy(), "replace"), "no such check");
    DoctorFacts facts = Healthy();
    facts.access.folderList->push_back({true, false, 0x2, "S-1-1-0"});
    facts.access.fileOwner = kUser;
    EXPECT_TRUE(Has(Shown(facts, "replace"),
                    "WARN other users may replace the module, which services and other programs run: PC\\mira "
                    "(S-1-5-21-1-2-3-1001), S-1-1-0 can change it or its folder"))
        << Shown(facts, "replace");
    EXPECT_EQ(CodeOf(facts), ExitCode::Ok);
}

TEST(LoadCheck, EachWayToReplaceTheModuleCounts) {
    EXPECT_TRUE(WhoMayReplace(Healthy().access).empty());
    for (const std::uint32_t right : {0x2U, 0x4U, 0x10000U, 0x40000U, 0x80000U, 0x40000000U, 0x10000000U}) {
        AccessFacts file = Healthy().access;
        file.fileList->push_back({true, false, right, kUser});
        EXPECT_EQ(WhoMayReplace(file), std::vector<std::string>{kUser}) << right;
    }
    for (const std::uint32_t right : {0x2U, 0x40U, 0x10000U, 0x40000U, 0x80000U}) {
        AccessFacts folder = Healthy().access;
        folder.folderList->push_back({true, false, right, kUser});
        EXPECT_EQ(WhoMayReplace(folder), std::vector<std::string>{kUser}) << right;
    }
    AccessFacts harmless = Healthy().access;
    harmless.fileList->push_back({true, false, 0x1201BF & ~0x6U, kUser});
    harmless.folderList->push_back({true, false, 0x4, kUser});
    harmless.folderList->push_back({true, true, 0x1F01FF, kUser});
    harmless.folderList->push_back({true, false, 0x1F01FF, "S-1-3-0"});
    EXPECT_TRUE(WhoMayReplace(harmless).empty());
    AccessFacts denied = Healthy().access;
    denied.fileList = std::vector<AccessEntry>{{false, false, 0x2, kUser}, {true, false, 0x2, kUser}};
    EXPECT_TRUE(WhoMayReplace(denied).empty());
    denied.fileList->front().hasCondition = true;
    EXPECT_EQ(WhoMayReplace(denied), std::vector<std::string>{kUser});
    AccessFacts open = Healthy().access;
    open.fileList.reset();
    EXPECT_EQ(WhoMayReplace(open), std::vector<std::string>{"S-1-1-0"});
}

TEST(LoadCheck, TheModuleIsRunOnlyWhereThatLeavesNothingBehind) {
    DoctorFacts facts = Healthy();
    EXPECT_EQ(WhyNotRun(facts), "rvsetup doctor --probe runs it");
    facts.isProbing = true;
    EXPECT_EQ(WhyNotRun(facts), "");
    facts.logs[0].mayAppend = false;
    EXPECT_EQ(WhyNotRun(facts), "you may not write into its log");
    facts.logs[0].exists = false;
    EXPECT_EQ(WhyNotRun(facts), "that would make its log, which then belongs to you");
    facts.logs[0].isUsable = false;
    facts.logs[0].isMissing = true;
    EXPECT_EQ(WhyNotRun(facts), "that would make the folder of its log, which then belongs to you");
    facts.logs[0].isMissing = false;  // refused: the next place is the one that everybody may write to
    facts.logs[1].exists = facts.logs[1].mayAppend = true;
    EXPECT_EQ(WhyNotRun(facts), "its log is in a folder of everybody");
    facts.logs.clear();
    EXPECT_EQ(WhyNotRun(facts), "it has no folder for its log");
}

TEST(LoadCheck, CodeOfOthersIsNotRun) {
    DoctorFacts facts = Healthy();
    facts.isProbing = true;
    facts.access.fileOwner = kUser;
    EXPECT_EQ(WhyNotRun(facts), "");
    facts.anchor.runningSid = "S-1-5-21-1-2-3-500";
    EXPECT_EQ(WhyNotRun(facts), "others may replace it");
    facts.access.fileError = "no";
    EXPECT_EQ(WhyNotRun(facts), "who may replace it cannot be found out");
    facts.module.path = "..\\rvmediasource.dll";
    EXPECT_EQ(WhyNotRun(facts), "its path is not absolute");
}

TEST(Diagnose, AModuleInAUsersFolderIsClosedToTheService) {
    DoctorFacts facts = Healthy();
    facts.module.path = "C:\\Users\\mira\\rvmediasource.dll";
    facts.access.fileList = std::vector<AccessEntry>{{true, false, 0x1F01FF, kUser}};
    EXPECT_TRUE(
        Has(Shown(facts, "access"), "FAIL LOCAL SERVICE, the account of the camera service, may not read and run"));
    EXPECT_TRUE(Has(Shown(facts, "access"), "it lies in a user's own folder"));
    EXPECT_EQ(CodeOf(facts), ExitCode::AccessDenied);
    facts.access.fileList.reset();
    facts.access.folderList = std::vector<AccessEntry>{};
    EXPECT_TRUE(Has(Shown(facts, "access"), "WARN LOCAL SERVICE may read the module, but not list its folder"));
    facts.access.fileError = "no";
    EXPECT_TRUE(Has(Shown(facts, "access"), "WARN who may read the module cannot be found out: no"));
}

TEST(Diagnose, EveryReasonAgainstTheAnchorIsAFailureWithItsWord) {
    const struct {
        AnchorReason reason;
        const char* text;
        ExitCode code;
    } cases[] = {{AnchorReason::Absent, "ABSENT - nobody is named", ExitCode::NotInstalled},
                 {AnchorReason::WrongType, "WRONG_TYPE - the registry value is no text", ExitCode::Failure},
                 {AnchorReason::TooLarge, "TOO_LARGE - the registry value is too long", ExitCode::Failure},
                 {AnchorReason::Malformed, "MALFORMED - the registry value is no SID", ExitCode::Failure},
                 {AnchorReason::ReadFailed, "READ_FAILED - the registry value cannot be read", ExitCode::AccessDenied},
                 {AnchorReason::NotAUser, "NOT_A_USER - the SID is that of a group", ExitCode::Failure}};
    for (const auto& expected : cases) {
        DoctorFacts facts = Healthy();
        facts.anchor.reason = expected.reason;
        facts.story.streams.clear();
        EXPECT_TRUE(Has(Shown(facts, "anchor"), expected.text)) << Shown(facts, "anchor");
        EXPECT_EQ(CodeOf(facts), expected.code) << expected.text;
    }
}

TEST(Diagnose, TheAnchorsAccountIsNamedAndCompared) {
    EXPECT_EQ(Shown(Healthy(), "anchor"), "OK frames may be sent by PC\\mira (S-1-5-21-1-2-3-1001): that is you");
    DoctorFacts other = Healthy();
    other.anchor.runningSid = "S-1-5-21-1-2-3-1002";
    other.anchor.runningAccount = "PC\\noor";
    EXPECT_TRUE(
        Has(Shown(other, "anchor"), "WARN frames may be sent by PC\\mira (S-1-5-21-1-2-3-1001), not by you: PC\\noor"));
    DoctorFacts unknown = Healthy();
    unknown.anchor.kind = AccountKind::NotResolvable;
    unknown.anchor.account.clear();
    EXPECT_TRUE(
        Has(Shown(unknown, "anchor"), "WARN frames may be sent by S-1-5-21-1-2-3-1001; no account of this machine"));
    DoctorFacts group = Healthy();
    group.anchor.kind = AccountKind::NotAUser;
    group.anchor.useName = "SidTypeGroup";
    EXPECT_TRUE(Has(Shown(group, "anchor"), "which is no user (SidTypeGroup)"));
    EXPECT_EQ(CodeOf(group), ExitCode::Failure);
}

}  // namespace
}  // namespace ravlo::test
