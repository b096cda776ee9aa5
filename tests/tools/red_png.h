#pragma once

#include <string>

namespace ravlo::test {

/// A red PNG of 2x2, its pixels in a stored block, its sums left out.
inline const std::string kRedPng = [] {
    using namespace std::string_literals;
    return "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\0\2\0\0\0\2\x08\2\0\0\0\0\0\0\0"
           "\0\0\0\x19IDAT\x78\x01\1\x0e\0\xf1\xff\0\xff\0\0\xff\0\0\0\xff\0\0\xff\0\0\0\0\0\0\0\0\0\0\0\0\0\0IEND"
           "\0\0\0\0"s;
}();

/// What becomes of it as limited-range BT.709 NV12.
inline const std::string kRedNv12 = "\x3f\x3f\x3f\x3f\x66\xf0";

}  // namespace ravlo::test
