#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>

namespace ravlo {

/// Why an input cannot be used, as one sentence for the user.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A stream of bytes that can only be read forwards. One thread reads.
class ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    /// Waits for at least one byte and reads at most `length`. 0 is the end. Throws InputError.
    virtual std::size_t Read(std::uint8_t* buffer, std::size_t length) = 0;

    /// How many bytes there are from the beginning to the end; nothing when only the end will tell, as with a pipe.
    virtual std::optional<std::uint64_t> TotalBytes() const noexcept { return std::nullopt; }

    /// Reads until `length` bytes are there or the input ends; returns how many there are. Throws InputError.
    std::size_t ReadFully(std::uint8_t* buffer, std::size_t length) {
        std::size_t done = 0;
        while (done < length) {
            const std::size_t got = Read(buffer + done, length - done);
            if (got == 0) {
                break;
            }
            done += got;
        }
        return done;
    }
};

}  // namespace ravlo
