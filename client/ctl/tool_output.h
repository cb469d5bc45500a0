// Running a tool of the device that only reads, for what it prints.
#pragma once

#include <string>
#include <vector>

namespace tessel::ctl {

struct CapturedTool {
    bool isDone = false;  // ran, and exited with 0
    std::string text;     // standard output
    std::string problem;  // when not: one line
};

// `words` are the program, looked up along PATH and the sbin directories, and its arguments. No shell is involved.
[[nodiscard]] CapturedTool CaptureTool(const std::vector<std::string>& words);

}  // namespace tessel::ctl
