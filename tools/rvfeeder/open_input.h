#pragma once

#include <functional>
#include <memory>

#include "rvfeeder/input_options.h"
#include "rvfeeder/input_reader.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// Opens what the user asked for, from its beginning: file, standard input or test card. What a file or stream holds is
/// told from its first bytes, so this waits for them. Picture n of the test card, counted from 1, shows the number n
/// and leaves the place of the stamp free. Throws InputError when the input cannot be used, is not what the options say,
/// or is not of the size that the user expects.
std::unique_ptr<PictureReader> OpenInput(const InputOptions& options, const InputNote& note);

/// Opens the same input as often as it is called, for --loop; notes go to the user with the first opening only.
std::function<std::unique_ptr<PictureReader>()> InputOpener(InputOptions options);

/// True for an input that goes on whether or not it is read, named pipes and standard input unless that is a file: while
/// nobody looks its pictures must be read and dropped. Files, still pictures and the test card can wait.
bool IsLive(const InputOptions& options) noexcept;

}  // namespace ravlo
