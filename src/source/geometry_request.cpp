#include "source/geometry_request.h"

#include <cstdint>

namespace ravlo {
namespace {

constexpr int kMaxDigits = 6;
constexpr std::uint64_t kMaxFramesPerSecond = 1000;

/// Walks over the request; every step fails once one has failed.
class Cursor {
public:
    explicit Cursor(const WideChar* text) noexcept : m_position(text) {}

    std::uint32_t Number() noexcept {
        const WideChar* const first = m_position;
        std::uint32_t value = 0;
        int digits = 0;
        for (; *m_position >= '0' && *m_position <= '9'; ++m_position) {
            if (++digits > kMaxDigits) {
                m_good = false;
                return 0;
            }
            value = value * 10 + static_cast<std::uint32_t>(*m_position - '0');
        }
        m_good = m_good && digits > 0 && (digits == 1 || *first != '0');
        return value;
    }

    void Separator(char expected) noexcept {
        m_good = m_good && *m_position == static_cast<WideChar>(expected);
        if (m_good) {
            ++m_position;
        }
    }

    bool IsAtEnd() const noexcept { return m_good && *m_position == 0; }

private:
    const WideChar* m_position;
    bool m_good = true;
};

}  // namespace

bool ParseGeometryRequest(const WideChar* text, FrameGeometry& geometry) noexcept {
    if (text == nullptr) {
        return false;
    }
    Cursor cursor(text);
    FrameGeometry parsed{};
    parsed.width = cursor.Number();
    cursor.Separator('x');
    parsed.height = cursor.Number();
    cursor.Separator('@');
    parsed.rateNumerator = cursor.Number();
    cursor.Separator('/');
    parsed.rateDenominator = cursor.Number();
    if (!cursor.IsAtEnd() || !IsValidGeometry(parsed) ||
        parsed.rateNumerator > kMaxFramesPerSecond * parsed.rateDenominator) {
        return false;
    }
    geometry = parsed;
    return true;
}

bool IsAcceptableGeometry(const FrameGeometry& geometry) noexcept {
    return IsValidGeometry(geometry) && FrameBytes(geometry) <= FrameBytes(kLargestGeometry);
}

}  // namespace ravlo
