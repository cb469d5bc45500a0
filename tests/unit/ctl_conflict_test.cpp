// Conflict reports: who switches them on and off, and what is shown of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>

#include <csignal>
#include <memory>
#include <thread>

#include "client/ctl/listening.h"
#include "core/ipc.h"
#include "tests/support/listener.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using namespace tessel::test;
using nlohmann::ordered_json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::string kThisProgram = "ctl_test (pid " + std::to_string(getpid()) + ")";

bool IsThere(const char* name) {
    return access((std::string("/tmp/") + name).c_str(), F_OK) == 0;
}

// "on inet".
std::vector<std::string> Sent(FakeDaemon& daemon) {
    std::vector<std::string> sent;
    for (const SeenRequest& request : daemon.Requests()) {
        EXPECT_EQ(request.payload.size(), 2U);
        sent.push_back(std::string(request.type == TESSEL_CMD_CONFLICT_START ? "on" : "off") +
                       (request.payload[0] == 2 ? " inet" : " inet6"));
    }
    return sent;
}

void Tell(const char* socketName, u32 type, u16 family, i32 size = sizeof(TNetConflictReport)) {
    TNetConflictReport report{
        .achDevName = "eth0", .tAddr = {family, 0, {192, 168, 1, 20}}, .abyMac = {0x02, 0, 0, 0, 0, 0x0a}};
    EXPECT_EQ(IpcCallbackSendAndRecv(socketName, type, &report, size, nullptr, 0), 0);
}

// The tool in a thread of its own, its output in a pipe.
class Watching {
  public:
    // Goes on as soon as the daemon has so many requests.
    Watching(const std::string& line, FakeDaemon& daemon, std::size_t requests) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        read_ = fdopen(ends[0], "r");
        thread_ = std::thread([this, line, out = fdopen(ends[1], "w")] {
            status_ = tessel::ctl::RunTool(Words(line), out, err_);
            fclose(out);
        });
        EXPECT_TRUE(Eventually([&] { return daemon.Requests().size() == requests; }));
    }
    ~Watching() {
        if (read_ != nullptr) fclose(read_);
    }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;

    [[nodiscard]] std::string Line() {
        char line[512] = "";
        return fgets(line, sizeof(line), read_) == nullptr ? "" : line;
    }
    void Signal(int signal) {
        EXPECT_EQ(pthread_kill(thread_.native_handle(), signal), 0);
    }
    void StopReading() {
        fclose(std::exchange(read_, nullptr));
    }
    ToolRun End() {
        thread_.join();
        return {status_, "", Contents(err_)};
    }
    // Standard error.
    std::string EndedBy(int signal) {
        Signal(signal);
        const ToolRun run = End();
        EXPECT_EQ(run.status, 128 + signal);
        return run.err;
    }

  private:
    std::FILE* read_;
    std::FILE* err_ = tmpfile();
    int status_ = -1;
    std::thread thread_;
};

TEST(Conflict, EachFamilyHasItsSwitch) {
    FakeDaemon daemon(&DeviceAnswer);
    EXPECT_EQ(RunLine("conflict on").out, "inet   conflicts are reported\ninet6  conflicts are reported\n");
    EXPECT_THAT(RunLine("conflict on -6").err, HasSubstr("nobody listens under ipc_ipv6_conflict"));
    EXPECT_EQ(RunLine("conflict off -4").err, "");
    ExpectStatus(0, {"conflict off"});
    EXPECT_THAT(Sent(daemon), ElementsAre("on inet", "on inet6", "on inet6", "off inet", "off inet", "off inet6"));
}

TEST(Conflict, OffSparesWhoListens) {
    FakeDaemon daemon(&DeviceAnswer);
    const auto listener = OpenListener(TESSEL_SOCKET_IPV6_CONFLICT);
    ExpectAll({{"conflict off", 2, kThisProgram + " listens for inet6 conflicts"}});
    EXPECT_THAT(Sent(daemon), IsEmpty());
    ExpectAll({{"conflict off -4", 0, ""}, {"conflict off --force", 0, kThisProgram + " gets no more inet6 reports"}});
    EXPECT_THAT(Sent(daemon), ElementsAre("off inet", "off inet", "off inet6"));
    const auto on = ordered_json::parse(RunLine("conflict on -j").out);
    EXPECT_EQ(on[0]["listener"], nullptr);
    EXPECT_EQ(on[1]["listener"]["pid"], getpid());
}

TEST(ConflictWatch, ShowsReportsAndSwitchesThemOffAtLast) {
    Watching* current = nullptr;
    bool isListeningAtLast = false;
    FakeDaemon daemon([&](const SeenRequest& request) {
        if (request.type == TESSEL_CMD_CONFLICT_STOP) {
            isListeningAtLast = IsThere(TESSEL_SOCKET_IP_CONFLICT);
            current->Signal(SIGTERM);  // once more: must not end the process
        }
        return DeviceAnswer(request);
    });
    (void)signal(SIGHUP, SIG_IGN);  // as nohup does
    Watching watching("conflict watch -4", daemon, 1);
    current = &watching;
    Tell(TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_IP, 2);
    EXPECT_THAT(watching.Line(),
                MatchesRegex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  conflict  eth0  192\\.168\\.1\\.20 "
                             "is used by another host \\(reported again every 5 s while it lasts\\)\n"));
    Tell(TESSEL_SOCKET_IP_CONFLICT, 3, 2);
    Tell(TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_IP, 2, sizeof(TNetConflictReport) - 1);
    Tell(TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_MAC, 2);
    EXPECT_THAT(watching.Line(), HasSubstr("eth0  its hardware address 02:00:00:00:00:0a is used by another host\n"));
    watching.Signal(SIGHUP);
    EXPECT_EQ(watching.EndedBy(SIGTERM),
              "note: the other host's hardware address is only in the daemon's log (tesselctl log follow)\n"
              "note: connections without a report of a conflict: 2\n");
    (void)signal(SIGHUP, SIG_DFL);
    EXPECT_THAT(Sent(daemon), ElementsAre("on inet", "off inet"));
    EXPECT_TRUE(isListeningAtLast);
    EXPECT_FALSE(IsThere(TESSEL_SOCKET_IP_CONFLICT));
}

