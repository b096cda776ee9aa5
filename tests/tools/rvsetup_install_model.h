#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "rvsetup/install/journal.h"
#include "rvsetup/install/plan.h"
#include "rvsetup/install/step.h"

namespace ravlo::test {

inline constexpr char kUser[] = "S-1-5-21-1-2-3-1001";
inline constexpr char kOther[] = "S-1-5-21-1-2-3-1002";
inline constexpr char kRoot[] = "P:\\Ravlo";
inline constexpr char kRecord[] = "P:\\Ravlo\\install.json";

inline RegistryValue Text(const std::string& name, const std::string& text) {
    return {name, 1, std::vector<std::uint8_t>(text.begin(), text.end())};
}

inline RegistryTree ClassFor(const std::string& dll) {
    return {"", {Text("", "Ravlo Source")}, {{"InprocServer32", {Text("", dll)}, {}}}};
}

/// Files by path (a folder has the content "/"), and the parts of the registry that matter.
struct Machine {
    std::map<std::string, std::string> files;
    bool anchorKey = false;
    std::optional<RegistryValue> anchor;
    std::optional<RegistryTree> classKey;
    std::string logSecurity;

    friend bool operator==(const Machine&, const Machine&) = default;

    bool Has(const std::string& path) const { return files.count(path) != 0; }

    std::string ServerPath(const std::optional<RegistryTree>& key) const {
        if (!key || key->keys.empty()) {
            return {};
        }
        const auto& bytes = key->keys.front().values.front().bytes;
        return {bytes.begin(), bytes.end()};
    }

    MachineState State() const {
        MachineState state;
        if (Has(kRecord)) {
            state.journal = JournalFromText(files.at(kRecord));
            EXPECT_TRUE(state.journal);
        }
        state.anchorKeyExists = anchorKey;
        state.anchor = anchor;
        if (anchor) {
            state.anchorSid.assign(anchor->bytes.begin(), anchor->bytes.end());
        }
        state.classKey = classKey;
        state.serverPath = ServerPath(classKey);
        if (state.journal && state.journal->classKey) {
            state.serverPathBefore = ServerPath(state.journal->classKey->before);
        }
        state.logFolderExists = Has("D:\\Log");
        state.logSecurity = logSecurity;
        state.exists = [this](const std::string& path) { return Has(path); };
        state.haveSameContent = [this](const std::string& left, const std::string& right) {
            return files.at(left) == files.at(right);
        };
        return state;
    }

    void Move(const std::string& from, const std::string& to) {
        files[to] = files.at(from);
        files.erase(from);
    }

    void WriteRecord(const Journal& journal) {
        files[kRoot] = "/";
        files[kRecord] = JournalToText(journal);
    }

    void Perform(const Step& step, const Journal& journal) {
        switch (step.kind) {
            case StepKind::CreateFolder:
                step.target == kRoot ? WriteRecord(journal) : void(files[step.target] = "/");
                break;
            case StepKind::WriteRecord:
                WriteRecord(journal);
                break;
            case StepKind::SetAside:
                Move(step.target, step.source);
                break;
            case StepKind::PutBack:
                Move(step.source, step.target);
                break;
            case StepKind::InstallFile:
                files[step.target] = files.at(step.source);
                break;
            case StepKind::WriteAnchor:
                anchorKey = true;
                anchor = Text("AuthorizedUserSid", step.source);
                break;
            case StepKind::CreateLogFolder:
                files[step.target] = "/";
                logSecurity = "for " + step.source;
                break;
            case StepKind::SecureLogFolder:
                logSecurity = "for " + step.source;
                break;
            case StepKind::Register:
                classKey = ClassFor(step.target);
                files["D:\\Log\\trace.log"] = "ATTACH";
                break;
            case StepKind::RemoveFile:
            case StepKind::RemoveFolder:
                files.erase(step.target);
                break;
            case StepKind::RemoveRecord:
                files.erase(step.target);
                break;
            case StepKind::RemoveClass:
                classKey.reset();
                break;
            case StepKind::RestoreClass:
                classKey = journal.classKey->before;
                break;
            case StepKind::RemoveAnchor:
                anchor.reset();
                break;
            case StepKind::RestoreAnchor:
                anchor = journal.anchor->before;
                break;
            case StepKind::RemoveAnchorKey:
                anchorKey = false;
                break;
            case StepKind::RestoreLogSecurity:
                logSecurity = journal.log->security;
                break;
            case StepKind::RemoveLogFolder:
                files.erase(step.target);
                files.erase(step.target + "\\trace.log");
                logSecurity.clear();
                break;
        }
    }

    /// Carries out the first `count` steps; true when that was all of them.
    bool Perform(const Plan& plan, std::size_t count = 1000) {
        for (std::size_t i = 0; i < plan.steps.size() && i < count; ++i) {
            Perform(plan.steps[i], plan.journal);
        }
        return count >= plan.steps.size();
    }
};

inline const Places kPlaces{kRoot, "D:\\Log"};

inline InstallRequest Request(const std::string& version, const std::string& sid = kUser) {
    return {sid,
            version,
            {{kDllName, "S:\\" + version + "\\dll"}, {"rvhost.exe", "S:\\host"}},
            ClassFor("P:\\Ravlo\\" + version + "\\rvmediasource.dll")};
}

/// Nothing of Ravlo on it but what is to be installed.
inline Machine EmptyMachine() {
    Machine machine;
    machine.files = {{"S:\\1.0.0\\dll", "dll 1"}, {"S:\\2.0.0\\dll", "dll 2"}, {"S:\\host", "host"}};
    return machine;
}

/// Everything that install touches is there already, in another state.
inline Machine UsedMachine() {
    Machine machine = EmptyMachine();
    machine.files["P:\\Ravlo"] = "/";
    machine.files["P:\\Ravlo\\notes.txt"] = "mine";
    machine.files["P:\\Ravlo\\1.0.0"] = "/";
    machine.files["P:\\Ravlo\\1.0.0\\rvmediasource.dll"] = "my own build";
    machine.files["P:\\Ravlo\\1.0.0\\rvhost.exe"] = "host";
    machine.files["D:\\Log"] = "/";
    machine.logSecurity = "somebody's";
    machine.anchorKey = true;
    machine.anchor = RegistryValue{"AuthorizedUserSid", 3, {1, 2, 255}};
    machine.classKey = ClassFor("E:\\other.dll");
    return machine;
}

inline bool HasStep(const Plan& plan, StepKind kind) {
    for (const Step& step : plan.steps) {
        if (step.kind == kind) {
            return true;
        }
    }
    return false;
}

inline void Uninstall(Machine& machine) {
    const MachineState state = machine.State();
    if (state.journal) {
        machine.Perform(PlanUninstall(kPlaces, state, false));
    }
}

}  // namespace ravlo::test
