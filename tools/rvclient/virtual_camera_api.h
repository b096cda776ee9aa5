#pragma once

#include <windows.h>

#include <devpropdef.h>
#include <mfidl.h>
#include <mfobjects.h>

// Declarations of virtual cameras that the toolchain's headers lack (Windows 11, build 22000 and later). The functions
// are exported by mfsensorgroup.dll; no import library names them.

#ifndef __IMFCameraSyncObject_INTERFACE_DEFINED__
#define __IMFCameraSyncObject_INTERFACE_DEFINED__

MIDL_INTERFACE("6338b23a-3042-49d2-a3ea-ec0fed815407")
IMFCameraSyncObject : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE WaitOnSignal(DWORD timeoutMs) = 0;
    virtual void STDMETHODCALLTYPE Shutdown() = 0;
};
__CRT_UUID_DECL(IMFCameraSyncObject, 0x6338b23a, 0x3042, 0x49d2, 0xa3, 0xea, 0xec, 0x0f, 0xed, 0x81, 0x54, 0x07)

#endif

#ifndef __IMFVirtualCamera_INTERFACE_DEFINED__
#define __IMFVirtualCamera_INTERFACE_DEFINED__

MIDL_INTERFACE("1c08a864-ef6c-4c75-af59-5f2d68da9563")
IMFVirtualCamera : public IMFAttributes {
    virtual HRESULT STDMETHODCALLTYPE AddDeviceSourceInfo(LPCWSTR deviceSourceInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddProperty(const DEVPROPKEY* key, DEVPROPTYPE type, const BYTE* data,
                                                  ULONG dataBytes) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddRegistryEntry(LPCWSTR entryName, LPCWSTR subkeyPath, DWORD registryType,
                                                       const BYTE* data, ULONG dataBytes) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start(IMFAsyncCallback * callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Remove() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaSource(IMFMediaSource * *source) = 0;
    virtual HRESULT STDMETHODCALLTYPE SendCameraProperty(REFGUID propertySet, ULONG propertyId, ULONG propertyFlags,
                                                         void* payload, ULONG payloadBytes, void* data, ULONG dataBytes,
                                                         ULONG* dataWritten) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateSyncEvent(REFGUID eventSet, ULONG eventId, ULONG eventFlags, HANDLE event,
                                                      IMFCameraSyncObject * *syncObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateSyncSemaphore(REFGUID eventSet, ULONG eventId, ULONG eventFlags,
                                                          HANDLE semaphore, LONG adjustment,
                                                          IMFCameraSyncObject * *syncObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE Shutdown() = 0;
};
__CRT_UUID_DECL(IMFVirtualCamera, 0x1c08a864, 0xef6c, 0x4c75, 0xaf, 0x59, 0x5f, 0x2d, 0x68, 0xda, 0x95, 0x63)

#endif

namespace ravlo {

/// MFVirtualCameraType: the only type there is, a media source in a COM server.
enum class VirtualCameraType : int { SoftwareCameraSource = 0 };

/// MFVirtualCameraLifetime: whether the camera ends with the object that made it.
enum class VirtualCameraLifetime : int { Session = 0, System = 1 };

/// MFVirtualCameraAccess.
enum class VirtualCameraAccess : int { CurrentUser = 0, AllUsers = 1 };

using CreateVirtualCameraFunction = HRESULT(WINAPI*)(VirtualCameraType type, VirtualCameraLifetime lifetime,
                                                     VirtualCameraAccess access, LPCWSTR friendlyName, LPCWSTR sourceId,
                                                     const GUID* categories, ULONG categoryCount,
                                                     IMFVirtualCamera** virtualCamera);
using IsVirtualCameraTypeSupportedFunction = HRESULT(WINAPI*)(VirtualCameraType type, BOOL* supported);

}  // namespace ravlo
