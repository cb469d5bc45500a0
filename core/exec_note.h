// Which tools would be run: for programs that link core/exec_note.cpp instead of core/exec_run.cpp.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/types.h"

namespace tessel {

// How a tool answers.
struct ToolAnswer {
    std::string output;
    i32 status = 0;        // exit status, or -1: it could not be started
    bool hasDied = false;  // of a signal
};

// Answers a line ("ip -4 addr show dev eth0": the argument vector).
using ToolScript = std::function<ToolAnswer(const std::string& line)>;

// Makes `script` answer from now on; an empty one makes every tool succeed silently. Not while tools are running.
void AnswerTools(ToolScript script);

// The lines run since the last call, in order. The line of a detached program ends in " &". Any thread may run tools.
[[nodiscard]] std::vector<std::string> TakeToolLines();

}  // namespace tessel
