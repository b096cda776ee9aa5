// The authorization anchor: HKEY_LOCAL_MACHINE\SOFTWARE\Ravlo, value AuthorizedUserSid, 64-bit view.
#pragma once

#include <windows.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace ravlo::test {

/// SID string of the user whom this process runs as. Under Wine this is also the owner of every directory, so
/// an anchor that names it makes the log go to C:\ProgramData\Ravlo.
std::wstring CurrentUserSid();

/// Gives this process an HKEY_LOCAL_MACHINE of its own, empty at first, for the life of the object. Tests
/// that change the anchor or register the class then disturb no other test process of the prefix. Class
/// activation by CoCreateInstance does not follow the redirection. Declare it before AnchorGuard and
/// ModuleUnderTest.
class PrivateLocalMachine {
public:
    PrivateLocalMachine();
    ~PrivateLocalMachine();
    PrivateLocalMachine(const PrivateLocalMachine&) = delete;
    PrivateLocalMachine& operator=(const PrivateLocalMachine&) = delete;

private:
    std::wstring m_path;
};

/// Changes the anchor and puts back what was there when the object goes. Every method throws on failure.
class AnchorGuard {
public:
    AnchorGuard();
    /// With Set(sid) right away.
    explicit AnchorGuard(const std::wstring& sid) : AnchorGuard() { Set(sid); }
    ~AnchorGuard();
    AnchorGuard(const AnchorGuard&) = delete;
    AnchorGuard& operator=(const AnchorGuard&) = delete;

    /// A well-formed REG_SZ.
    void Set(const std::wstring& sid);
    /// Exactly these bytes, of any type; a REG_SZ may so lack its terminator or have an odd length.
    void SetRaw(DWORD type, std::span<const std::byte> bytes);
    /// A REG_SZ of exactly these characters, without a terminator.
    void SetUnterminated(const std::wstring& text);
    /// Removes the value, keeps the key.
    void Delete();
    /// Removes the key and all that it holds.
    void DeleteKey();

private:
    struct Value {
        DWORD type;
        std::vector<std::byte> bytes;
    };
    bool m_hadKey = false;
    std::optional<Value> m_before;
};

}  // namespace ravlo::test
