// ravloproducer.dll as a program of any language uses it: loaded at run time, functions by name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gate/gate_pipe.h"
#include "ravlo/version.h"
#include "support/heap_faults.h"
#include "tools/producer_stage.h"

namespace ravlo::test {
namespace {

class ProducerDll : public ::testing::Test {
protected:
    ProducerDll() : m_module(LoadLibraryW((ProgramDirectory() + L"\\ravloproducer.dll").c_str())) {
        if (m_module == nullptr) {
            throw std::runtime_error("ravloproducer.dll cannot be loaded, error " + std::to_string(GetLastError()));
        }
    }
    ~ProducerDll() override { FreeLibrary(m_module); }

    /// The DLL's own copy of a function of the header.
    template <class F>
    F* Function(F&, const char* name) const {
        F* const found = reinterpret_cast<F*>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
        if (found == nullptr) {
            throw std::runtime_error(std::string("ravloproducer.dll has no ") + name);
        }
        return found;
    }

    AnchorGuard m_anchor{CurrentUserSid()};
    HMODULE m_module;
};

#define RAVLO_FROM_DLL(function) this->Function(function, #function)

TEST_F(ProducerDll, ItsVersionIsThatOfTheProject) {
    EXPECT_STREQ(RAVLO_VERSION, RAVLO_FROM_DLL(ravlo_producer_version)());
}

TEST_F(ProducerDll, EveryStatusHasAText) {
    const auto textOf = RAVLO_FROM_DLL(ravlo_status_text);
    const struct {
        ravlo_status status;
        const char* text;
    } texts[] = {
        {RAVLO_OK, "done"},
        {RAVLO_INVALID_ARGUMENT, "an argument is wrong"},
        {RAVLO_OUT_OF_MEMORY, "there is not enough memory"},
        {RAVLO_NO_CAMERA, "no camera serves this pipe"},
        {RAVLO_BUSY, "another producer is connected to the camera"},
        {RAVLO_ACCESS_DENIED, "the camera's pipe does not admit this account"},
        {RAVLO_UNTRUSTED_OWNER, "the camera's pipe belongs to an account that is not trusted"},
        {RAVLO_DISCONNECTED, "the camera has closed the connection, or there was none"},
        {RAVLO_TIMED_OUT, "the camera did not take the picture in time"},
        {RAVLO_NO_DEMAND, "the camera says nothing about its demand"},
        {RAVLO_SYSTEM_ERROR, "the operating system refused"},
        {static_cast<ravlo_status>(11), "unknown result"},
    };
    for (const auto& expected : texts) {
        EXPECT_STREQ(expected.text, textOf(expected.status));
    }
}

TEST_F(ProducerDll, APictureAndADemandRecordGoAllTheWay) {
    const std::wstring name = UniquePipeName();
    FrameSide camera(name);
    RvGatePipe gate;
    ASSERT_TRUE(RvGatePipeCreate(gate, CurrentUserSid(), (name + L".gate").c_str()));

    ravlo_producer* producer = nullptr;
    ASSERT_EQ(RAVLO_OK, RAVLO_FROM_DLL(ravlo_producer_open)(Narrow(name).c_str(), &producer));
    ASSERT_EQ(RAVLO_OK, RAVLO_FROM_DLL(ravlo_producer_connect)(producer, 0));
    ASSERT_TRUE(camera.WaitForClient());
    EXPECT_EQ(1, RAVLO_FROM_DLL(ravlo_producer_is_connected)(producer));

    ASSERT_EQ(6U, RAVLO_FROM_DLL(ravlo_frame_bytes)(2, 2));
    EXPECT_EQ(RAVLO_OK, RAVLO_FROM_DLL(ravlo_producer_write)(producer, 2, 2, "abcdUV", kPatienceMs));
    EXPECT_EQ(RAVLO_OK, RAVLO_FROM_DLL(ravlo_producer_write_planes)(producer, 2, 2, "ef#gh", 3, "XY", 2, kPatienceMs));
    EXPECT_EQ(3U, RAVLO_FROM_DLL(ravlo_producer_next_sequence)(producer));
    camera.Take(40);
    EXPECT_EQ((std::vector<std::uint8_t>{'a', 'b', 'c', 'd', 'U', 'V'}), camera.Take(6));
    camera.Take(40);
    EXPECT_EQ((std::vector<std::uint8_t>{'e', 'f', 'g', 'h', 'X', 'Y'}), camera.Take(6));

    ravlo_demand demand{};
    const auto read = RAVLO_FROM_DLL(ravlo_producer_read_demand);
    EXPECT_EQ(RAVLO_NO_DEMAND, read(producer, &demand));
    ASSERT_TRUE(WaitUntil([&] { return RvGatePipePublish(gate, 33, 5); }));
    EXPECT_TRUE(WaitUntil([&] { return read(producer, &demand) == RAVLO_OK; }));
    EXPECT_EQ(33U, demand.idle_ms);
    EXPECT_EQ(5U, demand.requests);

    RAVLO_FROM_DLL(ravlo_producer_disconnect)(producer);
    EXPECT_TRUE(camera.Take(1).empty());
    EXPECT_EQ(RAVLO_DISCONNECTED, RAVLO_FROM_DLL(ravlo_producer_write)(producer, 2, 2, "abcdUV", 0));
    EXPECT_EQ(0U, RAVLO_FROM_DLL(ravlo_producer_system_error)(producer));
    RAVLO_FROM_DLL(ravlo_producer_close)(producer);
    RvGatePipeClose(gate);
}

TEST_F(ProducerDll, NoExceptionLeavesIt) {
    const std::wstring name = UniquePipeName();
    const std::string narrow = Narrow(name);
    const PrivateLocalMachine withoutAnchor;
    RawServer camera(name, kOwnedBySystem, PIPE_ACCESS_INBOUND);
    const auto open = RAVLO_FROM_DLL(ravlo_producer_open);
    const auto connect = RAVLO_FROM_DLL(ravlo_producer_connect);
    ravlo_producer* producer = nullptr;
    HeapFaults heap(m_module);
    heap.FailNth(1);
    EXPECT_EQ(RAVLO_OUT_OF_MEMORY, open(narrow.c_str(), &producer));
    EXPECT_EQ(nullptr, producer);
    ASSERT_EQ(RAVLO_OK, open(narrow.c_str(), &producer));
    heap.FailNth(1);
    EXPECT_EQ(RAVLO_OUT_OF_MEMORY, connect(producer, 0)) << "an exception inside the DLL";
    EXPECT_TRUE(heap.Hit());
    heap.PassOn();
    camera.Drop();
    EXPECT_EQ(RAVLO_OK, connect(producer, 0));
    RAVLO_FROM_DLL(ravlo_producer_close)(producer);
}

}  // namespace
}  // namespace ravlo::test
