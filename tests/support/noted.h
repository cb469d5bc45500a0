// Command handlers called directly, above tools that are only noted: a transcript without a process.
#pragma once

#include <sys/socket.h>

#include <array>
#include <map>

#include "core/exec_note.h"
#include "core/log_control.h"
#include "core/startup/command_table.h"
#include "tessel/ipc.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/lines.h"

namespace tessel::test {

// The tools, and the handlers that run them.
class NotedTools {
  public:
    NotedTools() {
        (void)TakeToolLines();  // an earlier test's
        AnswerTools([this](const std::string& line) {
            const auto found = answers_.find(line);
            return found != answers_.end() ? found->second : ToolAnswer{};
        });
    }
    ~NotedTools() {
        AnswerTools({});
    }
    NotedTools(const NotedTools&) = delete;
    NotedTools& operator=(const NotedTools&) = delete;

    // How a tool called with exactly this line ("ip -4 addr show dev eth0") answers; unknown lines succeed silently.
    void Answer(const std::string& line, const std::string& output, int status = 0) {
        answers_[line] = {output, status};
    }

    // The lines run since the last call, in order.
    std::vector<std::string> TakeRuns() {
        return TakeToolLines();
    }

    // What the handler of `type` replies: the payload, or nothing when it does not reply.
    std::optional<std::string> Request(u32 type, std::string_view payload) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        const UniqueFd client(ends[0]);
        const UniqueFd server(ends[1]);
        // As in the server: what was not sent reads as zero.
        std::array<char, TESSEL_PAYLOAD_MAX> buffer{};
        memcpy(buffer.data(), payload.data(), payload.size());
        for (const CommandRow& row : ServedCommands()) {
            if (row.type == type)
                (void)row.handler(server.Get(), type, buffer.data(), static_cast<i32>(payload.size()));
        }
        std::array<char, sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX> answer{};
        const ssize_t count = read(client.Get(), answer.data(), answer.size());
        return PayloadOf(type, std::string(answer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))));
    }

    // The reply's status word; 12345 without a reply.
    i32 Status(u32 type, std::string_view payload) {
        return StatusOf(Request(type, payload));
    }

    // One request, the tools that it makes a handler run, and its reply.
    void Check(const std::string& description, u32 type, std::string_view request, const std::vector<std::string>& runs,
               i32 status) {
        EXPECT_EQ(Status(type, request), status) << description;
        EXPECT_EQ(TakeRuns(), runs) << description;
    }

  private:
    std::map<std::string, ToolAnswer> answers_;
};

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

    // The lines since the last call as "FUNCTION: text"; "[TESSEL_ERR]:PID[1]:TID[1]:[" and the like are left out.
    std::vector<std::string> Take() {
        const std::vector<std::string> all = WholeLines(ReadFile(kPath));
        std::vector<std::string> lines;
        for (; taken_ < all.size(); ++taken_) {
            const std::string& line = all[taken_];
            const std::size_t name = line.find('[', line.find("TID[") + 4);
            const std::size_t end = line.find("](", name);
            const std::size_t text = line.find("): ", end);
            const bool isWhole = name != std::string::npos && end != std::string::npos && text != std::string::npos;
            lines.push_back(isWhole ? line.substr(name + 1, end - name - 1) + ": " + line.substr(text + 3) : line);
        }
        return lines;
    }

  private:
    static constexpr char kPath[] = "/tmp/logged-lines";

    std::size_t taken_ = 0;
};

}  // namespace tessel::test
