#include "pipe/product_reader.h"

#include <stdexcept>

namespace ravlo::bench {

ProductReader::ProductReader(const std::wstring& pipeName, const FrameGeometry& geometry, std::size_t frames)
    : m_pipeName(pipeName),
      m_arrivals(frames),
      m_stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_frameArrival(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_publisher(m_pool, geometry),
      m_reader(*this, *this, {geometry.width, geometry.height, static_cast<std::uint32_t>(FrameBytes(geometry))}) {
    if (!m_stopEvent || !m_frameArrival || !m_pool.Allocate(FrameBytes(kLargestGeometry))) {
        throw std::runtime_error("the product's reader has no events or slots");
    }
    m_pool.TouchSlots(FrameBytes(geometry));
    m_publisher.SetFrameArrivalEvent(m_frameArrival.Get());
    m_thread = std::thread([this] { m_reader.Run(m_stopEvent.Get()); });
}

ProductReader::~ProductReader() {
    SetEvent(m_stopEvent.Get());
    m_thread.join();
    m_reader.Release();
}

ExplicitName ProductReader::ReadNames(PipeName& name, std::uint32_t& hostPid) noexcept {
    hostPid = 0;
    WideChar text[kPipeNameCapacity]{};
    const std::size_t length = m_pipeName.copy(text, kPipeNameCapacity - 1);
    return JudgeExplicitName(text, static_cast<std::uint32_t>(length), name);
}

void ProductReader::PublishFrame(const FrameHeader& header, const std::uint8_t* payload,
                                 std::uint32_t length) noexcept {
    m_publisher.PublishFrame(header, payload, length);
    m_arrivals.Add(payload);
}

}  // namespace ravlo::bench
