#include "common/test_card_stamp.h"

namespace ravlo {

bool DrawTestCardStamp(std::span<std::uint8_t>, const FrameGeometry&, const TestCardStamp&) noexcept {
    return false;
}

std::optional<TestCardStamp> ReadTestCardStamp(std::span<const std::uint8_t>, const FrameGeometry&) noexcept {
    return std::nullopt;
}

}  // namespace ravlo
