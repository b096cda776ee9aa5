// Calls of the source: transitions, looks, activation, services and controls.
#pragma once

#include "soak/event_calls.h"

namespace ravlo::test {

inline constexpr GUID kStranger = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
inline constexpr GUID kSourceService = {0xF09992F7, 0x9FBA, 0x4C4A, {0xA3, 0x7F, 0x8C, 0x47, 0xB4, 0xE1, 0xDF, 0xE7}};

/// One interface or another of an object, and back to the identity.
inline HRESULT QueryAndCompare(IUnknown* from, REFIID id, IUnknown* identity) {
    ComPtr<IUnknown> found;
    const HRESULT hr = from->QueryInterface(id, found.PutVoid());
    return FAILED(hr) || IsSameObject(found.Get(), identity) ? hr : E_UNEXPECTED;
}

/// Often enough for two threads to meet in the middle of a count that is not changed at one stroke.
inline HRESULT TakeAndDropReferences(IUnknown* object) {
    constexpr int kTimes = 5000;
    for (int i = 0; i < kTimes; ++i) {
        object->AddRef();
        if (object->Release() == 0) {
            return E_UNEXPECTED;
        }
    }
    return S_OK;
}

inline bool CallTransition(Caller& caller, Op op) {
    IMFMediaSourceEx* const source = caller.source.Get();
    IMFPresentationDescriptor* const presentation = caller.stage.presentation.Get();
    switch (op) {
        case Op::Start:
            caller.record.Record(op, [&](Stamp name) {
                const PropVariant position(static_cast<LONGLONG>(name));
                const GUID none{};
                return source->Start(presentation, name % 2 == 0 ? &none : nullptr, position.Get());
            });
            return true;
        case Op::StartNoDescriptor:
            caller.Do(op, [&] { return source->Start(nullptr, nullptr, PropVariant().Get()); });
            return true;
        case Op::StartTimeFormat:
            caller.Do(op, [&] { return source->Start(presentation, &kStranger, PropVariant().Get()); });
            return true;
        case Op::StartPosition: {
            PropVariant position;
            position->vt = VT_R8;
            caller.Do(op, [&] { return source->Start(presentation, nullptr, position.Get()); });
            return true;
        }
        case Op::Stop:
            caller.Do(op, [&] { return source->Stop(); });
            return true;
        case Op::Pause:
            caller.Do(op, [&] { return source->Pause(); });
            return true;
        case Op::Shutdown:
            caller.Do(op, [&] { return source->Shutdown(); });
            return true;
        default:
            return false;
    }
}

inline bool CallLook(Caller& caller, Op op) {
    IMFMediaSourceEx* const source = caller.source.Get();
    switch (op) {
        case Op::GetCharacteristics: {
            DWORD characteristics = 77;
            const HRESULT hr = caller.Do(op, [&] { return source->GetCharacteristics(&characteristics); });
            caller.record.Expect(characteristics == (hr == S_OK ? 1u : 0u), "wrong characteristics");
            return true;
        }
        case Op::CreatePresentationDescriptor:
            caller.Get<IMFPresentationDescriptor>(
                op, [&](IMFPresentationDescriptor** out) { return source->CreatePresentationDescriptor(out); });
            return true;
        case Op::GetSourceAttributes:
            caller.Get<IMFAttributes>(op, [&](IMFAttributes** out) { return source->GetSourceAttributes(out); });
            return true;
        case Op::GetStreamAttributes:
            caller.Get<IMFAttributes>(op, [&](IMFAttributes** out) { return source->GetStreamAttributes(0, out); });
            return true;
        case Op::GetStreamAttributesOther:
            caller.Get<IMFAttributes>(op, [&](IMFAttributes** out) { return source->GetStreamAttributes(1, out); });
            return true;
        case Op::SetD3DManager:
            caller.Do(op, [&] { return source->SetD3DManager(nullptr); });
            return true;
        default:
            return false;
    }
}

inline bool CallIdentity(Caller& caller, Op op) {
    IUnknown* const faces[] = {caller.source.Get(), caller.activate.Get(), caller.services.Get(),
                               caller.controls.Get()};
    IUnknown* const face = faces[caller.Below(4)];
    const GUID ids[] = {IID_IUnknown,    IID_IMFMediaEventGenerator, IID_IMFMediaSource, IID_IMFMediaSourceEx,
                        IID_IMFActivate, IID_IMFAttributes,          IID_IMFGetService,  __uuidof(IKsControl)};
    const GUID& id = ids[caller.Below(8)];
    switch (op) {
        case Op::SourceQuery:
            caller.Do(op, [&] { return QueryAndCompare(face, id, caller.source.Get()); });
            return true;
        case Op::SourceQueryMarshal:
            caller.Get<IUnknown>(
                op, [&](IUnknown** out) { return face->QueryInterface(IID_IMarshal, reinterpret_cast<void**>(out)); });
            return true;
        case Op::SourceQueryStranger:
            caller.Get<IUnknown>(
                op, [&](IUnknown** out) { return face->QueryInterface(kStranger, reinterpret_cast<void**>(out)); });
            return true;
        case Op::SourceReference:
            caller.Do(op, [&] { return TakeAndDropReferences(face); });
            return true;
        default:
            return false;
    }
}

inline bool CallActivation(Caller& caller, Op op) {
    IMFActivate* const activate = caller.activate.Get();
    switch (op) {
        case Op::ActivateObject: {
            const ComPtr<IMFMediaSource> source = caller.Get<IMFMediaSource>(op, [&](IMFMediaSource** out) {
                return activate->ActivateObject(IID_IMFMediaSource, reinterpret_cast<void**>(out));
            });
            caller.record.Expect(!source || IsSameObject(source.Get(), caller.source.Get()), "another source came");
            return true;
        }
        case Op::ActivateStranger:
            caller.Get<IUnknown>(
                op, [&](IUnknown** out) { return activate->ActivateObject(kStranger, reinterpret_cast<void**>(out)); });
            return true;
        case Op::ShutdownObject:
            caller.Do(op, [&] { return activate->ShutdownObject(); });
            return true;
        case Op::DetachObject:
            caller.Do(op, [&] { return activate->DetachObject(); });
            return true;
        default:
            return false;
    }
}

inline bool CallControl(Caller& caller, Op op) {
    KSPROPERTY identifier{};
    identifier.Set = kStranger;
    ULONG bytes = 77;
    switch (op) {
        case Op::GetService:
        case Op::GetServiceStranger:
            caller.Get<IUnknown>(op, [&](IUnknown** out) {
                return caller.services->GetService(op == Op::GetService ? kSourceService : kStranger,
                                                   IID_IMFMediaSource, reinterpret_cast<void**>(out));
            });
            return true;
        case Op::KsProperty:
            caller.Do(op,
                      [&] { return caller.controls->KsProperty(&identifier, sizeof identifier, nullptr, 0, &bytes); });
            break;
        case Op::KsPropertyShort:
            caller.Do(op, [&] { return caller.controls->KsProperty(&identifier, 16, nullptr, 0, &bytes); });
            break;
        case Op::KsMethod:
            caller.Do(op,
                      [&] { return caller.controls->KsMethod(&identifier, sizeof identifier, nullptr, 0, &bytes); });
            break;
        case Op::KsEventNone:
            caller.Do(op, [&] { return caller.controls->KsEvent(nullptr, 0, nullptr, 0, &bytes); });
            break;
        default:
            return false;
    }
    caller.record.Expect(bytes == 0, "the count of returned bytes is not 0");
    return true;
}

}  // namespace ravlo::test
