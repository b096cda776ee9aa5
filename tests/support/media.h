// Events and samples of media event generators, always with a deadline.
#pragma once

#include "support/com.h"
#include "support/wait.h"

#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <mfobjects.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ravlo::test {

/// One media event, taken apart.
struct Event {
    MediaEventType type = MEUnknown;
    GUID extendedType{};
    HRESULT status = S_OK;
    PropVariant value;

    /// The interface that the value holds; empty when it holds none.
    template <class I>
    ComPtr<I> Object() const {
        if (value.Type() != VT_UNKNOWN) {
            return {};
        }
        return ComPtr<IUnknown>::Share(value->punkVal).template As<I>();
    }
};

/// The next event of `generator`; nothing when none came within `timeoutMs`, or when the generator is shut
/// down. Polls with MF_EVENT_FLAG_NO_WAIT, so each look leaves a CALL and a RET or FAIL line in the log.
/// Events that a call queues before it returns are there at the first look.
std::optional<Event> NextEvent(IMFMediaEventGenerator* generator, DWORD timeoutMs = kPatienceMs);

/// As NextEvent, dropping events of other types on the way.
std::optional<Event> WaitForEvent(IMFMediaEventGenerator* generator, MediaEventType type,
                                  DWORD timeoutMs = kPatienceMs);

/// The types of all events that are queued now, oldest first. Takes them out of the queue.
std::vector<MediaEventType> DrainEvents(IMFMediaEventGenerator* generator);

/// One delivered sample, copied out.
struct Sample {
    ComPtr<IMFSample> object;
    LONGLONG time = 0;       ///< 100 ns units
    LONGLONG duration = 0;   ///< 100 ns units
    UINT32 cleanPoint = 0;   ///< MFSampleExtension_CleanPoint; 0 when it is not set
    ComPtr<IUnknown> token;  ///< MFSampleExtension_Token; empty when it is not set
    std::vector<std::uint8_t> bytes;
};

/// Copies a sample's times, attributes and bytes. Throws on failure.
Sample ReadSample(IMFSample* sample);

/// RequestSample followed by the event it queues. Throws when the request fails or no MEMediaSample follows.
/// A failing result under test is asked of the stream directly: EXPECT_EQ(...,
/// stream->RequestSample(nullptr)).
Sample RequestSample(IMFMediaStream* stream, IUnknown* token = nullptr);

}  // namespace ravlo::test
