// What every method of the source and of the stream answers in every state: the promise that recorded calls are held
// against. Portable, so that the judge of a run is tested where a sanitizer watches it.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace ravlo::test {

/// An HRESULT's bits.
using Answer = std::uint32_t;

inline constexpr Answer kOk = 0x00000000;
inline constexpr Answer kMultipleBeginSame = 0x000D36D8;  ///< MF_S_MULTIPLE_BEGIN
inline constexpr Answer kNotImplemented = 0x80004001;
inline constexpr Answer kNoInterface = 0x80004002;
inline constexpr Answer kPointer = 0x80004003;
inline constexpr Answer kInvalidArgument = 0x80070057;
inline constexpr Answer kSetNotFound = 0x80070492;
inline constexpr Answer kInvalidStreamNumber = 0xC00D36B3;
inline constexpr Answer kNotInitialized = 0xC00D36B6;
inline constexpr Answer kUnsupportedService = 0xC00D36BA;
inline constexpr Answer kUnsupportedTimeFormat = 0xC00D36C5;
inline constexpr Answer kMultipleBegin = 0xC00D36D9;
inline constexpr Answer kMultipleSubscribers = 0xC00D36DA;
inline constexpr Answer kAttributeNotFound = 0xC00D36E6;
inline constexpr Answer kNoEvents = 0xC00D3E80;
inline constexpr Answer kInvalidTransition = 0xC00D3E82;
inline constexpr Answer kShutDownAnswer = 0xC00D3E85;
inline constexpr Answer kWrongState = 0xC00D3E9B;

/// States of the camera as its clients see them. A stream exists only behind an activation.
enum class State : std::uint8_t { NotActivated, Stopped, Started, ShutDown };
inline constexpr std::size_t kStateCount = 4;
inline constexpr std::array<const char*, kStateCount> kStateNames = {"not activated", "stopped", "started",
                                                                     "shut down"};

/// A method, or a method with arguments that it answers in a way of their own.
enum class Op : std::uint8_t {
    Start,
    StartNoDescriptor,
    StartTimeFormat,
    StartPosition,
    Stop,
    Pause,
    Shutdown,
    GetCharacteristics,
    CreatePresentationDescriptor,
    GetSourceAttributes,
    GetStreamAttributes,
    GetStreamAttributesOther,
    SetD3DManager,
    SourceGetEvent,
    SourceGetEventNull,
    SourceBeginGetEvent,
    SourceEndGetEvent,
    SourceEndGetEventNull,
    SourceQueueEvent,
    SourceQuery,
    SourceQueryMarshal,
    SourceQueryStranger,
    SourceReference,
    ActivateObject,
    ActivateStranger,
    ShutdownObject,
    DetachObject,
    GetService,
    GetServiceStranger,
    KsProperty,
    KsPropertyShort,
    KsMethod,
    KsEventNone,
    AttributeWrite,
    AttributeRead,
    AttributeMissing,
    AttributeText,
    AttributeDelete,
    AttributeCount,
    AttributeItem,
    AttributeCopy,
    AttributeLock,
    AttributeUnlock,
    StreamGetEvent,
    StreamGetEventNull,
    StreamBeginGetEvent,
    StreamEndGetEvent,
    StreamEndGetEventNull,
    StreamQueueEvent,
    GetMediaSource,
    GetMediaSourceNull,
    GetStreamDescriptor,
    RequestSample,
    RequestSampleNoToken,
    StreamQuery,
    StreamQueryMarshal,
    StreamQueryStranger,
    StreamReference,
    Count
};
inline constexpr std::size_t kOpCount = static_cast<std::size_t>(Op::Count);

enum class Object : std::uint8_t { Source, Stream };

/// The answers that one method may give in one state.
using Answers = std::vector<Answer>;

struct Row {
    Op op;
    Object object;
    const char* name;
    std::array<Answers, kStateCount> answers;  ///< by State; none: the method cannot be called in that state

