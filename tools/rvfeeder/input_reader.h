#pragma once

#include <functional>
#include <memory>
#include <string>

#include "rvfeeder/byte_source.h"
#include "rvfeeder/input_options.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// Takes a sentence that the user should know although the input can be used. Called on the thread that opens.
using InputNote = std::function<void(const std::string&)>;

/// The reader for what the bytes of a file or stream are: told from the first of them, never from a name. With a raw
/// geometry they are taken as they come. Throws InputError for what cannot be read, with what to do instead, and for a
/// size other than the user expects.
std::unique_ptr<PictureReader> MakeInputReader(std::unique_ptr<ByteSource> source, const InputOptions& options,
                                               const InputNote& note);

}  // namespace ravlo
