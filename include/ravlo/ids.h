#pragma once

#include <guiddef.h>

/// Identifiers that a program needs to create and configure the camera.
namespace ravlo {

/// The one creatable class of rvmediasource.dll.
inline constexpr GUID kMediaSourceClassId{0x5E3C9A71, 0x0B4D, 0x4F82, {0xA6, 0xC1, 0x7D, 0x2E, 0x8B, 0x90, 0xF1, 0x34}};

/// String attribute, set before ActivateObject: width "x" height "@" numerator "/" denominator, such as 1280x720@30/1.
inline constexpr GUID RV_GEOMETRY_ATTRIBUTE{
    0x3F6B1D28, 0x94C7, 0x4E0A, {0xB5, 0xD3, 0x61, 0xA8, 0xC2, 0xE7, 0xF9, 0x04}};

/// String attribute, set before ActivateObject: the frame pipe's full name, such as \\.\pipe\Ravlo.7.
inline constexpr GUID kPipeNameAttribute{0x7C41E2D9, 0x5A06, 0x4B3F, {0x8E, 0x17, 0xC2, 0xA9, 0xD4, 0xF0, 0x6B, 0x58}};

/// UINT32 attribute that the platform itself may place in the activation attributes: the hosting client's process id.
/// Undocumented, so it only serves when no pipe name was published.
inline constexpr GUID kHostProcessIdAttribute{
    0x5F8D322E, 0x0FE4, 0x43E4, {0x9E, 0x50, 0xD8, 0x3E, 0xCD, 0x9F, 0xC2, 0xB8}};

}  // namespace ravlo
