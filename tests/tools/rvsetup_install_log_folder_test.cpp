// The folder of the trace log: who owns it and who may do what in it. Wine keeps no owners and few access rights, so
// what is asked of the system is looked at instead.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

constexpr char kUser[] = "S-1-5-21-1-2-3-1001";
constexpr wchar_t kOwner[] = L"O:BA";
constexpr wchar_t kAccess[] =
    L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;;0x1201bf;;;LS)(A;OICIIO;0x1301bf;;;LS)"
    L"(A;;0x1201bf;;;S-1-5-21-1-2-3-1001)(A;OICIIO;0x1301bf;;;S-1-5-21-1-2-3-1001)(A;OICI;0x1200a9;;;BU)";

std::wstring TextOfDescriptor(PSECURITY_DESCRIPTOR descriptor, SECURITY_INFORMATION parts) {
    LPWSTR text = nullptr;
    if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, parts, &text, nullptr)) {
        return L"?";
    }
    const std::wstring copy = text;
    LocalFree(text);
    return copy;
}

class LogFolder : public InstallTest {
protected:
    SmallSource m_source;
    PretendedPath m_path{m_source.Program()};
};

TEST_F(LogFolder, ANewOneIsBornWithItsOwnerAndItsRights) {
    RAVLO_HOOK(CreateDirectoryW) folders(GetModuleHandleW(nullptr));
    std::wstring owner;
    std::wstring access;
    folders.Replace([&](LPCWSTR path, LPSECURITY_ATTRIBUTES attributes) -> BOOL {
        if (std::wstring(path) == kLogFolder && attributes != nullptr) {
            owner = TextOfDescriptor(attributes->lpSecurityDescriptor, OWNER_SECURITY_INFORMATION);
            access = TextOfDescriptor(attributes->lpSecurityDescriptor, DACL_SECURITY_INFORMATION);
        }
        return decltype(folders)::CallOriginal(path, attributes);
    });
    EXPECT_EQ(RunSetup({"install", "--user", kUser}).code, ExitCode::Ok);
    EXPECT_EQ(owner, kOwner);
    EXPECT_EQ(access, kAccess);
}

TEST_F(LogFolder, OneThatIsThereIsTakenOver) {
    std::filesystem::create_directories(kLogFolder);
    RAVLO_HOOK(SetSecurityInfo) settings(GetModuleHandleW(nullptr));
    std::wstring owner;
    std::wstring access;
    SECURITY_INFORMATION parts = 0;
    settings.Replace(
        [&](HANDLE, SE_OBJECT_TYPE type, SECURITY_INFORMATION set, PSID newOwner, PSID, PACL list, PACL) -> DWORD {
            EXPECT_EQ(type, SE_FILE_OBJECT);
            parts = set;
            SECURITY_DESCRIPTOR descriptor;
            InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
            SetSecurityDescriptorOwner(&descriptor, newOwner, FALSE);
            SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE);
            owner = TextOfDescriptor(&descriptor, OWNER_SECURITY_INFORMATION);
            access = TextOfDescriptor(&descriptor, DACL_SECURITY_INFORMATION);
            return ERROR_SUCCESS;
        });
    EXPECT_EQ(RunSetup({"install", "--user", kUser}).code, ExitCode::Ok);
    EXPECT_EQ(owner, kOwner);
    EXPECT_EQ(access, L"D:" + std::wstring(kAccess).substr(3));
    EXPECT_EQ(parts, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION);
}

TEST_F(LogFolder, AnAdministratorsPrivilegesAreUsed) {
    RAVLO_HOOK(LookupPrivilegeValueW) privileges(GetModuleHandleW(nullptr));
    EXPECT_EQ(RunSetup({"install", "--user", kUser}).code, ExitCode::Ok);
    std::vector<std::wstring> names;
    for (const auto& call : privileges.Calls()) {
        names.push_back(std::get<1>(call));
    }
    EXPECT_EQ(names,
              (std::vector<std::wstring>{L"SeTakeOwnershipPrivilege", L"SeRestorePrivilege", L"SeBackupPrivilege"}));
}

TEST_F(LogFolder, OneThatTheCameraWillRefuseIsAWarningAndNoFailure) {
    const SetupResult result = RunSetup({"install", "--user", kUser});
    EXPECT_EQ(result.code, ExitCode::Ok) << result.messages;
    EXPECT_TRUE(Contains(result.messages,
                         "rvsetup: warning: the camera will not log to C:\\ProgramData\\Ravlo (REFUSED-FOREIGN-OWNER) "
                         "but elsewhere; \"rvsetup doctor\" shows where\n"))
        << result.messages;
}

TEST_F(LogFolder, OneThatCannotBeMadeIsAWarningAndNoFailure) {
    WriteBytes(kLogFolder, "a file where the folder should be");
    const SetupResult result = RunSetup({"install", "--user", kUser});
    EXPECT_EQ(result.code, ExitCode::Ok) << result.messages;
    EXPECT_TRUE(Contains(result.messages, "rvsetup: warning: cannot secure C:\\ProgramData\\Ravlo "))
        << result.messages;
    EXPECT_TRUE(Contains(result.messages, "; the camera will log elsewhere\n")) << result.messages;
    EXPECT_FALSE(Contains(result.messages, "rvsetup: secured ")) << result.messages;
    EXPECT_EQ(RunSetup({"uninstall"}).code, ExitCode::Ok);
    EXPECT_EQ(FileBytes(kLogFolder), "a file where the folder should be");
}

TEST_F(LogFolder, ALinkInItsPlaceIsNotFollowed) {
    std::filesystem::create_directories(kLogFolder);
    const auto pretendLink = [](HANDLE file, FILE_INFO_BY_HANDLE_CLASS type, LPVOID info, DWORD size) -> BOOL {
        using Infos = RAVLO_HOOK(GetFileInformationByHandleEx);
        const BOOL read = Infos::CallOriginal(file, type, info, size);
        if (read && type == FileAttributeTagInfo) {
            static_cast<FILE_ATTRIBUTE_TAG_INFO*>(info)->FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        }
        return read;
    };
    RAVLO_HOOK(SetSecurityInfo) settings(GetModuleHandleW(nullptr));
    RAVLO_HOOK(GetFileInformationByHandleEx) infos(GetModuleHandleW(nullptr));
    infos.Replace(pretendLink);
    const SetupResult result = RunSetup({"install", "--me"});
    EXPECT_EQ(result.code, ExitCode::Ok) << result.messages;
    EXPECT_EQ(settings.Count(), 0U);
    EXPECT_TRUE(Contains(result.messages, "rvsetup: warning: cannot secure C:\\ProgramData\\Ravlo "))
        << result.messages;
}

}  // namespace
}  // namespace ravlo::test
