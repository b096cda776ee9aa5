#include "rvfeeder/open_input.h"

#include <utility>

#include "common/messages.h"
#include "rvfeeder/file_source.h"
#include "rvfeeder/input_path.h"
#include "rvfeeder/test_card_reader.h"

namespace ravlo {

std::unique_ptr<PictureReader> OpenInput(const InputOptions& options, const InputNote& note) {
    if (options.cardGeometry) {
        return std::make_unique<TestCardReader>(*options.cardGeometry);
    }
    return MakeInputReader(OpenByteSource(options.path), options, note);
}

std::function<std::unique_ptr<PictureReader>()> InputOpener(InputOptions options) {
    return [options = std::move(options), isFirst = true]() mutable {
        const bool speaks = std::exchange(isFirst, false);
        return OpenInput(options, [speaks](const std::string& note) {
            if (speaks) {
                Say("note: " + note);
            }
        });
    };
}

bool IsLive(const InputOptions& options) noexcept {
    if (options.path == kStandardInputPath) {
        return !IsStandardInputAFile();
    }
    return !options.testCard && IsNamedPipePath(options.path);
}

}  // namespace ravlo
