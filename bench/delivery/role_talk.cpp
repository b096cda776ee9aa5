#include "delivery/role_talk.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>

namespace ravlo::bench {

test::Arguments GeometryArguments(const FrameGeometry& geometry) {
    return {std::to_wstring(geometry.width), std::to_wstring(geometry.height), std::to_wstring(geometry.rateNumerator),
            std::to_wstring(geometry.rateDenominator)};
}

std::wstring RoleArguments::Text() {
    return m_arguments.at(m_next++);
}

std::uint32_t RoleArguments::Number() {
    return static_cast<std::uint32_t>(std::stoul(Text()));
}

FrameGeometry RoleArguments::Geometry() {
    const std::uint32_t width = Number();
    const std::uint32_t height = Number();
    const std::uint32_t numerator = Number();
    return {width, height, numerator, Number()};
}

void Tell(const char* key, double value) {
    std::printf("%s %.9g\n", key, value);
    std::fflush(stdout);
}

std::vector<double> ToldValues(const std::string& output, std::string_view key) {
    std::vector<double> values;
    for (std::size_t begin = 0; begin < output.size();) {
        const std::size_t end = std::min(output.find('\n', begin), output.size());
        const std::string line = output.substr(begin, end - begin);
        if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == ' ') {
            values.push_back(std::strtod(line.c_str() + key.size() + 1, nullptr));
        }
        begin = end + 1;
    }
    return values;
}

double ToldValue(const std::string& output, std::string_view key) {
    const std::vector<double> values = ToldValues(output, key);
    if (values.size() != 1) {
        throw std::runtime_error("a role did not tell its " + std::string(key) + "; it said:\n" + output);
    }
    return values.front();
}

}  // namespace ravlo::bench