TEST(ConflictWatch, JsonIsOneObjectALine) {
    FakeDaemon daemon(&DeviceAnswer);
    Watching watching("conflict watch -j", daemon, 2);
    Tell(TESSEL_SOCKET_IPV6_CONFLICT, TESSEL_CONFLICT_MAC, 10);
    auto event = ordered_json::parse(watching.Line());
    EXPECT_THAT(event["time"].get<std::string>(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z"));
    event["time"] = "";
    EXPECT_EQ(event.dump(), R"({"time":"","event":"mac_conflict","source":"ipc_ipv6_conflict","interface":"eth0",)"
                            R"("family":"inet6","address":"c0a8:114::","interface_mac":"02:00:00:00:00:0a"})");
    EXPECT_EQ(watching.EndedBy(SIGHUP), "");
    EXPECT_THAT(Sent(daemon), ElementsAre("on inet", "on inet6", "off inet", "off inet6"));
}

TEST(ConflictWatch, EndsWithItsReader) {
    FakeDaemon daemon(&DeviceAnswer);
    Watching watching("conflict watch -4 -g interface,address", daemon, 1);
    Tell(TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_IP, 2);
    EXPECT_EQ(watching.Line(), "eth0\t192.168.1.20\n");
    watching.StopReading();
    EXPECT_EQ(watching.End().status, 128 + SIGPIPE);
    EXPECT_THAT(Sent(daemon), ElementsAre("on inet", "off inet"));
}

TEST(ConflictWatch, NeitherStealsNorSilences) {
    FakeDaemon daemon(&DeviceAnswer);
    const auto other = OpenListener(TESSEL_SOCKET_IPV6_CONFLICT);
    ExpectAll({{"conflict watch", 2, kThisProgram + " listens for inet6 conflicts (--take"}});
    EXPECT_THAT(Sent(daemon), IsEmpty());
    EXPECT_FALSE(IsThere(TESSEL_SOCKET_IP_CONFLICT));
    EXPECT_EQ(tessel_listener_has_name(other.get()), 1);

    Watching taking("conflict watch --take", daemon, 2);
    EXPECT_THAT(taking.EndedBy(SIGINT), HasSubstr("inet6 reports stay on: " + kThisProgram + " had them before"));
    EXPECT_THAT(Sent(daemon), ElementsAre("on inet", "on inet6", "off inet"));

    Watching losing("conflict watch", daemon, 5);
    const auto taker = OpenListener(TESSEL_SOCKET_IP_CONFLICT, TESSEL_LISTEN_TAKE);
    const ToolRun lost = losing.End();
    EXPECT_EQ(lost.status, 1);
    EXPECT_THAT(lost.err, HasSubstr("listens for inet conflicts now"));
    EXPECT_EQ(Sent(daemon).back(), "off inet6");
    EXPECT_EQ(daemon.Requests().size(), 6U) << "the reports of inet are the taker's";
}

TEST(ConflictWatch, LeavesNothingOnForNobody) {
    const pid_t other = fork();
    if (other == 0) {
        tessel_listener* listener = nullptr;
        (void)tessel_listener_open(TESSEL_SOCKET_IP_CONFLICT, 0, &listener);
        pause();
        _exit(0);
    }
    EXPECT_TRUE(Eventually([] { return tessel::ctl::FindListeningProcess(TESSEL_SOCKET_IP_CONFLICT).has_value(); }));
    FakeDaemon daemon(&DeviceAnswer);
    Watching watching("conflict watch -4 --take", daemon, 1);
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    (void)watching.EndedBy(SIGINT);
    EXPECT_THAT(Sent(daemon), ElementsAre("on inet", "off inet"));
}

TEST(ConflictWatch, OutlivesTheDaemon) {
    ExpectStatus(3, {"conflict watch"});
    EXPECT_FALSE(IsThere(TESSEL_SOCKET_IP_CONFLICT));
    auto daemon = std::make_unique<FakeDaemon>(&DeviceAnswer);
    Watching watching("conflict watch -6", *daemon, 1);
    daemon.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    daemon = std::make_unique<FakeDaemon>(&DeviceAnswer);
    EXPECT_TRUE(Eventually([&] { return daemon->Requests().size() == 1; }));
    EXPECT_THAT(Sent(*daemon), ElementsAre("on inet6"));
    daemon.reset();
    EXPECT_THAT(watching.EndedBy(SIGINT),
                HasSubstr("tesselctl: conflict watch: the daemon has ended; waiting for the next one\n"
                          "note: the daemon is new: reports are switched on again\n"));
}

TEST(ConflictWatch, ADryRunListensToNothing) {
    ExpectAll(
        {{"conflict watch -n -4", 0,
          "switches reports on\nrequest  0x11A conflict_stop   family inet, 2 bytes\nnote     the daemon switches "
          "reports off\nhere     listens under ipc_ip_conflict until interrupted\n"}});
    EXPECT_FALSE(IsThere(TESSEL_SOCKET_IP_CONFLICT));
}

}  // namespace
