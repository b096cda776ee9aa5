#pragma once

#include <optional>
#include <string>

#include "common/command_line.h"
#include "common/parse_text.h"
#include "stream/geometry.h"

namespace ravlo {

/// Where the pictures come from, and what the user says about them.
struct InputOptions {
    std::string path;                           ///< UTF-8; "-" is standard input; empty for the test card
    bool testCard = false;                      ///< draw a moving card instead of reading anything
    std::optional<FrameGeometry> rawGeometry;   ///< set when the input is headerless NV12 of this geometry
    std::optional<FrameGeometry> cardGeometry;  ///< of the test card; set exactly when there is one
    std::optional<NumberPair> rate;             ///< given without a size: the rate at which a still picture repeats
    std::optional<NumberPair> expect;           ///< the only width and height that will do
    bool loop = false;                          ///< begin again at the end of a file
};

/// The options of the command line that are about the input. Must outlive the parsing.
class InputOptionSet {
public:
    /// Adds `input`, --test-card, --size, --rate, --expect and --loop, under a title of their own in the help.
    void Declare(OptionSet& options);

    /// After parsing: checks what the parser cannot, without a look at the input. A sentence when something is wrong;
    /// `result` is then not complete.
    std::optional<std::string> Interpret(InputOptions& result) const;

    /// The same when --on-demand names a command that the pictures come from: Y4M of a size that may be expected, and no
    /// other option about the input.
    std::optional<std::string> InterpretForCommand(InputOptions& result) const;

private:
    std::optional<std::string> InterpretCard(InputOptions& result) const;
    std::optional<std::string> InterpretFile(InputOptions& result) const;
    std::optional<std::string> InterpretExpectation(InputOptions& result) const;

    std::string m_input;
    std::string m_size;
    std::string m_rate;
    std::string m_expect;
    bool m_testCard = false;
    bool m_loop = false;
};

}  // namespace ravlo
