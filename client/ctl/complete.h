// What the shell may offer for the last word.
#pragma once

#include <string>
#include <vector>

namespace tessel::ctl {

// `words` are those behind "tesselctl", the last one being typed, perhaps empty. Nothing: let the shell offer files.
[[nodiscard]] std::vector<std::string> Complete(const std::vector<std::string>& words);

}  // namespace tessel::ctl
