#pragma once

#include <windows.h>

#include <mfobjects.h>

#include <cstddef>
#include <cstdint>

#include "pipe/pipe_name_resolver.h"
#include "platform/com_ptr.h"

namespace ravlo {

/// Gives out a reference on the store that holds the activation attributes, without tracing: the reader thread asks
/// every 20 ms. Empty when there is none any more. Any thread.
class ActivationStore {
public:
    virtual ComPtr<IMFAttributes> ReferenceActivationStore() noexcept = 0;

protected:
    ~ActivationStore() = default;
};

/// Reads the published pipe name. `attributes` may be null. An accepted name goes to `buffer`, which must hold at least
/// kPipeNameCapacity characters, else it counts as absent.
ExplicitName ReadExplicitPipeName(IMFAttributes* attributes, wchar_t* buffer, std::size_t capacity) noexcept;

/// Reads the host's process id: S_OK and a number other than 0; S_FALSE and 0 when it is absent or 0; E_POINTER without
/// attributes or output; any other failure of the store.
HRESULT ReadHostPid(IMFAttributes* attributes, std::uint32_t* pid) noexcept;

/// What the reader thread may know of the activation attributes.
class StreamActivationNames final : public ActivationNames {
public:
    explicit StreamActivationNames(ActivationStore& store) noexcept : m_store(store) {}
    ExplicitName ReadNames(PipeName& name, std::uint32_t& hostPid) noexcept override;

private:
    ActivationStore& m_store;
};

}  // namespace ravlo
