// Whole files, and what the tools of the device print.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// Everything that is left to read; nothing: it failed, and errno says why.
[[nodiscard]] std::optional<std::string> ReadToEnd(int fd);

// "-" is standard input. Throws a Failure, for "ASKED: ...", when it cannot be read.
[[nodiscard]] std::string ReadWholeFile(std::string_view asked, const std::string& path);

// Either the whole file replaces what was there before, with its owner and mode, or nothing changes. Links are
// followed; devices and pipes are written to. Throws a Failure.
void ReplaceFile(std::string_view asked, const std::string& path, const std::string& text);

struct CapturedTool {
    bool isDone = false;  // ran, and exited with 0
    std::string text;     // standard output
    std::string problem;  // if not: one line, the tool's own if it printed one
};

// `words` are the program, looked up in the sbin directories and along PATH, and its arguments; `input` is what it
// reads. No shell is involved.
[[nodiscard]] CapturedTool CaptureTool(const std::vector<std::string>& words, std::string_view input = {});

}  // namespace tessel::ctl
