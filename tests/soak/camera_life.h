// One life of a camera, as chance has it.
#pragma once

#include "soak/seeded_run.h"

#include <cstdint>
#include <sstream>
#include <string>

namespace ravlo::test {

/// How far a life gets before it ends.
enum class Reach { Created, Activated, Started };
/// How the source is told to end.
enum class Ending { Shutdown, StopFirst, Twice, RefusedFirst };
/// What a producer is at when the camera ends.
enum class ProducerAt { Nothing, Connected, AfterFrames, InHeader, InPayload, Gone };
/// What a reader of demand records is at when the camera ends.
enum class GateAt { Nothing, Connected, AfterRecord, Gone };

/// A small picture size, at a rate that keeps a life short.
struct Shape {
    const wchar_t* geometry;
    std::uint32_t width;
    std::uint32_t height;
};
inline constexpr Shape kShapes[] = {
    {L"64x36@200/1", 64, 36}, {L"320x180@120/1", 320, 180}, {L"642x362@150/1", 642, 362}};

/// The choices that make one life of a camera unlike another.
struct CameraLife {
    explicit CameraLife(Choices& choices)
        : shape(kShapes[choices.Below(3)]),
          reach(choices.Once(12)   ? Reach::Created
                : choices.Once(12) ? Reach::Activated
                                   : Reach::Started),
          ending(static_cast<Ending>(choices.Below(4))),
          producer(static_cast<ProducerAt>(choices.Below(6))),
          gate(choices.Once(3) ? static_cast<GateAt>(1 + choices.Below(3)) : GateAt::Nothing),
          patterns(choices.Below(3)),
          liveFrames(1 + choices.Below(3)),
          factoryServesTwice(choices.Once(4)),
          serverLock(choices.Once(4)),
          clientStartsPlatform(choices.Once(3)),
          restart(choices.Once(4)),
          activatesTwice(choices.Once(4)),
          holdsSample(choices.Once(3)),
          holdsStream(choices.Once(3)),
          holdsDescriptors(choices.Once(3)),
          holdsStores(choices.Once(3)),
          holdsMarshaler(choices.Once(6)),
          sourceCallback(choices.Once(3)),
          streamCallback(choices.Once(3)),
          blockedGetEvent(choices.Once(4)),
          blockedRequest(choices.Once(4)) {}

    /// For the message of a failure.
    std::string Text() const {
        std::ostringstream text;
        text << shape.width << "x" << shape.height << " reach " << static_cast<int>(reach) << " ending "
             << static_cast<int>(ending) << " producer " << static_cast<int>(producer) << " gate "
             << static_cast<int>(gate) << " patterns " << patterns << " frames " << liveFrames;
        const auto flag = [&](const char* name, bool set) { text << (set ? " " : "") << (set ? name : ""); };
        flag("factoryServesTwice", factoryServesTwice);
        flag("serverLock", serverLock);
        flag("clientStartsPlatform", clientStartsPlatform);
        flag("restart", restart);
        flag("activatesTwice", activatesTwice);
        flag("holdsSample", holdsSample);
        flag("holdsStream", holdsStream);
        flag("holdsDescriptors", holdsDescriptors);
        flag("holdsStores", holdsStores);
        flag("holdsMarshaler", holdsMarshaler);
        flag("sourceCallback", sourceCallback);
        flag("streamCallback", streamCallback);
        flag("blockedGetEvent", blockedGetEvent);
        flag("blockedRequest", blockedRequest);
        return text.str();
    }

    Shape shape;
    Reach reach;
    Ending ending;
    ProducerAt producer;
    GateAt gate;
    unsigned patterns;
    unsigned liveFrames;
    bool factoryServesTwice, serverLock, clientStartsPlatform, restart, activatesTwice;
    bool holdsSample, holdsStream, holdsDescriptors, holdsStores, holdsMarshaler;
    bool sourceCallback, streamCallback, blockedGetEvent, blockedRequest;
};

}  // namespace ravlo::test
