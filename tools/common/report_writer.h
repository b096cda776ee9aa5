#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace ravlo {

/// Hands lines to a reader that may be slow, without ever waiting for it: a thread of its own writes them, and what the
/// reader has not taken in time is left out, the oldest first. One thread uses it.
class ReportWriter {
public:
    /// Writes one text; false when nobody reads any more, and nothing is written after that.
    using Write = std::function<bool(const std::string&)>;

    explicit ReportWriter(Write write);
    ReportWriter(const ReportWriter&) = delete;
    ReportWriter& operator=(const ReportWriter&) = delete;
    /// Does not wait for the thread, which may be stuck in a write.
    ~ReportWriter();

    /// Puts a text in line.
    void Put(std::string text);

    /// Waits until there is nothing left to write, at most `patience`. True when that is so, also because the reader
    /// has gone.
    bool Flush(std::chrono::milliseconds patience);

    /// Whether a write has failed: nothing more will be read.
    bool IsReaderGone() const;

private:
    struct Shared;

    static void Run(const std::shared_ptr<Shared>& shared, const Write& write);

    std::shared_ptr<Shared> m_shared;
};

}  // namespace ravlo
