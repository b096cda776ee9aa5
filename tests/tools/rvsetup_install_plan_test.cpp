// Plans of install and uninstall, carried out on a machine that is a handful of variables.
#include "rvsetup/install/plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/rvsetup_install_model.h"

namespace ravlo::test {
namespace {

TEST(InstallPlan, ListsWhatItWouldDoInOrder) {
    const Plan plan = PlanInstall(kPlaces, Request("1.0.0"), EmptyMachine().State());
    std::string list;
    for (const Step& step : plan.steps) {
        list += DescribeStep(step) + "\n";
    }
    EXPECT_EQ(list,
              "create    P:\\Ravlo\n"
              "write     P:\\Ravlo\\install.json (what uninstall puts back)\n"
              "create    P:\\Ravlo\\1.0.0\n"
              "copy      S:\\1.0.0\\dll to P:\\Ravlo\\1.0.0\\rvmediasource.dll\n"
              "copy      S:\\host to P:\\Ravlo\\1.0.0\\rvhost.exe\n"
              "write     HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid = S-1-5-21-1-2-3-1001\n"
              "create    D:\\Log (trace log: owner Administrators; LOCAL SERVICE and S-1-5-21-1-2-3-1001 may write)\n"
              "register  P:\\Ravlo\\1.0.0\\rvmediasource.dll\n");
}

TEST(InstallPlan, UninstallListsTheWayBack) {
    Machine machine = UsedMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    std::string list;
    for (const Step& step : PlanUninstall(kPlaces, machine.State(), false).steps) {
        list += ReportStep(step) + "\n";
    }
    EXPECT_EQ(list,
              "restored HKLM\\SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}\n"
              "restored HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid\n"
              "removed D:\\Log\\trace.log\n"
              "restored D:\\Log (owner and access list)\n"
              "restored P:\\Ravlo\\1.0.0\\rvmediasource.dll from P:\\Ravlo\\1.0.0\\rvmediasource.dll.before\n"
              "removed P:\\Ravlo\\install.json\n");
}

TEST(InstallPlan, UninstallLeavesTheMachineAsItWas) {
    for (const Machine& before : {EmptyMachine(), UsedMachine()}) {
        Machine machine = before;
        ASSERT_TRUE(machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State())));
        EXPECT_NE(machine, before);
        Uninstall(machine);
        EXPECT_EQ(machine, before);
    }
}

TEST(InstallPlan, WhereverAnInstallBreaksOffUninstallGoesAllTheWayBack) {
    for (const Machine& before : {EmptyMachine(), UsedMachine()}) {
        for (std::size_t count = 0;; ++count) {
            Machine machine = before;
            const bool complete = machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()), count);
            Uninstall(machine);
            EXPECT_EQ(machine, before) << count;
            if (complete) {
                EXPECT_GE(count, 6U);
                break;
            }
        }
    }
}

TEST(InstallPlan, WhereverAnInstallBreaksOffASecondOneFinishesIt) {
    for (const Machine& before : {EmptyMachine(), UsedMachine()}) {
        Machine wanted = before;
        wanted.Perform(PlanInstall(kPlaces, Request("1.0.0"), wanted.State()));
        for (std::size_t count = 0;; ++count) {
            Machine machine = before;
            const bool complete = machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()), count);
            machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
            EXPECT_EQ(machine, wanted) << count;
            Uninstall(machine);
            EXPECT_EQ(machine, before) << count;
            if (complete) {
                break;
            }
        }
    }
}

TEST(InstallPlan, WhereverAnUpgradeOrItsUninstallBreaksOffTheWayBackLeadsBeforeTheFirst) {
    for (const Machine& before : {EmptyMachine(), UsedMachine()}) {
        Machine first = before;
        first.Perform(PlanInstall(kPlaces, Request("1.0.0"), first.State()));
        bool upgraded = false;
        for (std::size_t count = 0; !upgraded; ++count) {
            Machine second = first;
            upgraded = second.Perform(PlanInstall(kPlaces, Request("2.0.0", kOther), second.State()), count);
            bool removed = false;
            for (std::size_t back = 0; !removed; ++back) {
                Machine machine = second;
                removed = machine.Perform(PlanUninstall(kPlaces, machine.State(), false), back);
                Uninstall(machine);
                // The record is the last but one to go; a folder of ours that is then left is told by its name.
                if (!machine.Has(kRecord) && !before.Has(kRoot)) {
                    machine.files.erase(kRoot);
                }
                EXPECT_EQ(machine, before) << count << " " << back;
            }
        }
    }
}

TEST(InstallPlan, AnUpgradeRemovesTheOlderVersionAfterTheNewOneIsRegistered) {
    Machine machine = EmptyMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    const Plan plan = PlanInstall(kPlaces, Request("2.0.0"), machine.State());
    EXPECT_EQ(plan.steps.back(), (Step{StepKind::RemoveFolder, "P:\\Ravlo\\1.0.0", ""}));
    EXPECT_EQ(plan.steps.at(plan.tidyFrom - 1).kind, StepKind::Register);
    EXPECT_FALSE(HasStep(plan, StepKind::WriteAnchor));
    machine.Perform(plan);
    EXPECT_FALSE(machine.Has("P:\\Ravlo\\1.0.0\\rvmediasource.dll"));
    const Journal trimmed = TrimJournal(*machine.State().journal, "P:\\Ravlo\\2.0.0", machine.State());
    EXPECT_EQ(trimmed.folders, (std::vector<std::string>{"P:\\Ravlo", "P:\\Ravlo\\2.0.0"}));
    ASSERT_EQ(trimmed.files.size(), 3U);
    EXPECT_EQ(trimmed.files[0].path, "P:\\Ravlo\\2.0.0\\rvmediasource.dll");
    EXPECT_EQ(trimmed.files[2].path, "P:\\Ravlo\\2.0.0\\trace.log");
}

