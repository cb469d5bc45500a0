#include "core/exec_note.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "core/exec_seam.h"

namespace tessel {

namespace {

struct Notes {
    std::mutex lock;  // held for both
    std::vector<std::string> lines;
    ToolScript script;
};

Notes& TheNotes() {
    static Notes notes;
    return notes;
}

std::string LineOf(const Tool& tool) {
    std::string line;
    for (char* const* word = tool.argv; *word != nullptr; ++word)
        line.append(line.empty() ? "" : " ").append(*word);
    return line;
}

}  // namespace

void AnswerTools(ToolScript script) {
    Notes& notes = TheNotes();
    const std::lock_guard lock(notes.lock);
    notes.script = std::move(script);
}

std::vector<std::string> TakeToolLines() {
    Notes& notes = TheNotes();
    const std::lock_guard lock(notes.lock);
    return std::exchange(notes.lines, {});
}

i32 RunTool(const Tool& tool, ToolOutput* output, pid_t* pid) {
    Notes& notes = TheNotes();
    const std::lock_guard lock(notes.lock);
    const std::string line = LineOf(tool);
    notes.lines.push_back(line);
    const ToolAnswer answer = notes.script ? notes.script(line) : ToolAnswer{};
    if (pid != nullptr) *pid = 0;
    if (output == nullptr) return answer.status;
    output->length = static_cast<u32>(std::min<std::size_t>(answer.output.size(), output->limit));
    output->isCut = answer.output.size() > output->limit;
    output->wasStarted = answer.status >= 0;
    output->hasDied = answer.hasDied;
    memcpy(output->text, answer.output.data(), output->length);
    output->text[output->length] = '\0';
    return answer.status;
}

i32 StartTool(const Tool& tool, const sigset_t& /*blocked*/, CallSite /*where*/) {
    Notes& notes = TheNotes();
    const std::lock_guard lock(notes.lock);
    notes.lines.push_back(LineOf(tool) + " &");
    return 0;
}

}  // namespace tessel
