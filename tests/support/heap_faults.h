// Allocation failures inside one module, and the count of its live blocks.
#pragma once

#include <windows.h>

#include <cstddef>

namespace ravlo::test {

/// Watches the heap calls of a module (malloc, calloc, realloc, _aligned_malloc and their frees, through
/// which every operator new of the module goes) for the life of the object. One at a time. Allocations made
/// by system DLLs on the module's behalf (media buffers, attribute stores) are not seen.
///
/// Before comparing LiveBlocks run the work once: the C++ runtime keeps a few blocks from a thread's start
/// and from the first exception for ever.
class HeapFaults {
public:
    explicit HeapFaults(HMODULE module);
    ~HeapFaults();
    HeapFaults(const HeapFaults&) = delete;
    HeapFaults& operator=(const HeapFaults&) = delete;

    /// The n-th allocation from now fails (1 is the next one), once.
    void FailNth(long n);
    /// Every allocation of at least `bytes` fails until PassOn.
    void FailFromSize(std::size_t bytes);
    void PassOn();

    /// True when a failure was dealt out since the last FailNth or FailFromSize.
    bool Hit() const;
    /// Blocks allocated less blocks freed since construction; negative when older blocks were freed.
    long LiveBlocks() const;
    /// Allocations asked for since construction, failed ones included.
    long Allocations() const;
};

}  // namespace ravlo::test
