#pragma once

#include <windows.h>

#include <mfapi.h>

#include <span>

namespace ravlo {

/// One attribute of a media type: an identifier, a 32-bit number, or a pair of them packed high word first (a size or a
/// ratio).
class MediaTypeAttribute {
public:
    /// An attribute whose value is an identifier.
    static MediaTypeAttribute Identifier(const GUID& key, const GUID& value) noexcept {
        return {key, value, Kind::Guid, 0};
    }
    /// An attribute whose value is a 32-bit number.
    static MediaTypeAttribute Number(const GUID& key, UINT32 value) noexcept {
        return {key, GUID{}, Kind::Number, value};
    }
    /// An attribute whose value is a size (width, height) or a ratio (numerator, denominator).
    static MediaTypeAttribute Pair(const GUID& key, UINT32 high, UINT32 low) noexcept {
        return {key, GUID{}, Kind::Pair, UINT64{high} << 32 | low};
    }

    /// Sets the attribute on a store; the result is the store's.
    HRESULT SetOn(IMFAttributes* attributes) const noexcept;

private:
    enum class Kind { Guid, Number, Pair };
    MediaTypeAttribute(const GUID& key, const GUID& guid, Kind kind, UINT64 value) noexcept
        : m_key(key), m_guid(guid), m_kind(kind), m_value(value) {}

    GUID m_key;
    GUID m_guid;
    Kind m_kind;
    UINT64 m_value;
};

/// Creates a media type with these attributes, set in order; the first failure is the result and nothing is left
/// behind.
HRESULT CreateMediaType(std::span<const MediaTypeAttribute> attributes, IMFMediaType** mediaType) noexcept;

}  // namespace ravlo
