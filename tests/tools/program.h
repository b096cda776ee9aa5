#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/module.h"
#include "support/process.h"

namespace ravlo::test {

/// A program of the product, which lies beside this test program.
inline ChildProcess StartProgram(const std::wstring& name, const Arguments& arguments) {
    return ChildProcess(ProgramDirectory() + L"\\" + name + L".exe", arguments);
}

struct ProgramResult {
    int code;  ///< -1 when it did not end in time
    std::string output;
};

inline ProgramResult FinishProgram(ChildProcess& child) {
    const auto code = child.Wait();
    return {code ? static_cast<int>(*code) : -1, child.Output()};
}

inline ProgramResult RunProgram(const std::wstring& name, const Arguments& arguments) {
    ChildProcess child = StartProgram(name, arguments);
    return FinishProgram(child);
}

/// A folder for the files of one test; gone with the object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        static int counter = 0;
        m_path = std::filesystem::temp_directory_path() /
                 (L"ravlo-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(counter++));
        std::filesystem::create_directories(m_path);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::wstring File(const std::wstring& name) const { return (m_path / name).wstring(); }

    /// Makes a file and returns its path.
    std::wstring Write(const std::wstring& name, const std::string& bytes) const {
        std::ofstream(m_path / name, std::ios::binary) << bytes;
        return File(name);
    }

    std::string Read(const std::wstring& name) const {
        std::ifstream file(m_path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

}  // namespace ravlo::test
