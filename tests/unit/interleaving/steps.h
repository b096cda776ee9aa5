#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::interleaving {

/// What the two sides of the pool share. A word is four bytes of a slot's storage, copied in one step.
enum class Role : std::uint8_t {
    Sequence,
    Stamp,
    Length,
    Published,
    TornReads,
    RefusedPublishes,
    WrongLengthFrames,
    Word,
    WriteIndex,  ///< the writer's own: nobody sees it change, but the change can be lost like a step
    Returned,    ///< the end of a call of the writer, together with its last step
};

/// Names a step by what it touches and by how often the publish, or the attempt of a read, touched the like before.
struct Step {
    Role role;
    int nth;  ///< from 1

    friend bool operator==(const Step&, const Step&) = default;
};

inline std::string NameOf(const Step& step) {
    static constexpr const char* kNames[] = {
        "sequence",          "stamp", "length",     "published", "tornReads", "refusedPublishes",
        "wrongLengthFrames", "word",  "writeIndex", "returned"};
    return std::string(kNames[static_cast<int>(step.role)]) + "#" + std::to_string(step.nth);
}

constexpr int kSlots = 2;
constexpr int kFrameWords = 3;  ///< 4 x 2 pixels: two words of luma, one of chroma
constexpr std::uint64_t kWordBytes = 4;

/// Locations: the atomics in the order in which the pool constructs them, then the words of both slots.
constexpr int kAtomicsASlot = 3;
constexpr int kPublished = kSlots * kAtomicsASlot;
constexpr int kTornReads = kPublished + 1;
constexpr int kRefusedPublishes = kPublished + 2;
constexpr int kWrongLengthFrames = kPublished + 3;
constexpr int kAtomics = kPublished + 4;
constexpr int kReturned =
    kAtomics + kSlots * kFrameWords;  ///< not of the pool: what the writer's calls are through with
constexpr int kLocations = kReturned + 1;

constexpr Role RoleOf(int location) {
    constexpr Role kOfSlot[] = {Role::Sequence, Role::Stamp, Role::Length};
    constexpr Role kOfPool[] = {Role::Published, Role::TornReads, Role::RefusedPublishes, Role::WrongLengthFrames};
    if (location < kPublished) {
        return kOfSlot[location % kAtomicsASlot];
    }
    if (location < kAtomics) {
        return kOfPool[location - kPublished];
    }
    return location < kReturned ? Role::Word : Role::Returned;
}

constexpr int WordLocation(int slot, int word) {
    return kAtomics + slot * kFrameWords + word;
}

/// Numbers the steps of one publish or of one attempt.
class StepCounter {
public:
    void Restart() { *this = StepCounter(); }
    Step Next(Role role) { return {role, ++m_counts[static_cast<int>(role)]}; }

private:
    int m_counts[static_cast<int>(Role::Returned) + 1] = {};
};

/// Receives every step that the pool takes, in place of the memory.
class Stepper {
public:
    virtual ~Stepper() = default;
    virtual std::uint64_t Load(int location, std::memory_order order) = 0;
    virtual void Store(int location, std::uint64_t value, std::memory_order order) = 0;
    virtual std::uint64_t Add(int location, std::uint64_t value, std::memory_order order) = 0;
    virtual std::uint64_t Exchange(int location, std::uint64_t value, std::memory_order order) = 0;
    virtual bool CompareExchange(int location, std::uint64_t& expected, std::uint64_t desired,
                                 std::memory_order order) = 0;
    /// Bytes of a frame, from a slot or into one.
    virtual void Copy(void* destination, const void* source, std::uint64_t bytes) = 0;
};

/// Whom the steps go to, and what the atomics were constructed with: their locations are their places in this list.
inline Stepper* g_stepper = nullptr;
inline std::vector<std::uint64_t> g_initialValues;

constexpr bool Acquires(std::memory_order order) {
    return order == std::memory_order_acquire || order == std::memory_order_acq_rel ||
           order == std::memory_order_seq_cst;
}

constexpr bool Releases(std::memory_order order) {
    return order == std::memory_order_release || order == std::memory_order_acq_rel ||
           order == std::memory_order_seq_cst;
}

}  // namespace ravlo::interleaving
