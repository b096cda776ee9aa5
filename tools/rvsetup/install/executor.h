#pragma once

#include <string>
#include <vector>

#include "common/exit_codes.h"
#include "rvsetup/install/plan.h"

namespace ravlo {

/// Carries out a plan step by step and tells the user about each.
class Executor {
public:
    Executor(const Places& places, const Plan& plan) : m_places(places), m_plan(plan), m_done(plan.steps.size()) {}
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    /// Ok, Failure, or Interrupted after Ctrl+C. Stops at the first step that fails, unless it only tidies up.
    ExitCode Run();

    /// Which steps of the plan were carried out.
    const std::vector<bool>& Done() const noexcept { return m_done; }

    /// What the user has to know besides, such as files that wait for a restart.
    const std::vector<std::string>& Notes() const noexcept { return m_notes; }

private:
    /// Empty when the step is done, else why it cannot be.
    std::string Perform(const Step& step);
    std::string WriteRecord();
    std::string RemoveRecord();
    std::string Copy(const Step& step);
    std::string RemoveOneFile(const std::string& path);
    std::string RemoveOneFolder(const std::string& path);
    std::string PrepareLogFolder(const Step& step);
    std::string RemoveLog(const std::string& folder);
    std::string PerformOnRegistry(const Step& step);
    void Note(const std::string& sentence);
    /// The step changes nothing, which is no failure, for the reason in the sentence.
    void Leave(const std::string& sentence);

    const Places& m_places;
    const Plan& m_plan;
    std::vector<bool> m_done;
    bool m_leftFile = false;    ///< a file of an older version could not be removed
    bool m_leftFolder = false;  ///< a folder could not be removed because it is open somewhere
    bool m_isLeft = false;      ///< the step at hand has changed nothing
    std::vector<std::string> m_notes;
};

}  // namespace ravlo
