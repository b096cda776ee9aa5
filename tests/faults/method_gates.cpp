#include "faults/gates.h"

#include "platform/sensor_profile.h"
#include "support/com.h"

#include <mfapi.h>
#include <mfidl.h>
#include <mfobjects.h>

#include <iterator>
#include <memory>
#include <span>
#include <stdexcept>

namespace ravlo::faults {
namespace {

using test::ComPtr;
using test::Require;

// Names of the methods in the order of the classes' tables. A name in brackets returns no HRESULT: it is not gated.
constexpr const char* kUnknown[] = {"QueryInterface", "[AddRef]", "[Release]"};
constexpr const char* kAttributes[] = {
    "GetItem",    "GetItemType",      "CompareItem",     "Compare",   "GetUINT32",          "GetUINT64",
    "GetDouble",  "GetGUID",          "GetStringLength", "GetString", "GetAllocatedString", "GetBlobSize",
    "GetBlob",    "GetAllocatedBlob", "GetUnknown",      "SetItem",   "DeleteItem",         "DeleteAllItems",
    "SetUINT32",  "SetUINT64",        "SetDouble",       "SetGUID",   "SetString",          "SetBlob",
    "SetUnknown", "LockStore",        "UnlockStore",     "GetCount",  "GetItemByIndex",     "CopyAllItems"};
constexpr const char* kQueue[] = {"GetEvent",           "BeginGetEvent",      "EndGetEvent", "QueueEvent",
                                  "QueueEventParamVar", "QueueEventParamUnk", "Shutdown"};
constexpr const char* kStreamDescriptor[] = {"GetStreamIdentifier", "GetMediaTypeHandler"};
constexpr const char* kPresentation[] = {"GetStreamDescriptorCount", "GetStreamDescriptorByIndex", "SelectStream",
                                         "DeselectStream", "Clone"};
constexpr const char* kTypeHandler[] = {"IsMediaTypeSupported", "GetMediaTypeCount",   "GetMediaTypeByIndex",
                                        "SetCurrentMediaType",  "GetCurrentMediaType", "GetMajorType"};
constexpr const char* kSample[] = {"GetSampleFlags", "SetSampleFlags",      "GetSampleTime",
                                   "SetSampleTime",  "GetSampleDuration",   "SetSampleDuration",
                                   "GetBufferCount", "GetBufferByIndex",    "ConvertToContiguousBuffer",
                                   "AddBuffer",      "RemoveBufferByIndex", "RemoveAllBuffers",
                                   "GetTotalLength", "CopyToBuffer"};
constexpr const char* kBuffer[] = {"Lock", "Unlock", "GetCurrentLength", "SetCurrentLength", "GetMaxLength"};
constexpr const char* kProfile[] = {"GetProfileId", "AddProfileFilter", "IsMediaTypeSupported", "AddBlockedControl"};
constexpr const char* kProfiles[] = {"[GetProfileCount]",      "GetProfile",     "AddProfile", "FindProfile",
                                     "[RemoveProfileByIndex]", "[RemoveProfile]"};

/// Gates the methods behind one interface pointer, base interfaces first.
void GateTable(IUnknown* object, const std::string& interfaceName,
               std::initializer_list<std::span<const char* const>> parts) {
    void** const table = *reinterpret_cast<void***>(object);
    std::size_t index = 0;
    for (const std::span<const char* const> part : parts) {
        for (const char* const name : part) {
            void** const entry = table + index++;
            if (name[0] == '[') {
                continue;
            }
            // Two interfaces of one class may share a table.
            static std::vector<void**> done;
            bool known = false;
            for (void** const other : done) {
                known = known || other == entry;
            }
            if (known) {
                continue;
            }
            done.push_back(entry);
            auto* const hook = new Hook;  // lives as long as the process, as its gate does
            hook->name = interfaceName + "::" + name;
            hook->kind = CodeKind::Hresult;
            hook->failures = MethodFailures(name);
            hook->shared = true;
            hook->target = *entry;
            RegisterHook(*hook);
            DWORD protection = 0;
            VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
            *entry = GateOf(*hook);
            VirtualProtect(entry, sizeof *entry, protection, &protection);
        }
    }
}

class Outer final : public IUnknown {
public:
    STDMETHODIMP QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
};

void GateSensorProfiles() {
    const HMODULE library = LoadLibraryExW(L"mfsensorgroup.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto resolve = [library](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
    const auto createProfile = reinterpret_cast<CreateSensorProfileFunction>(resolve("MFCreateSensorProfile"));
    const auto createCollection =
        reinterpret_cast<CreateSensorProfileCollectionFunction>(resolve("MFCreateSensorProfileCollection"));
    if (createProfile == nullptr || createCollection == nullptr) {
        throw std::runtime_error("mfsensorgroup.dll is not in the system directory of the prefix");
    }
    ComPtr<IMFSensorProfile> profile;
    ComPtr<IMFSensorProfileCollection> collection;
    Require(createProfile(GUID{}, 0, nullptr, profile.Put()), "MFCreateSensorProfile");
    Require(createCollection(collection.Put()), "MFCreateSensorProfileCollection");
    GateTable(profile.Get(), "IMFSensorProfile", {kUnknown, kProfile});
    GateTable(collection.Get(), "IMFSensorProfileCollection", {kUnknown, kProfiles});
}

}  // namespace

void GatePlatformMethods() {
    ComPtr<IMFMediaEventQueue> queue;
    Require(MFCreateEventQueue(queue.Put()), "MFCreateEventQueue");
    GateTable(queue.Get(), "IMFMediaEventQueue", {kUnknown, kQueue});

    ComPtr<IMFAttributes> attributes;
    Require(MFCreateAttributes(attributes.Put(), 1), "MFCreateAttributes");
    GateTable(attributes.Get(), "IMFAttributes", {kUnknown, kAttributes});

    ComPtr<IMFMediaType> type;
    Require(MFCreateMediaType(type.Put()), "MFCreateMediaType");
    GateTable(type.Get(), "IMFMediaType", {kUnknown, kAttributes});

    IMFMediaType* const types[] = {type.Get()};
    ComPtr<IMFStreamDescriptor> stream;
    Require(MFCreateStreamDescriptor(0, 1, const_cast<IMFMediaType**>(types), stream.Put()),
            "MFCreateStreamDescriptor");
    GateTable(stream.Get(), "IMFStreamDescriptor", {kUnknown, kAttributes, kStreamDescriptor});
    ComPtr<IMFMediaTypeHandler> handler;
    Require(stream->GetMediaTypeHandler(handler.Put()), "GetMediaTypeHandler");
    GateTable(handler.Get(), "IMFMediaTypeHandler", {kUnknown, kTypeHandler});

    IMFStreamDescriptor* const streams[] = {stream.Get()};
    ComPtr<IMFPresentationDescriptor> presentation;
    Require(MFCreatePresentationDescriptor(1, const_cast<IMFStreamDescriptor**>(streams), presentation.Put()),
            "MFCreatePresentationDescriptor");
    GateTable(presentation.Get(), "IMFPresentationDescriptor", {kUnknown, kAttributes, kPresentation});

    ComPtr<IMFSample> sample;
    Require(MFCreateSample(sample.Put()), "MFCreateSample");
    GateTable(sample.Get(), "IMFSample", {kUnknown, kAttributes, kSample});
    ComPtr<IMFMediaBuffer> buffer;
    Require(MFCreateMemoryBuffer(64, buffer.Put()), "MFCreateMemoryBuffer");
    GateTable(buffer.Get(), "IMFMediaBuffer", {kUnknown, kBuffer});

    Outer outer;
    IUnknown* marshaler = nullptr;
    Require(CoCreateFreeThreadedMarshaler(&outer, &marshaler), "CoCreateFreeThreadedMarshaler");
    GateTable(marshaler, "FreeThreadedMarshaler", {kUnknown});
    marshaler->Release();

    GateSensorProfiles();
}

}  // namespace ravlo::faults
