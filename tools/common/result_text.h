#pragma once

#include <windows.h>

#include <string>

namespace ravlo {

/// A result in words, with its number: "access is denied (0x80070005)".
std::string ResultText(HRESULT hr);

}  // namespace ravlo