TEST(InstallPlan, AnOlderFileInUseStaysInTheRecord) {
    Machine machine = EmptyMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    machine.Perform(PlanInstall(kPlaces, Request("2.0.0"), machine.State()));
    machine.files["P:\\Ravlo\\1.0.0"] = "/";
    machine.files["P:\\Ravlo\\1.0.0\\rvmediasource.dll"] = "dll 1";
    const Journal trimmed = TrimJournal(*machine.State().journal, "P:\\Ravlo\\2.0.0", machine.State());
    ASSERT_EQ(trimmed.files.size(), 4U);
    EXPECT_EQ(trimmed.files[0].path, "P:\\Ravlo\\1.0.0\\rvmediasource.dll");
    EXPECT_EQ(trimmed.folders.size(), 3U);
}

TEST(InstallPlan, WhatSomebodyElseChangedSinceIsLeftAloneAndSaid) {
    Machine machine = EmptyMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    machine.anchor = Text("AuthorizedUserSid", kOther);
    machine.classKey = ClassFor("E:\\newer.dll");
    const Plan plan = PlanUninstall(kPlaces, machine.State(), false);
    EXPECT_EQ(plan.notes,
              (std::vector<std::string>{
                  "the camera's class is left alone: it was registered anew since the install, for E:\\newer.dll",
                  "HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid is left alone: it is no longer what was written by rvsetup "
                  "install"}));
    machine.Perform(plan);
    EXPECT_EQ(machine.anchor, Text("AuthorizedUserSid", kOther));
    EXPECT_EQ(machine.classKey, ClassFor("E:\\newer.dll"));
    EXPECT_FALSE(machine.Has(kRoot));
}

TEST(InstallPlan, AnAnchorThatSomebodyRemovedIsNotWrittenAgain) {
    Machine machine = UsedMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    machine.anchor.reset();
    Uninstall(machine);
    EXPECT_FALSE(machine.anchor);
}

TEST(InstallPlan, ARegistrationThatBrokeOffIsUndone) {
    Machine machine = EmptyMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    machine.classKey = RegistryTree{"", {Text("", "Ravlo Source")}, {}};
    Uninstall(machine);
    EXPECT_EQ(machine, EmptyMachine());
}

TEST(InstallPlan, ARegistrationThatBrokeOffOverAnotherOneIsUndone) {
    Machine installed = UsedMachine();
    installed.Perform(PlanInstall(kPlaces, Request("1.0.0"), installed.State()));
    const RegistryTree named{"", {Text("", "Ravlo Source")}, {}};
    RegistryTree withOtherServer = *UsedMachine().classKey;
    withOtherServer.values = {Text("", "renamed")};
    for (const RegistryTree& half : {named, withOtherServer}) {
        Machine machine = installed;
        machine.classKey = half;
        Uninstall(machine);
        EXPECT_EQ(machine, UsedMachine());
    }
}

TEST(InstallPlan, ACopyThatBrokeOffIsRemoved) {
    Machine machine = EmptyMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    const std::string dll = "P:\\Ravlo\\1.0.0\\rvmediasource.dll";
    machine.Move(dll, dll + ".new");
    const std::vector<Step> steps = PlanUninstall(kPlaces, machine.State(), false).steps;
    EXPECT_NE(std::find(steps.begin(), steps.end(), Step{StepKind::RemoveFile, dll, ""}), steps.end());
}

TEST(InstallPlan, TheLogStaysWhenAskedTo) {
    Machine machine = EmptyMachine();
    machine.Perform(PlanInstall(kPlaces, Request("1.0.0"), machine.State()));
    const Plan plan = PlanUninstall(kPlaces, machine.State(), true);
    EXPECT_FALSE(HasStep(plan, StepKind::RemoveLogFolder));
    EXPECT_EQ(plan.notes, (std::vector<std::string>{"D:\\Log stays, with the trace log"}));
}

TEST(InstallPlan, WithoutFilesOnlyTheAnchorIsWritten) {
    Machine machine = UsedMachine();
    const Plan plan = PlanInstall(kPlaces, {kUser, "", {}, {}}, machine.State());
    ASSERT_EQ(plan.steps.size(), 2U);
    EXPECT_EQ(plan.steps[0].kind, StepKind::WriteRecord);
    EXPECT_EQ(plan.steps[1].kind, StepKind::WriteAnchor);
    machine.Perform(plan);
    Uninstall(machine);
    EXPECT_EQ(machine, UsedMachine());
}

TEST(InstallPlan, AnAnchorThatIsThereAlreadyIsNoChange) {
    Machine machine = EmptyMachine();
    machine.anchorKey = true;
    machine.anchor = Text("AuthorizedUserSid", kUser);
    EXPECT_TRUE(PlanInstall(kPlaces, {kUser, "", {}, {}}, machine.State()).steps.empty());
    const Plan plan = PlanInstall(kPlaces, Request("1.0.0"), machine.State());
    EXPECT_FALSE(HasStep(plan, StepKind::WriteAnchor));
    EXPECT_FALSE(plan.journal.anchor);
}

}  // namespace
}  // namespace ravlo::test
