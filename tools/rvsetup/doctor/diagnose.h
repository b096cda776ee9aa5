#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rvsetup/doctor/facts.h"
#include "rvsetup/doctor/finding.h"

namespace ravlo {

/// All checks, in the order in which a picture needs them.
std::vector<Finding> Diagnose(const DoctorFacts& facts);

/// The parts of Diagnose.
void DiagnoseWindows(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseModule(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseAccess(const DoctorFacts& facts, std::vector<Finding>& findings);
/// Who else may put code in place that runs in the camera service and in every program that opens the camera.
void DiagnoseReplacement(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseAnchor(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseLog(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnosePipe(const DoctorFacts& facts, std::vector<Finding>& findings);
/// The gate pipes, as far as they can be told without opening one.
void DiagnoseGate(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseProbe(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseProducer(const DoctorFacts& facts, std::vector<Finding>& findings);
void DiagnoseTroubles(const DoctorFacts& facts, std::vector<Finding>& findings);

/// Whether a process that wrote into the log still runs: one with its number and its name.
bool IsStillRunning(const DoctorFacts& facts, std::uint32_t processId, const std::string& process);

/// "just now", "40 s ago", "3 min ago", "5 h ago", "2 days ago"; "at an unknown time" for 0.
std::string AgeText(std::int64_t whenMs, std::int64_t nowMs);

}  // namespace ravlo
