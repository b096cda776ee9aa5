#pragma once

#include <windows.h>

#include <mfidl.h>

// Declarations of mfsensorgroup.dll that the toolchain's headers lack (Windows 10 1803 and later).

#ifndef __IMFSensorProfile_INTERFACE_DEFINED__
#define __IMFSensorProfile_INTERFACE_DEFINED__

struct SENSORPROFILEID {
    GUID Type;
    UINT32 Index;
    UINT32 Unused;
};
static_assert(sizeof(SENSORPROFILEID) == 24);

MIDL_INTERFACE("22f765d1-8dab-4107-846d-56baf72215e7")
IMFSensorProfile : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetProfileId(SENSORPROFILEID * id) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddProfileFilter(UINT32 streamId, LPCWSTR filterSet) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsMediaTypeSupported(UINT32 streamId, IMFMediaType * mediaType,
                                                           BOOL * supported) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddBlockedControl(LPCWSTR control) = 0;
};
__CRT_UUID_DECL(IMFSensorProfile, 0x22f765d1, 0x8dab, 0x4107, 0x84, 0x6d, 0x56, 0xba, 0xf7, 0x22, 0x15, 0xe7)

#endif

#ifndef __IMFSensorProfileCollection_INTERFACE_DEFINED__
#define __IMFSensorProfileCollection_INTERFACE_DEFINED__

MIDL_INTERFACE("c95ea55b-0187-48be-9353-8d2507662351")
IMFSensorProfileCollection : public IUnknown {
    virtual DWORD STDMETHODCALLTYPE GetProfileCount() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProfile(DWORD index, IMFSensorProfile * *profile) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddProfile(IMFSensorProfile * profile) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindProfile(SENSORPROFILEID * id, IMFSensorProfile * *profile) = 0;
    virtual void STDMETHODCALLTYPE RemoveProfileByIndex(DWORD index) = 0;
    virtual void STDMETHODCALLTYPE RemoveProfile(SENSORPROFILEID * id) = 0;
};
__CRT_UUID_DECL(IMFSensorProfileCollection, 0xc95ea55b, 0x0187, 0x48be, 0x93, 0x53, 0x8d, 0x25, 0x07, 0x66, 0x23, 0x51)

#endif

namespace ravlo {

using CreateSensorProfileFunction = HRESULT(WINAPI*)(REFGUID type, UINT32 index, LPCWSTR constraints,
                                                     IMFSensorProfile** profile);
using CreateSensorProfileCollectionFunction = HRESULT(WINAPI*)(IMFSensorProfileCollection** collection);

}  // namespace ravlo
