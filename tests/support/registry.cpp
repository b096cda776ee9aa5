#include "support/registry.h"

#include <sddl.h>

#include <stdexcept>

namespace ravlo::test {
namespace {

constexpr wchar_t kAnchorKey[] = L"SOFTWARE\\Ravlo";
constexpr wchar_t kAnchorValue[] = L"AuthorizedUserSid";

void Check(LSTATUS status, const char* what) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string(what) + " failed, error " + std::to_string(status));
    }
}

class Key {
public:
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() {
        if (m_key) {
            RegCloseKey(m_key);
        }
    }
    /// Holds no key when there is none.
    static Key Open(REGSAM access) {
        HKEY key = nullptr;
        const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAnchorKey, 0, access | KEY_WOW64_64KEY, &key);
        if (status != ERROR_FILE_NOT_FOUND) {
            Check(status, "RegOpenKeyExW of the anchor's key");
        }
        return Key(key);
    }
    static Key Create() {
        HKEY key = nullptr;
        Check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kAnchorKey, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr,
                              &key, nullptr),
              "RegCreateKeyExW of the anchor's key");
        return Key(key);
    }
    HKEY Get() const { return m_key; }

private:
    explicit Key(HKEY key) : m_key(key) {}
    HKEY m_key;
};

}  // namespace

std::wstring CurrentUserSid() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
        throw std::runtime_error("OpenProcessToken failed");
    }
    alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    const BOOL read = GetTokenInformation(token, TokenUser, user, sizeof user, &size);
    CloseHandle(token);
    LPWSTR text = nullptr;
    if (!read || !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &text)) {
        throw std::runtime_error("the user of the process token cannot be read");
    }
    const std::wstring sid = text;
    LocalFree(text);
    return sid;
}

PrivateLocalMachine::PrivateLocalMachine()
    : m_path(L"Software\\RavloTests\\" + std::to_wstring(GetCurrentProcessId())) {
    RegDeleteTreeW(HKEY_CURRENT_USER,
                   m_path.c_str());  // left by a process of the same number that was killed
    HKEY key = nullptr;
    Check(RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
          "RegCreateKeyExW");
    const LSTATUS status = RegOverridePredefKey(HKEY_LOCAL_MACHINE, key);
    RegCloseKey(key);
    Check(status, "RegOverridePredefKey");
}

PrivateLocalMachine::~PrivateLocalMachine() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

AnchorGuard::AnchorGuard() {
    const Key key = Key::Open(KEY_READ);
    m_hadKey = key.Get() != nullptr;
    DWORD type = 0;
    DWORD size = 0;
    if (m_hadKey && RegQueryValueExW(key.Get(), kAnchorValue, nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
        std::vector<std::byte> bytes(size + 2);  // room for the terminator that some systems add on reading
        Check(RegQueryValueExW(key.Get(), kAnchorValue, nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size),
              "RegQueryValueExW of the anchor");
        bytes.resize(size);
        m_before = Value{type, std::move(bytes)};
    }
}

AnchorGuard::~AnchorGuard() {
    if (m_before) {
        SetRaw(m_before->type, m_before->bytes);
    } else if (m_hadKey) {
        Delete();
    } else {
        DeleteKey();
    }
}

void AnchorGuard::Set(const std::wstring& sid) {
    SetRaw(REG_SZ, std::as_bytes(std::span(sid.c_str(), sid.size() + 1)));
}

void AnchorGuard::SetRaw(DWORD type, std::span<const std::byte> bytes) {
    // Wine stores a terminator which it finds behind the given bytes: let it find something else there.
    std::vector<std::byte> padded(bytes.begin(), bytes.end());
    padded.resize(bytes.size() + 4, std::byte{0xA5});
    const Key key = Key::Create();
    Check(RegSetValueExW(key.Get(), kAnchorValue, 0, type, reinterpret_cast<const BYTE*>(padded.data()),
                         static_cast<DWORD>(bytes.size())),
          "RegSetValueExW of the anchor");
}

void AnchorGuard::SetUnterminated(const std::wstring& text) {
    SetRaw(REG_SZ, std::as_bytes(std::span(text.data(), text.size())));
}

void AnchorGuard::Delete() {
    const Key key = Key::Create();
    const LSTATUS status = RegDeleteValueW(key.Get(), kAnchorValue);
    if (status != ERROR_FILE_NOT_FOUND) {
        Check(status, "RegDeleteValueW of the anchor");
    }
}

void AnchorGuard::DeleteKey() {
    const Key key = Key::Open(KEY_ALL_ACCESS);
    if (!key.Get()) {
        return;
    }
    Check(RegDeleteTreeW(key.Get(), nullptr), "RegDeleteTreeW of the anchor's key");
    Check(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kAnchorKey, KEY_WOW64_64KEY, 0), "RegDeleteKeyExW of the anchor's key");
}

}  // namespace ravlo::test
