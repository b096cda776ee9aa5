#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "stream/geometry.h"
#include "support/process.h"

namespace ravlo::bench {

// What the roles of this program and its first process say to each other: arguments one way, lines "key value" back.

/// The four numbers of a geometry as a role's arguments; RoleArguments reads them back.
test::Arguments GeometryArguments(const FrameGeometry& geometry);

/// Arguments of a role, taken from the front. Throws when one is missing or is no number.
class RoleArguments {
public:
    explicit RoleArguments(const test::Arguments& arguments) : m_arguments(arguments) {}

    std::uint32_t Number();
    FrameGeometry Geometry();
    std::wstring Text();

private:
    const test::Arguments& m_arguments;
    std::size_t m_next = 0;
};

/// Prints "key value" at once.
void Tell(const char* key, double value);

/// The values of all lines "key value", in order.
std::vector<double> ToldValues(const std::string& output, std::string_view key);

/// The value of the one line "key value". Throws when there is none.
double ToldValue(const std::string& output, std::string_view key);

}  // namespace ravlo::bench
