// Ready-made surroundings for tests of the built DLL.
#pragma once

#include "support/camera.h"
#include "support/module.h"
#include "support/registry.h"
#include "support/trace_log.h"

#include <gtest/gtest.h>

namespace ravlo::test {

/// An anchor that names the current user in a registry of the process's own, and the log from here on. The
/// module is not loaded: for tests that hook its load or change the anchor before.
class AnchoredTest : public ::testing::Test {
protected:
    PrivateLocalMachine m_localMachine;
    AnchorGuard m_anchor{CurrentUserSid()};
    TraceLog m_log;
};

/// As AnchoredTest, with the module loaded. A Camera made in a test goes before the module is unloaded.
class ModuleTest : public AnchoredTest {
protected:
    ModuleUnderTest m_module;
};

}  // namespace ravlo::test
