// A pipe server that belongs to whomever a test wants it to belong to.
#pragma once

#include "platform/unique_handle.h"

#include <windows.h>

#include <stdexcept>
#include <string>

#include <sddl.h>

namespace ravlo::test {

/// A pipe server made by the test, with an owner of its choice; it never reads.
class MadePipe {
public:
    MadePipe(const std::wstring& name, const wchar_t* sddl, DWORD bufferBytes = 4096) {
        SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                                  &attributes.lpSecurityDescriptor, nullptr)) {
            throw std::runtime_error("no security descriptor, error " + std::to_string(GetLastError()));
        }
        pipe.Reset(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED, 0, 1, bufferBytes,
                                    bufferBytes, 0, &attributes));
        LocalFree(attributes.lpSecurityDescriptor);
        if (!pipe) {
            throw std::runtime_error("no pipe, error " + std::to_string(GetLastError()));
        }
    }
    UniqueFile pipe;
};

}  // namespace ravlo::test
