#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rvsetup/install/journal.h"
#include "rvsetup/install/step.h"
#include "rvsetup/system/camera_names.h"

namespace ravlo {

/// Where things go on this machine; all paths without a backslash at the end.
struct Places {
    std::string programFolder;  ///< C:\Program Files\Ravlo
    std::string logFolder;      ///< C:\ProgramData\Ravlo

    std::string RecordPath() const { return programFolder + "\\install.json"; }
    std::string LogPath() const { return logFolder + "\\trace.log"; }
};

/// A file to install, and its name in the folder of its version.
struct SourceFile {
    std::string name;
    std::string path;
};

/// What the machine is like before a plan is carried out.
struct MachineState {
    std::optional<Journal> journal;

    bool anchorKeyExists = false;
    std::optional<RegistryValue> anchor;
    std::string anchorSid;  ///< the value's text; empty when there is none or it is no text

    std::optional<RegistryTree> classKey;
    std::string serverPath;        ///< the DLL that the class key names; empty when it names none
    std::string serverPathBefore;  ///< the DLL that the class key in the journal names, likewise

    bool logFolderExists = false;
    std::string logSecurity;

    std::function<bool(const std::string& path)> exists;
    std::function<bool(const std::string& left, const std::string& right)> haveSameContent;
};

/// What install was asked for. Without files only the anchor is written.
struct InstallRequest {
    std::string sid;      ///< the anchor to write; empty to keep the one that is there
    std::string version;  ///< of the DLL; its folder's name
    std::vector<SourceFile> files;
    RegistryTree wantedClass;  ///< what the class key holds after a registration
};

/// Steps in the order in which they are to be made, and sentences for the user about what is left alone.
struct Plan {
    Journal journal;  ///< to be stored before the first step (install)
    std::vector<Step> steps;
    std::vector<std::string> notes;
    /// From this step on older versions are tidied away; what cannot be removed now can be later.
    std::size_t tidyFrom = static_cast<std::size_t>(-1);
};

/// Steps that install the request, or finish an install that was broken off: what is done already is no step. Empty when
/// nothing is to be done.
Plan PlanInstall(const Places& places, const InstallRequest& request, const MachineState& state);

/// Steps that put back what the journal says, as far as nobody else has changed it since. `state` must hold a journal.
Plan PlanUninstall(const Places& places, const MachineState& state, bool keepLog);

/// What remains of a journal after install has removed older versions: files and folders that are gone, and that would
/// not be put back, are dropped.
Journal TrimJournal(const Journal& journal, const std::string& currentFolder, const MachineState& state);

}  // namespace ravlo
