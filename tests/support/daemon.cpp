#include "tests/support/daemon.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "core/file_rights.h"
#include "core/ipc.h"
#include "tessel/command.h"
#include "tessel/mtu.h"

namespace tessel::test {

namespace {

constexpr char kStandIn[] = R"sh(#!/bin/sh
here=$(dirname "$0")
line=$(basename "$0")
for word; do line="$line $word"; done
echo "$line" >> "$here/runs"
answer="$here/$(echo "$line" | tr / _)"
[ ! -f "$answer.out" ] || cat "$answer.out"
[ ! -f "$answer.status" ] || exit "$(cat "$answer.status")"
)sh";

}  // namespace

UniqueFd ConnectTo(const char* name) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    if (!FormSocketAddress(name, address)) return UniqueFd();
    if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return UniqueFd();
    return fd;
}

pid_t ServingPid() {
    return PeerOf(ConnectToDaemon().Get()).pid;
}

std::optional<std::string> SendRaw(u32 type, i32 size, std::string_view payload) {
    const UniqueFd fd = ConnectToDaemon();
    if (!fd.IsOpen()) return std::nullopt;
    const IpcMsgHead head{.type = type, .size = size, .flag = 0};
    std::string message(Bytes(head));
    message += payload;
    send(fd.Get(), message.data(), message.size(), MSG_NOSIGNAL);
    std::string answer;
    char piece[4096];
    for (ssize_t count = 0; (count = read(fd.Get(), piece, sizeof(piece))) > 0;)
        answer.append(piece, static_cast<std::size_t>(count));
    return answer;
}

std::optional<std::string> PayloadOf(u32 type, const std::optional<std::string>& answer) {
    if (!answer || answer->size() < sizeof(IpcMsgHead)) return std::nullopt;
    IpcMsgHead head;
    memcpy(&head, answer->data(), sizeof(head));
    EXPECT_EQ(head.type, type);
    EXPECT_EQ(head.flag, 0U);
    EXPECT_EQ(static_cast<std::size_t>(head.size), answer->size() - sizeof(head));
    return answer->substr(sizeof(head));
}

std::optional<std::string> Request(u32 type, std::string_view payload) {
    return PayloadOf(type, SendRaw(type, static_cast<i32>(payload.size()), payload));
}

bool Serves() {
    return Request(TESSEL_CMD_MTU_GET, Bytes(TNetMtuGetReq{.achDevName = "lo"})).has_value();
}

i32 StatusOf(const std::optional<std::string>& reply) {
    i32 status = 12345;
    if (reply && reply->size() >= sizeof(status)) memcpy(&status, reply->data(), sizeof(status));
    return status;
}

StandInTools::StandInTools(const std::vector<std::string>& names) : directory_(MakeProgramFolder()) {
    for (const std::string& name : names)
        WriteProgram(directory_ + "/" + name, kStandIn);
}

void StandInTools::Answer(const std::string& line, const std::string& output, int status) {
    std::string path = line;
    std::replace(path.begin(), path.end(), '/', '_');
    path = directory_ + "/" + path;
    WriteFile(path + ".out", output);
    WriteFile(path + ".status", std::to_string(status));
}

std::vector<std::string> StandInTools::TakeRuns() {
    const std::string runs = ReadFile(directory_ + "/runs");
    std::filesystem::remove(directory_ + "/runs");
    return WholeLines(runs);
}

Daemon::Daemon(const char* program) {
    // The daemon leaves its parents; as a subreaper this process inherits it and learns how it ended.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t starter = fork();
    if (starter == 0) {
        execl(program, program, nullptr);
        _exit(127);
    }
    if (TESSEL_DAEMON_DETACHES) {
        int status = 0;
        waitpid(starter, &status, 0);
        EXPECT_EQ(status, 0) << "the started process ends with 0 once it has forked";
    }
    const bool isUp = Eventually([&] { return (pid_ = ServingPid()) != 0; });
    // Only a served request tells that the probe above is out of the way.
    if (!isUp || !Serves()) throw std::runtime_error("the daemon does not serve");
}

Daemon::~Daemon() {
    kill(pid_, SIGTERM);
    int status = 0;
    // It is this process's child once the one that forked it has ended, which may come after its first answer.
    EXPECT_TRUE(Eventually([&] { return waitpid(pid_, &status, 0) == pid_; }));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "the daemon had ended by itself: " << status;
}

}  // namespace tessel::test
