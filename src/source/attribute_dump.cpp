#include "source/attribute_dump.h"

#include <propidl.h>

#include "trace/trace.h"

namespace ravlo {
namespace {

void DumpValue(const char* tag, const char* name, UINT32 index, const PROPVARIANT& value) noexcept {
    switch (value.vt) {
        case VT_UI4:
            RvTrace("%s %s [%u] value=%lu", tag, name, index, value.ulVal);
            break;
        case VT_UI8:
            RvTrace("%s %s [%u] value=%llu", tag, name, index, value.uhVal.QuadPart);
            break;
        case VT_LPWSTR:
            if (value.pwszVal != nullptr) {
                RvTrace("%s %s [%u] value=%ls", tag, name, index, value.pwszVal);
            }
            break;
        case VT_CLSID:
            if (value.puuid != nullptr) {
                RvTrace("%s %s [%u] value=%G", tag, name, index, value.puuid);
            }
            break;
        default:
            break;
    }
}

}  // namespace

void DumpAttributes(const char* tag, const char* name, IMFAttributes* store) noexcept {
    if (store == nullptr) {
        RvTrace("%s %s store=NULL", tag, name);
        return;
    }
    UINT32 count = 0;
    if (FAILED(store->GetCount(&count))) {
        RvTrace("%s %s GetCount failed", tag, name);
        return;
    }
    RvTrace("%s %s count=%u", tag, name, count);
    for (UINT32 index = 0; index < count; ++index) {
        GUID key{};
        PROPVARIANT value{};
        if (FAILED(store->GetItemByIndex(index, &key, &value))) {
            RvTrace("%s %s [%u] GetItemByIndex failed", tag, name, index);
        } else {
            RvTrace("%s %s [%u] key=%G vt=%u", tag, name, index, &key, value.vt);
            DumpValue(tag, name, index, value);
        }
        PropVariantClear(&value);
    }
}

}  // namespace ravlo
