// How a stream finds its pipe's name: three routes, fixed waits, driven by a made-up clock.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "stream/activation_names.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/media.h"

namespace ravlo::test {
namespace {

using TickHook = RAVLO_HOOK(GetTickCount64);

constexpr ULONGLONG kBegin = 1'000'000;

class ReaderNames : public ModuleTest {
protected:
    ReaderNames() : m_ticks(m_module.Handle()) {
        m_ticks.Replace([now = m_now] { return now->load(); });
    }

    /// A camera without names, once its first attempt at the clock's beginning is over.
    void Begin() {
        m_camera.emplace(m_module, CameraOptions{.pipeName = L""});
        ASSERT_TRUE(LookAgain());
    }
    /// Lets the reader look at the clock and the attributes at least once more, start to end.
    bool LookAgain() { return m_ticks.WaitForCalls(m_ticks.Count() + 2); }
    void MoveClockTo(ULONGLONG sinceBegin) {
        *m_now = kBegin + sinceBegin;
        ASSERT_TRUE(LookAgain());
    }
    void SetName(const std::wstring& name) {
        Require(m_camera->Activate()->SetString(kPipeNameAttribute, name.c_str()), "SetString");
    }
    void SetHostPid(UINT32 pid) { Require(m_camera->Activate()->SetUINT32(kHostPidAttribute, pid), "SetUINT32"); }
    void ExpectNoNameYet() { EXPECT_FALSE(m_log.Contains("PIPE name ")) << m_log.Text(); }
    void ExpectName(const std::string& line) {
        EXPECT_TRUE(m_log.WaitForLine("PIPE name ")) << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage(line)) << line << "\n" << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines("PIPE name "));
    }
    void ExpectClientAttribute() {
        ExpectName(
            "PIPE name " + Narrow(m_name) +
            " - route=client-attribute; the camera owner published it explicitly and RvIsRavloPipeName accepted it");
    }

    std::shared_ptr<std::atomic<ULONGLONG>> m_now = std::make_shared<std::atomic<ULONGLONG>>(kBegin);
    const std::wstring m_name = UniquePipeName();
    TickHook m_ticks;
    std::optional<Camera> m_camera;
};

TEST_F(ReaderNames, APublishedNameIsTakenAtOnce) {
    m_camera.emplace(m_module, CameraOptions{.pipeName = m_name});
    ExpectClientAttribute();
    EXPECT_TRUE(WaitForPipe(m_name));
}

TEST_F(ReaderNames, AHostPidIsTakenAfter250MillisecondsAndNotBefore) {
    Begin();
    SetHostPid(NumberOf(m_name));
    MoveClockTo(249);
    ExpectNoNameYet();
    *m_now = kBegin + 250;
    ExpectName(
        "PIPE name " + Narrow(m_name) + " - route=host-pid " + std::to_string(NumberOf(m_name)) +
        " from the undocumented activation attribute, taken after waiting 250 ms of a 250 ms grace for the explicit "
        "name; that attribute was absent (a rvclient.exe or rvhost.exe older than 2026-09-09, or a camera this client "
        "did not create)");
    EXPECT_TRUE(WaitForPipe(m_name));
}

TEST_F(ReaderNames, TheHostPidLineTellsTheWaitAsMeasured) {
    Begin();
    MoveClockTo(1234);
    ExpectNoNameYet();
    SetHostPid(NumberOf(m_name));
    EXPECT_TRUE(m_log.WaitForLine("taken after waiting 1234 ms of a 250 ms grace")) << m_log.Text();
}

TEST_F(ReaderNames, AHostPidBesideARefusedNameSaysSo) {
    Begin();
    SetName(L"\\\\.\\pipe\\Other");
    SetHostPid(NumberOf(m_name));
    *m_now = kBegin + 300;
    ExpectName(
        "PIPE name " + Narrow(m_name) + " - route=host-pid " + std::to_string(NumberOf(m_name)) +
        " from the undocumented activation attribute, taken after waiting 300 ms of a 250 ms grace for the explicit "
        "name; that attribute was PRESENT BUT REFUSED - not a value this product may serve (a name outside "
        "RvIsRavloPipeName's grammar, or a length the attribute store reported inconsistently), so it was discarded");
}

TEST_F(ReaderNames, APublishedNameKeepsItsPriorityOverAHostPidFor250Milliseconds) {
    Begin();
    SetHostPid(4242);
    MoveClockTo(240);
    ExpectNoNameYet();
    SetName(m_name);
    ExpectClientAttribute();
}

