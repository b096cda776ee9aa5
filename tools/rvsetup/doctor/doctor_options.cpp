#include "rvsetup/doctor/doctor_options.h"

#include "common/parse_text.h"

namespace ravlo {

void DeclareDoctorOptions(OptionSet& set, DoctorOptions& options) {
    set.Flag("--probe", options.probe,
             "Also load the module, and open the pipes that are free: reads one demand record, writes nothing");
    set.Text("--pipe", "NAME", options.pipe, "Look for this frame pipe (default: \\\\.\\pipe\\Ravlo and those in use)");
    set.Flag("--json", options.json, "One object with all checks");
}

std::string WhatIsWrongWith(const DoctorOptions& options) {
    return ParsePipeName(options.pipe) ? std::string() : WhyNoPipeName(options.pipe);
}

}  // namespace ravlo
