// Names for the functions of a stripped device, from the unstripped files that it was made of.
#pragma once

#include <string>
#include <vector>

#include "client/ctl/crash_report.h"

namespace tessel::ctl {

// Names the functions of frames that have none. The file of a module is DIRECTORY/PATH, as below a device's root, or
// DIRECTORY/NAME; of any processor, it must be the very build that crashed. Frames without such a file stay as they
// are. Returns the modules that had nameless frames and no file here, each once.
[[nodiscard]] std::vector<std::string> AddSymbols(const std::string& directory, std::vector<CrashFrame>& frames);

}  // namespace tessel::ctl