TEST_F(ReaderNames, ANameThatIsPublishedAfter1500MillisecondsWinsOverTheSingleton) {
    Begin();
    MoveClockTo(1500);
    ExpectNoNameYet();
    SetName(m_name);
    ExpectClientAttribute();
}

TEST_F(ReaderNames, ANameThatIsThereWhenTheLastGraceEndsStillWins) {
    Begin();
    MoveClockTo(1999);
    ExpectNoNameYet();
    SetName(m_name);
    *m_now = kBegin + 2000;
    ExpectClientAttribute();
}

TEST_F(ReaderNames, WithNothingToGoByItIsTheSingletonAfter2000Milliseconds) {
    Begin();
    MoveClockTo(1999);
    ExpectNoNameYet();
    *m_now = kBegin + 2000;
    ExpectName(
        "PIPE name \\\\.\\pipe\\Ravlo - route=singleton; after 2000 ms the explicit pipe-name attribute was absent and the "
        "host-pid attribute was absent too, so there is nothing left to derive a per-node name from");
}

TEST_F(ReaderNames, TheSingletonLineNamesTheGraceAndNotTheWait) {
    Begin();
    *m_now = kBegin + 7777;
    EXPECT_TRUE(m_log.WaitForLine("route=singleton; after 2000 ms the explicit")) << m_log.Text();
}

TEST_F(ReaderNames, ASingletonBesideARefusedNameSaysSo) {
    Begin();
    SetName(L"\\\\.\\pipe\\Ravlo.0");
    MoveClockTo(1999);
    ExpectNoNameYet();
    *m_now = kBegin + 2000;
    ExpectName(
        "PIPE name \\\\.\\pipe\\Ravlo - route=singleton; after 2000 ms the explicit pipe-name attribute was PRESENT BUT "
        "REFUSED - outside RvIsRavloPipeName's grammar, or a length the attribute store reported inconsistently and the "
        "host-pid attribute was absent too, so there is nothing left to derive a per-node name from");
}

TEST_F(ReaderNames, AHostPidOfZeroCountsAsAbsent) {
    Begin();
    SetHostPid(0);
    MoveClockTo(1999);
    ExpectNoNameYet();
    *m_now = kBegin + 2000;
    EXPECT_TRUE(m_log.WaitForLine("and the host-pid attribute was absent too")) << m_log.Text();
}

TEST_F(ReaderNames, ANameLongerThan33CharactersIsReadAsAbsent) {
    Begin();
    SetName(L"\\\\.\\pipe\\Ravlo." + std::wstring(19, L'1'));  // 34 characters
    *m_now = kBegin + 2000;
    EXPECT_TRUE(m_log.WaitForLine("the explicit pipe-name attribute was absent and")) << m_log.Text();
}

TEST_F(ReaderNames, ANameOf33CharactersIsReadAndRefused) {
    Begin();
    SetName(L"\\\\.\\pipe\\Ravlo." + std::wstring(18, L'1'));  // 33 characters
    *m_now = kBegin + 2000;
    EXPECT_TRUE(m_log.WaitForLine("the explicit pipe-name attribute was PRESENT BUT REFUSED")) << m_log.Text();
}

TEST_F(ReaderNames, AttributesOfTheWrongTypeAreNeitherNameNorPid) {
    Begin();
    Require(m_camera->Activate()->SetUINT32(kPipeNameAttribute, 7), "SetUINT32");
    Require(m_camera->Activate()->SetString(kHostPidAttribute, L"7"), "SetString");
    MoveClockTo(1999);
    ExpectNoNameYet();
    *m_now = kBegin + 2000;
    EXPECT_TRUE(
        m_log.WaitForLine("the explicit pipe-name attribute was absent and the host-pid attribute was absent too"))
        << m_log.Text();
}

TEST_F(ReaderNames, WaitingForANameIsSilentAndInStepsOf20Milliseconds) {
    Begin();
    using WaitHook = RAVLO_HOOK(WaitForSingleObject);
    WaitHook waits(m_module.Handle());
    const std::size_t lines = m_log.Lines().size();
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(LookAgain());
    }
    EXPECT_EQ(lines, m_log.Lines().size()) << m_log.Text();
    std::size_t steps = 0;
    for (const auto& call : waits.Calls()) {
        const DWORD timeout = std::get<1>(call);
        EXPECT_TRUE(timeout == 0 || timeout == 20 || timeout == 500) << timeout;
        steps += timeout == 20 ? 1 : 0;
    }
    EXPECT_GE(steps, 5u);
    m_camera.reset();
}

