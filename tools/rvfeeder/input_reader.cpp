#include "rvfeeder/input_reader.h"

#include <utility>

#include "rvfeeder/byte_source_peek.h"
#include "rvfeeder/camera_limits.h"
#include "rvfeeder/input_kind.h"
#include "rvfeeder/raw_reader.h"
#include "rvfeeder/still_reader.h"
#include "rvfeeder/y4m_reader.h"

namespace ravlo {
namespace {

constexpr NumberPair kStillRate{30, 1};

/// A header that names itself, where pixels were promised, would be shown as a picture of noise.
void RefuseNamedFormat(InputKind kind) {
    if (kind == InputKind::Y4m) {
        throw InputError(
            "the input is no raw NV12 but Y4M, which says its own size and rate; leave out --size and --rate");
    }
    if (kind == InputKind::Png) {
        throw InputError("the input is no raw NV12 but a PNG picture, which says its own size; leave out --size");
    }
}

std::unique_ptr<PictureReader> MakeY4mReader(std::unique_ptr<ByteSource> source, const InputOptions& options,
                                             const InputNote& note) {
    if (options.rate) {
        throw InputError("a Y4M input says its own rate; leave out --rate");
    }
    auto reader = std::make_unique<Y4mReader>(std::move(source));
    const Y4mHeader& header = reader->Header();
    if (header.fullRange) {
        note("the input is full range; its pictures are converted to the limited range that the camera announces");
    }
    if (header.pixelAspect.first != header.pixelAspect.second) {
        note("the pixels of the input are " + std::to_string(header.pixelAspect.first) + ":" +
             std::to_string(header.pixelAspect.second) + ", the camera shows them square; its picture will look " +
             (header.pixelAspect.first > header.pixelAspect.second ? "too narrow" : "too wide"));
    }
    return reader;
}

std::unique_ptr<PictureReader> MakeStillReader(ByteSource& source, const InputOptions& options, const InputNote& note) {
    auto reader = std::make_unique<StillReader>(source, options.rate.value_or(kStillRate));
    if (reader->IsTurned()) {
        note("the picture is stored turned or mirrored, and shown as it is stored; save it upright first");
    }
    return reader;
}

std::unique_ptr<PictureReader> MakeReader(std::unique_ptr<PeekedSource> source, const InputOptions& options,
                                          const InputNote& note) {
    const InputKind kind = RecogniseInput(source->FirstBytes());
    if (options.rawGeometry) {
        RefuseNamedFormat(kind);
        return std::make_unique<RawReader>(std::move(source), *options.rawGeometry);
    }
    switch (kind) {
        case InputKind::Y4m:
            return MakeY4mReader(std::move(source), options, note);
        case InputKind::Png:
        case InputKind::Jpeg:
            return MakeStillReader(*source, options, note);
        case InputKind::Other:
            break;
    }
    throw InputError(WhyNotShown(source->FirstBytes()));
}

}  // namespace

std::unique_ptr<PictureReader> MakeInputReader(std::unique_ptr<ByteSource> source, const InputOptions& options,
                                               const InputNote& note) {
    auto reader = MakeReader(std::make_unique<PeekedSource>(std::move(source)), options, note);
    if (options.expect) {
        if (const auto unexpected = WhyUnexpected(reader->Geometry(), *options.expect)) {
            throw InputError(*unexpected);
        }
    }
    return reader;
}

}  // namespace ravlo
