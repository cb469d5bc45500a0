// Command handlers called directly, above tools that are only noted, and all that a request leaves behind: the reply,
// the lines that are run, and those in the log.
#pragma once

#include <map>
#include <variant>

#include "core/exec_note.h"
#include "core/log_control.h"
#include "core/startup/command_table.h"
#include "tests/support/daemon.h"
#include "tests/support/socket_pair.h"

namespace tessel::test {

// What this process logs while one lives.
class LoggedLines {
  public:
    explicit LoggedLines(i32 level) {
        LogFileCtl open{.eCmd = TESSEL_LOG_OPEN_DAEMON, .achLibPath = {}, .achDaemonPath = {}};
        memcpy(open.achDaemonPath, kPath, sizeof(kPath));
        EXPECT_EQ(LogDaemonFileManage(&open), 0);
        TesselDebugLevelSet(level);
    }
    ~LoggedLines() {
        TesselDebugLevelSet(2);
    }
    LoggedLines(const LoggedLines&) = delete;
    LoggedLines& operator=(const LoggedLines&) = delete;

    // The lines since the last call as "FUNCTION: text", without "[TESSEL_ERR]:PID[1]:TID[1]:[" and the source's line.
    std::vector<std::string> Take() {
        std::vector<std::string> lines = WholeLines(ReadFile(kPath));
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(taken_));
        taken_ += lines.size();
        for (std::string& line : lines) {
            const std::size_t thread = line.find("TID[");
            const std::size_t name = line.find("]:", thread) + 2;
            const std::size_t end = line.find('(', name);
            const std::size_t text = line.find("):", end);
            if (thread == std::string::npos || text == std::string::npos) continue;
            const std::size_t brackets = line[name] == '[' ? 1 : 0;  // but not around a name with errno's text
            line = line.substr(name + brackets, end - name - 2 * brackets) + ": " + line.substr(text + 2 + brackets);
        }
        return lines;
    }

  private:
    static constexpr char kPath[] = "/tmp/logged-lines";

    std::size_t taken_ = 0;
};

// A command, its payload, and what its handler logs behind all else when it fails, if it always does so.
struct Call {
    u32 type;
    std::string payload;
    std::string failure = {};
};

// Lines are joined by "; ". Those of the log are "FUNCTION: text", or "text" of the function before; "$" is a line that
// was run, the first and then the next, and "#FUNCTION" that it, or the first, failed, and who logs that.
struct Exchange {
    std::string description;
    Call call;
    std::variant<i32, std::string> expectedReply;  // the status word, or all bytes
    std::string expectedRuns;
    std::optional<std::string> expectedLog = {};  // its handler's failure aside; nothing: not looked at
};

// The tools, the handlers that run them, and what is logged above them.
class LoggedTools {
  public:
    explicit LoggedTools(i32 level = 5) : log_(level) {
        (void)TakeRuns();  // an earlier test's
        AnswerTools([this](const std::string& line) { return answers_[line]; });
    }
    ~LoggedTools() {
        AnswerTools({});
    }

    // How a tool called with exactly this line ("ip -4 addr show dev eth0") answers; unknown lines succeed silently.
    void Answer(const std::string& line, const std::string& output, int status = 0, bool hasDied = false) {
        answers_[line] = {output, status, hasDied};
    }

    // Tools called with exactly these lines print "No." and end with status 2.
    void Fail(std::initializer_list<std::string> lines) {
        for (const std::string& line : lines)
            Answer(line, "No.", 2);
    }

    // The lines run since the last call, in order.
    std::vector<std::string> TakeRuns() {
        return TakeToolLines();
    }

    // What the handler of `type` replies: the payload, or nothing when it does not reply.
    std::optional<std::string> Request(u32 type, std::string_view payload) {
        const SocketPair connection(SOCK_NONBLOCK);
        // As in the server: what was not sent reads as zero.
        std::string buffer = Padded(std::string(payload), TESSEL_PAYLOAD_MAX);
        for (const CommandRow& row : ServedCommands()) {
            if (row.type == type)
                (void)row.handler(connection.far.Get(), type, buffer.data(), static_cast<i32>(payload.size()));
        }
        std::string answer(sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX, '\0');
        const ssize_t count = read(connection.near.Get(), answer.data(), answer.size());
        answer.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return PayloadOf(type, answer);
    }

    // The reply's status word; 12345 without a reply.
    i32 Status(u32 type, std::string_view payload) {
        return StatusOf(Request(type, payload));
    }

    i32 Status(const Call& call) {
        return Status(call.type, call.payload);
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
            if (!row.expectedLog) continue;
            std::vector<std::string> expected = Split(WithRuns(*row.expectedLog, runs));
            const bool hasFailed = !reply.empty() && StatusOf(reply) != 0;
            if (hasFailed && !row.call.failure.empty()) expected.push_back(row.call.failure);
            EXPECT_EQ(log, Joined(expected)) << row.description;
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

    // As they are.
    std::vector<std::string> TakeLines() {
        return log_.Take();
    }

  private:
    // A line is logged behind its program, the shell's without "sh -c ", and a failure as the program and what it
    // printed.
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
                const std::string line = run != runs.end() ? *run++ : "";
                text.replace(at, 1, program == "sh" ? line.substr(6) : program + " " + line);
            }
        }
        return text;
    }

    LoggedLines log_;
    std::map<std::string, ToolAnswer> answers_;
};

// A request that begins with, or holds, the name of an interface: its first bytes, or all of them.
template <typename Request>
std::string Named(Request request, const char* name, std::size_t bytes = sizeof(Request)) {
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request).substr(0, bytes));
}

}  // namespace tessel::test