    bool Allows(State state, Answer answer) const {
        const Answers& allowed = answers[static_cast<std::size_t>(state)];
        return std::find(allowed.begin(), allowed.end(), answer) != allowed.end();
    }
};

namespace detail {

/// The same answers for as long as the object lives, MF_E_SHUTDOWN behind that.
inline Row SourceRow(Op op, const char* name, const Answers& live) {
    return {op, Object::Source, name, {live, live, live, Answers{kShutDownAnswer}}};
}
inline Row StreamRow(Op op, const char* name, const Answers& stopped, const Answers& started) {
    return {op, Object::Stream, name, {Answers{}, stopped, started, Answers{kShutDownAnswer}}};
}
inline Row StreamRow(Op op, const char* name, const Answers& live) {
    return StreamRow(op, name, live, live);
}
/// Methods that do not look at the state.
inline Row SourceRowAlways(Op op, const char* name, Answer answer) {
    return {op, Object::Source, name, {Answers{answer}, {answer}, {answer}, {answer}}};
}
inline Row StreamRowAlways(Op op, const char* name, Answer answer) {
    return {op, Object::Stream, name, {Answers{}, {answer}, {answer}, {answer}}};
}

/// In the order of Op.
inline std::vector<Row> MakeStateTable() {
    // What the event queue itself answers while it lives; whether it may is for the judge of the events.
    const Answers look{kOk, kNoEvents, kMultipleSubscribers};
    const Answers subscribe{kOk, kMultipleBegin, kMultipleBeginSame, kMultipleSubscribers};
    const Answers gone{kShutDownAnswer};
    return {
        {Op::Start, Object::Source, "SRC.Start", {Answers{kNotInitialized}, {kOk}, {kOk}, gone}},
        SourceRow(Op::StartNoDescriptor, "SRC.Start(no descriptor)", {kInvalidArgument}),
        SourceRow(Op::StartTimeFormat, "SRC.Start(time format)", {kUnsupportedTimeFormat}),
        SourceRow(Op::StartPosition, "SRC.Start(VT_R8)", {kUnsupportedTimeFormat}),
        SourceRow(Op::Stop, "SRC.Stop", {kOk}),
        SourceRow(Op::Pause, "SRC.Pause", {kInvalidTransition}),
        SourceRowAlways(Op::Shutdown, "SRC.Shutdown", kOk),
        SourceRow(Op::GetCharacteristics, "SRC.GetCharacteristics", {kOk}),
        {Op::CreatePresentationDescriptor,
         Object::Source,
         "SRC.CreatePresentationDescriptor",
         {Answers{kNotInitialized}, {kOk}, {kOk}, gone}},
        SourceRow(Op::GetSourceAttributes, "SRC.GetSourceAttributes", {kOk}),
        SourceRow(Op::GetStreamAttributes, "SRC.GetStreamAttributes", {kOk}),
        SourceRow(Op::GetStreamAttributesOther, "SRC.GetStreamAttributes(1)", {kInvalidStreamNumber}),
        SourceRow(Op::SetD3DManager, "SRC.SetD3DManager", {kNotImplemented}),
        SourceRow(Op::SourceGetEvent, "SRC.GetEvent", look),
        SourceRowAlways(Op::SourceGetEventNull, "SRC.GetEvent(null)", kPointer),
        SourceRow(Op::SourceBeginGetEvent, "SRC.BeginGetEvent", subscribe),
        SourceRow(Op::SourceEndGetEvent, "SRC.EndGetEvent", {kOk}),
        SourceRow(Op::SourceEndGetEventNull, "SRC.EndGetEvent(null)", {kInvalidArgument}),
        SourceRow(Op::SourceQueueEvent, "SRC.QueueEvent", {kOk}),
        SourceRowAlways(Op::SourceQuery, "SRC.QueryInterface", kOk),
        SourceRowAlways(Op::SourceQueryMarshal, "SRC.QueryInterface(IMarshal)", kOk),
        SourceRowAlways(Op::SourceQueryStranger, "SRC.QueryInterface(unknown)", kNoInterface),
        SourceRowAlways(Op::SourceReference, "SRC.AddRef+Release", kOk),
        SourceRow(Op::ActivateObject, "SRC.ActivateObject", {kOk}),
        SourceRow(Op::ActivateStranger, "SRC.ActivateObject(unknown)", {kNoInterface}),
        SourceRowAlways(Op::ShutdownObject, "SRC.ShutdownObject", kNotImplemented),
        SourceRowAlways(Op::DetachObject, "SRC.DetachObject", kNotImplemented),
        SourceRow(Op::GetService, "SRC.GetService", {kOk}),
        SourceRow(Op::GetServiceStranger, "SRC.GetService(unknown)", {kUnsupportedService}),
        SourceRowAlways(Op::KsProperty, "SRC.KsProperty", kSetNotFound),
        SourceRowAlways(Op::KsPropertyShort, "SRC.KsProperty(short)", kInvalidArgument),
        SourceRowAlways(Op::KsMethod, "SRC.KsMethod", kSetNotFound),
        SourceRowAlways(Op::KsEventNone, "SRC.KsEvent(null)", kSetNotFound),
        SourceRow(Op::AttributeWrite, "SRC.SetUINT32", {kOk}),
        SourceRow(Op::AttributeRead, "SRC.GetUINT32", {kOk, kAttributeNotFound}),
        SourceRow(Op::AttributeMissing, "SRC.GetUINT32(absent)", {kAttributeNotFound}),
        SourceRow(Op::AttributeText, "SRC.SetString", {kOk}),
        SourceRow(Op::AttributeDelete, "SRC.DeleteItem", {kOk}),
        SourceRow(Op::AttributeCount, "SRC.GetCount", {kOk}),
        SourceRow(Op::AttributeItem, "SRC.GetItemByIndex", {kOk}),
        SourceRow(Op::AttributeCopy, "SRC.CopyAllItems", {kOk}),
        SourceRow(Op::AttributeLock, "SRC.LockStore", {kOk}),
        SourceRow(Op::AttributeUnlock, "SRC.UnlockStore", {kOk}),
        StreamRow(Op::StreamGetEvent, "STM.GetEvent", look),
        StreamRowAlways(Op::StreamGetEventNull, "STM.GetEvent(null)", kPointer),
        StreamRow(Op::StreamBeginGetEvent, "STM.BeginGetEvent", subscribe),
        StreamRow(Op::StreamEndGetEvent, "STM.EndGetEvent", {kOk}),
        StreamRow(Op::StreamEndGetEventNull, "STM.EndGetEvent(null)", {kInvalidArgument}),
        StreamRow(Op::StreamQueueEvent, "STM.QueueEvent", {kOk}),
        StreamRow(Op::GetMediaSource, "STM.GetMediaSource", {kOk}),
        StreamRowAlways(Op::GetMediaSourceNull, "STM.GetMediaSource(null)", kPointer),
        StreamRow(Op::GetStreamDescriptor, "STM.GetStreamDescriptor", {kOk}),
        StreamRow(Op::RequestSample, "STM.RequestSample", {kWrongState}, {kOk}),
        StreamRow(Op::RequestSampleNoToken, "STM.RequestSample(no token)", {kWrongState}, {kOk}),
        StreamRowAlways(Op::StreamQuery, "STM.QueryInterface", kOk),
        StreamRowAlways(Op::StreamQueryMarshal, "STM.QueryInterface(IMarshal)", kOk),
        StreamRowAlways(Op::StreamQueryStranger, "STM.QueryInterface(unknown)", kNoInterface),
        StreamRowAlways(Op::StreamReference, "STM.AddRef+Release", kOk),
    };
}

}  // namespace detail

inline const std::vector<Row>& StateTable() {
    static const std::vector<Row> table = detail::MakeStateTable();
    return table;
}

inline const Row& RowOf(Op op) {
    return StateTable()[static_cast<std::size_t>(op)];
}

}  // namespace ravlo::test
