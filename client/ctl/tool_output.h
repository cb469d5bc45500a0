// Running a tool of the device for what it prints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

struct CapturedTool {
    bool isDone = false;  // ran, and exited with 0
    std::string text;     // standard output
    std::string problem;  // when not: one line, the tool's own where it said one
};

// `words` are the program, looked up in the sbin directories and along PATH, and its arguments; `input` is what it
// reads. No shell is involved.
[[nodiscard]] CapturedTool CaptureTool(const std::vector<std::string>& words, std::string_view input = {});

}  // namespace tessel::ctl
