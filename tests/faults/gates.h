// Puts gates in front of everything that the module calls: its imports at each load, before its DllMain runs, and the
// methods of the platform's objects.
#pragma once

#include "faults/sites.h"
#include "support/load_notice.h"

#include <windows.h>

#include <string>
#include <vector>

namespace ravlo::faults {

/// The entry that leads through the gate of this hook.
void* GateOf(Hook& hook);

/// One import of the module as the sweep treats it.
struct ImportTreatment {
    std::string library;
    std::string name;
    std::string leftOut;  ///< the reason; empty for a gated import
};

/// Gates every import of `fileName` at each of its loads during the life of the object.
class ImportGates {
public:
    explicit ImportGates(std::wstring fileName);
    ImportGates(const ImportGates&) = delete;
    ImportGates& operator=(const ImportGates&) = delete;

    /// What the last load found, in the order of the import table.
    const std::vector<ImportTreatment>& Treatments() const { return m_treatments; }
    /// Imports without a rule, separated by blanks; empty is good.
    const std::string& Unknown() const { return m_unknown; }

private:
    void OnLoaded(HMODULE module);
    void Gate(const char* library, const char* name, void** entry);

    std::vector<ImportTreatment> m_treatments;
    std::string m_unknown;
    ravlo::test::LoadNotice m_notice;  ///< the first to go: it calls into all the others
};

/// Gates the methods of the platform's objects that the module uses, in the classes' own tables and so for the whole
/// process; calls of others pass. Media Foundation must be started. Throws when an object cannot be made.
void GatePlatformMethods();

}  // namespace ravlo::faults