TEST_F(ReaderNames, ShutdownEndsTheWaitForAName) {
    Begin();
    const ULONGLONG start = GetTickCount64();
    m_camera.reset();
    EXPECT_LT(GetTickCount64() - start, 500u);
    EXPECT_TRUE(m_log.HasMessage("PIPE reader thread exiting")) << m_log.Text();
    ExpectNoNameYet();
}

class ActivationNamesOfAStore : public ::testing::Test {
protected:
    ActivationNamesOfAStore() { Require(MFCreateAttributes(m_store.Put(), 2), "MFCreateAttributes"); }
    MediaFoundation m_mediaFoundation;
    ComPtr<IMFAttributes> m_store;
};

TEST_F(ActivationNamesOfAStore, TheHostPidHasFourAnswers) {
    std::uint32_t pid = 77;
    EXPECT_EQ(S_FALSE, ReadHostPid(m_store.Get(), &pid));
    EXPECT_EQ(0u, pid);
    m_store->SetUINT32(kHostPidAttribute, 4321);
    EXPECT_EQ(S_OK, ReadHostPid(m_store.Get(), &pid));
    EXPECT_EQ(4321u, pid);
    m_store->SetUINT32(kHostPidAttribute, 0);
    EXPECT_EQ(S_FALSE, ReadHostPid(m_store.Get(), &pid));
    EXPECT_EQ(0u, pid);
    m_store->SetUINT32(kHostPidAttribute, 0xFFFFFFFF);
    EXPECT_EQ(S_OK, ReadHostPid(m_store.Get(), &pid));
    EXPECT_EQ(4294967295u, pid);
    EXPECT_EQ(E_POINTER, ReadHostPid(m_store.Get(), nullptr));
    EXPECT_EQ(E_POINTER, ReadHostPid(nullptr, &pid));
    EXPECT_EQ(0u, pid);
    m_store->SetString(kHostPidAttribute, L"4321");
    pid = 77;
    EXPECT_EQ(MF_E_INVALIDTYPE, ReadHostPid(m_store.Get(), &pid));
    EXPECT_EQ(0u, pid);
}

TEST_F(ActivationNamesOfAStore, TheExplicitNameHasThreeAnswers) {
    wchar_t buffer[34];
    const auto read = [&](const wchar_t* text) {
        buffer[0] = L'?';
        m_store->SetString(kPipeNameAttribute, text);
        return ReadExplicitPipeName(m_store.Get(), buffer, 34);
    };
    EXPECT_EQ(ExplicitName::Absent, ReadExplicitPipeName(m_store.Get(), buffer, 34));
    EXPECT_EQ(ExplicitName::Accepted, read(L"\\\\.\\pipe\\Ravlo.7"));
    EXPECT_STREQ(L"\\\\.\\pipe\\Ravlo.7", buffer);
    EXPECT_EQ(ExplicitName::Accepted, read(L"\\\\.\\pipe\\Ravlo"));
    EXPECT_STREQ(L"\\\\.\\pipe\\Ravlo", buffer);
    EXPECT_EQ(ExplicitName::Refused, read(L"\\\\.\\pipe\\Ravlo.07"));
    EXPECT_EQ(ExplicitName::Refused, read(L""));
    EXPECT_EQ(ExplicitName::Absent, read(L"\\\\.\\pipe\\Ravlo.1111111111111111111"));
    m_store->SetUINT32(kPipeNameAttribute, 7);
    EXPECT_EQ(ExplicitName::Absent, ReadExplicitPipeName(m_store.Get(), buffer, 34));
    EXPECT_EQ(ExplicitName::Absent, ReadExplicitPipeName(nullptr, buffer, 34));
}

TEST_F(ActivationNamesOfAStore, AnExplicitNameNeedsABufferOf34Characters) {
    m_store->SetString(kPipeNameAttribute, L"\\\\.\\pipe\\Ravlo.7");
    wchar_t buffer[34] = L"before";
    EXPECT_EQ(ExplicitName::Absent, ReadExplicitPipeName(m_store.Get(), buffer, 33));
    EXPECT_STREQ(L"", buffer);
    EXPECT_EQ(ExplicitName::Absent, ReadExplicitPipeName(m_store.Get(), nullptr, 34));
    EXPECT_EQ(ExplicitName::Absent, ReadExplicitPipeName(m_store.Get(), nullptr, 0));
}

}  // namespace
}  // namespace ravlo::test
