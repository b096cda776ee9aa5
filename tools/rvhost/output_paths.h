#pragma once

#include <string>
#include <vector>

namespace ravlo {

/// A file that the user wants written.
struct OutputFile {
    std::string option;  ///< what the user typed in front of it
    std::string path;    ///< UTF-8; empty when it is not wanted
};

/// Looks before the work begins whether the files can be written. The files themselves are neither made nor changed.
/// Says what is wrong and what to do; empty when all is well.
std::string WhyNotWritable(const std::vector<OutputFile>& files);

/// Makes the folder, and those above it, and tries it. `path` is UTF-8. Says what is wrong; empty when all is well.
std::string WhyNoOutputFolder(const std::string& path);

/// Two of the files that are the same one, as a sentence; empty when there are none.
std::string WhySameFile(const std::vector<OutputFile>& files);

}  // namespace ravlo
