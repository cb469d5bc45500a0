// Requests and all that they leave behind: the reply, the lines that are run, and those in the log.
#pragma once

#include <variant>

#include "tests/support/conversation.h"
#include "tests/support/noted.h"

namespace tessel::test {

// A command and its payload.
struct Call {
    u32 type;
    std::string payload;
};

// Lines are joined by "; ". Those of the log are "FUNCTION: text", or "text" of the function before; "$" is a line that
// was run, the first and then the next, and "#FUNCTION" that it, or the first, failed, and who logs that.
struct Exchange {
    const char* description;
    Call call;
    std::variant<i32, std::string> expectedReply;  // the status word, or all bytes
    std::string expectedRuns;
    const char* expectedLog = nullptr;  // null: not looked at
};

// Noted tools, and what is logged above them.
class LoggedTools : public NotedTools {
  public:
    explicit LoggedTools(i32 level = 5) : log_(level) {}

    // Tools called with exactly these lines print "No." and end with status 2.
    void Fail(std::initializer_list<const char*> lines) {
        for (const char* line : lines)
            Answer(line, "No.", 2);
    }

    void Check(std::initializer_list<Exchange> rows) {
        for (const Exchange& row : rows) {
            const std::string reply = Request(row.call.type, row.call.payload).value_or("");
            const auto* const status = std::get_if<i32>(&row.expectedReply);
            EXPECT_EQ(status != nullptr ? reply.substr(0, sizeof(*status)) : reply,
                      status != nullptr ? Bytes(*status) : std::get<std::string>(row.expectedReply))
                << row.description;
            const std::vector<std::string> runs = TakeRuns();
            EXPECT_EQ(Joined(runs), row.expectedRuns) << row.description;
            const std::string log = TakeLog();
            if (row.expectedLog == nullptr) continue;
            EXPECT_EQ(log, WithRuns(row.expectedLog, runs)) << row.description;
        }
    }

    // The lines since the last call. Those of the transport, which name lines of its source, and of looking for words
    // are left out, and so is a function's name that the line before has as well.
    std::string TakeLog() {
        std::vector<std::string> lines;
        std::string before;
        for (const std::string& line : log_.Take()) {
            const std::string name = line.substr(0, line.find(": ") + 1);
            if (name == "IpcApiSendMsg:" || name == "TesselFindStrMatchHead:") continue;
            lines.push_back(!name.empty() && name == before ? line.substr(name.size() + 1) : line);
            if (!name.empty()) before = name;
        }
        return Joined(lines);
    }

  private:
    // A line is logged behind its program, and a failure as the program and what it printed.
    static std::string WithRuns(std::string text, const std::vector<std::string>& runs) {
        auto run = runs.begin();
        const auto programOf = [&] { return run != runs.end() ? run->substr(0, run->find(' ')) : ""; };
        std::string program = programOf();
        for (std::size_t at = 0; (at = text.find_first_of("$#", at)) != std::string::npos;) {
            if (text[at] == '#') {
                const std::size_t end = text.find(';', at);
                const std::string name = text.substr(at + 1, end - at - 1);
                text.replace(at, end - at, "ExecCmd: " + program + "; No.; " + name + ": ExecCmd error!");
            } else {
                program = programOf();
                text.replace(at, 1, program + " " + (run != runs.end() ? *run++ : ""));
            }
        }
        return text;
    }

    LoggedLines log_;
};

// A request that begins with, or holds, the name of an interface: its first bytes, or all of them.
template <typename Request>
std::string Named(Request request, const char* name, std::size_t bytes = sizeof(Request)) {
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request).substr(0, bytes));
}

}  // namespace tessel::test
