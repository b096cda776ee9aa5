#pragma once

#include <windows.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/module.h"
#include "tools/program.h"

namespace ravlo::test {

/// An environment variable of this process and of the children that it starts meanwhile.
class EnvironmentVariable {
public:
    EnvironmentVariable(const wchar_t* name, const std::wstring& value) : m_name(name) {
        if (!SetEnvironmentVariableW(name, value.c_str())) {
            throw std::runtime_error("an environment variable cannot be set");
        }
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() { SetEnvironmentVariableW(m_name, nullptr); }

private:
    const wchar_t* m_name;
};

/// The camera's class in the class store of the machine.
class RegisteredCamera {
public:
    RegisteredCamera() { Require(ModuleUnderTest().RegisterServer(), "DllRegisterServer"); }
    RegisteredCamera(const RegisteredCamera&) = delete;
    RegisteredCamera& operator=(const RegisteredCamera&) = delete;
    ~RegisteredCamera() { ModuleUnderTest().UnregisterServer(); }
};

/// What the stand-in for the system's virtual cameras was asked to do, in children started meanwhile.
class CameraRecord {
public:
    std::string Text() const { return m_folder.Read(L"record.txt"); }

    std::vector<std::string> Lines() const {
        std::istringstream text(Text());
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    /// Lines of calls, without those that tell what the stand-in did by itself.
    std::vector<std::string> Calls() const {
        std::vector<std::string> lines = Lines();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("# "); });
        return lines;
    }

    bool Contains(const std::string& line) const {
        return ("\n" + Text()).find("\n" + line + "\n") != std::string::npos;
    }

    bool WaitForLine(const std::string& line, DWORD timeoutMs = 20000) const {
        return WaitUntil([&] { return Contains(line); }, timeoutMs, 10);
    }

private:
    TemporaryFolder m_folder;
    EnvironmentVariable m_variable{L"RAVLO_STANDIN_RECORD", m_folder.File(L"record.txt")};
};

}  // namespace ravlo::test
