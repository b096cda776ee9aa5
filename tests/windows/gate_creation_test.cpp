// The creation of the gate pipe, and each step at which it can fail.
#include "gate/gate_pipe.h"

#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/import_hooks.h"

#include <sddl.h>

namespace ravlo::test {
namespace {

using PipeHook = RAVLO_HOOK(CreateNamedPipeW);

class GateCreation : public ::testing::Test {
protected:
    ~GateCreation() override { RvGatePipeClose(m_gate); }

    bool Create() { return RvGatePipeCreate(m_gate, m_user, m_gateName.c_str()); }
    void ExpectCreateFails(DWORD error) {
        const std::size_t handles = SettledHandles();
        EXPECT_FALSE(Create());
        EXPECT_EQ(error, m_gate.lastError);
        EXPECT_FALSE(m_gate.pipe.IsValid());
        EXPECT_FALSE(m_gate.connectEvent.IsValid());
        EXPECT_FALSE(m_gate.writeEvent.IsValid());
        EXPECT_EQ(handles, CountHandles()) << error;
    }

    const std::wstring m_user = CurrentUserSid();
    const std::wstring m_gateName = UniquePipeName() + L".gate";
    RvGatePipe m_gate;
};

TEST_F(GateCreation, ANameThatIsNoGateNameIsRefusedAndTheEarlierPipeStays) {
    ASSERT_TRUE(Create());
    for (const wchar_t* name : {L"", L".gate", L"\\\\.\\pipe\\Ravlo", L"\\\\.\\pipe\\Ravlo.7",
                                L"\\\\.\\pipe\\Ravlo.7.Gate", L"\\\\.\\pipe\\Ravlo.07.gate", L"\\\\.\\pipe\\Other.gate",
                                L"\\\\.\\pipe\\Ravlo.7.gates", L"\\\\.\\pipe\\Ravlo.gate.gate"}) {
        EXPECT_FALSE(RvGatePipeCreate(m_gate, m_user, name)) << name;
        EXPECT_EQ(123u, m_gate.lastError) << name;
    }
    EXPECT_FALSE(RvGatePipeCreate(m_gate, m_user, nullptr));
    EXPECT_EQ(123u, m_gate.lastError);
    EXPECT_TRUE(m_gate.pipe.IsValid());
}

TEST_F(GateCreation, ACreatedGateHasItsNameAndNoRecordYet) {
    ASSERT_TRUE(Create());
    EXPECT_EQ(m_gateName, m_gate.name.text);
    EXPECT_EQ(0u, m_gate.sequence);
    EXPECT_EQ(0u, m_gate.recordsIssued);
    EXPECT_EQ(0u, m_gate.lastError);
    EXPECT_FALSE(m_gate.connected);
    EXPECT_FALSE(m_gate.connectPending);
}

TEST_F(GateCreation, EveryStepThatFailsGivesItsErrorAndClosesEverything) {
    EXPECT_FALSE(RvGatePipeCreate(m_gate, std::wstring(), m_gateName.c_str()));
    EXPECT_EQ(87u, m_gate.lastError);
    {
        RAVLO_HOOK(AddAccessAllowedAce) adds(ThisProgram());
        adds.FailEvery(FALSE, ERROR_ALLOTTED_SPACE_EXCEEDED);
        ExpectCreateFails(1344);
        adds.FailEvery(FALSE, 0);
        ExpectCreateFails(87);
    }
    {
        RAVLO_HOOK(OpenProcessToken) tokens(ThisProgram());
        tokens.FailEvery(FALSE, ERROR_ACCESS_DENIED);
        ExpectCreateFails(5);
        tokens.FailEvery(FALSE, 0);
        ExpectCreateFails(1317);
    }
    {
        RAVLO_HOOK(ConvertStringSidToSidW) converts(ThisProgram());
        converts.FailCall(2, FALSE, ERROR_NOT_ENOUGH_MEMORY);
        ExpectCreateFails(8);
        converts.FailCall(2, FALSE, 0);
        ExpectCreateFails(1337);
    }
    {
        RAVLO_HOOK(InitializeSecurityDescriptor) initialises(ThisProgram());
        initialises.FailEvery(FALSE, ERROR_UNKNOWN_REVISION);
        ExpectCreateFails(ERROR_UNKNOWN_REVISION);
    }
    {
        RAVLO_HOOK(SetSecurityDescriptorDacl) dacls(ThisProgram());
        dacls.FailEvery(FALSE, ERROR_INVALID_ACL);
        ExpectCreateFails(ERROR_INVALID_ACL);
    }
    {
        RAVLO_HOOK(SetSecurityDescriptorOwner) owners(ThisProgram());
        owners.FailEvery(FALSE, ERROR_INVALID_OWNER);
        ExpectCreateFails(ERROR_INVALID_OWNER);
    }
    for (const int n : {1, 2}) {
        RAVLO_HOOK(CreateEventW) events(ThisProgram());
        events.FailCall(n, nullptr, ERROR_NO_SYSTEM_RESOURCES);
        ExpectCreateFails(1450);
        EXPECT_EQ(static_cast<std::size_t>(n), events.Count());
    }
    {
        PipeHook pipes(ThisProgram());
        pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
        ExpectCreateFails(5);
    }
    EXPECT_TRUE(Create());
}

TEST_F(GateCreation, BothEventsAreUnnamedManualResetAndNotSignalled) {
    RAVLO_HOOK(CreateEventW) events(ThisProgram());
    ASSERT_TRUE(Create());
    ASSERT_EQ(2u, events.Count());
    for (const auto& call : events.Calls()) {
        EXPECT_EQ(TRUE, std::get<1>(call));
        EXPECT_EQ(FALSE, std::get<2>(call));
        EXPECT_EQ(L"", std::get<3>(call));
    }
}

TEST_F(GateCreation, ASecondServerOfTheNameIsRefused) {
    ASSERT_TRUE(Create());
    RvGatePipe second;
    EXPECT_FALSE(RvGatePipeCreate(second, m_user, m_gateName.c_str()));
    EXPECT_TRUE(second.lastError == ERROR_ACCESS_DENIED || second.lastError == ERROR_PIPE_BUSY) << second.lastError;
}

}  // namespace
}  // namespace ravlo::test
