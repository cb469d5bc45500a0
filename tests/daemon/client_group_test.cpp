// The daemon that a group's members may use, beside the one that everybody may.
#include <grp.h>

#include "tessel/log.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

constexpr gid_t kNetadmin = 4711;
constexpr uid_t kMember = 2001;    // the group is its second one
constexpr uid_t kFirst = 2002;     // the group is its first one
constexpr uid_t kOutsider = 2003;  // has nothing to do with it

// Calls a function in a process of that user and group and returns its result; -1 when the process cannot become
// theirs. kMember's is in the clients' group, too.
int As(uid_t user, gid_t group, const std::function<int()>& run) {
    const pid_t child = fork();
    if (child == 0) {
        const std::size_t others = user == kMember ? 1 : 0;
        const bool isReady = setgroups(others, &kNetadmin) == 0 && setgid(group) == 0 && setuid(user) == 0;
        _exit(isReady ? run() : 255);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) : -1;
}

class ClientGroup : public testing::Test {
  protected:
    void SetUp() override {
        if (As(kOutsider, kOutsider, [] { return 0; }) != 0) GTEST_SKIP() << "one user in this namespace";
        WriteFile("/etc/group", "root:x:0:\nnetadmin:x:4711:other,member\n");
        WriteFile("/etc/passwd", "root:x:0:0::/:/bin/sh\nmember:x:2001:2001:" + std::string(5000, 'm') +
                                     ":/:/bin/sh\nfirst:x:2002:4711::/:/bin/sh\nnetadmi:x:2003:2003::/:/bin/sh\n");
    }
};

TEST_F(ClientGroup, KeepsOthersFromTheSocket) {
    const auto connectError = [] { return ConnectToDaemon().IsOpen() ? 0 : errno; };
    const std::string groups = "root:x:0:\nnetadmin:x:4711:\n";
    const std::tuple<const char*, const char*, std::string, int, int, const char*> rows[] = {
        // the program, the groups; a member's error, somebody else's, and who may use the socket
        {"everybody, as ever", TESSEL_DAEMON_PATH, groups, 0, 0, "777 0\n"},
        {"a group", TESSEL_GROUPED_DAEMON_PATH, groups, 0, EACCES, "660 4711\n"},
        {"a large group", TESSEL_GROUPED_DAEMON_PATH, "netadmin:x:4711:" + std::string(20'000, 'm') + "\n", 0, EACCES,
         "660 4711\n"},
        {"a group that there is not", TESSEL_GROUPED_DAEMON_PATH, "root:x:0:\n", EACCES, EACCES, "600 0\n"},
    };
    for (const auto& [description, program, lines, errorOfMember, errorOfOutsider, rights] : rows) {
        SCOPED_TRACE(description);
        WriteFile("/etc/group", lines);
        const Daemon daemon(program);
        EXPECT_EQ(OutputOf("stat -c '%a %g' /tmp/api_daemon"), rights);
        EXPECT_EQ(As(kMember, kMember, connectError), errorOfMember);
        EXPECT_EQ(As(kFirst, kNetadmin, connectError), errorOfMember);
        EXPECT_EQ(As(kOutsider, kOutsider, connectError), errorOfOutsider);
    }
    EXPECT_TRUE(IsLogged("the group netadmin is not known!"));
}

// Listens for statistics under a name, which theirs may be a link to: 0 when one comes, 99 when not.
int Listen(const std::string& name, int seconds) {
    const auto listener = OpenListener(name.c_str());
    tessel_event event;
    if (listener == nullptr || (name != "ipc_stat" && symlink(("/tmp/" + name).c_str(), "/tmp/ipc_stat") != 0))
        return 98;
    return tessel_listener_next(listener.get(), &event, seconds * 1000) == TESSEL_OK ? 0 : 99;
}

TEST_F(ClientGroup, IsWhomNotificationsAreSentTo) {
    const std::tuple<const char*, uid_t, gid_t, bool, const char*> rows[] = {
        // user and group, also the file's; whether the grouped daemon connects; the name
        {"root", 0, 0, true, "ipc_stat"},
        {"one that the group lists", kMember, kMember, true, "ipc_stat"},
        {"one whose first group it is", kFirst, kFirst, true, "ipc_stat"},
        {"one whose file is the group's", kOutsider, kNetadmin, true, "ipc_stat"},
        {"somebody else", kOutsider, kOutsider, false, "ipc_stat"},
        {"root, behind a link", 0, 0, false, "elsewhere"},
    };
    for (const bool isGrouped : {false, true}) {
        const Daemon daemon(isGrouped ? TESSEL_GROUPED_DAEMON_PATH : TESSEL_DAEMON_PATH);
        ASSERT_EQ(RequestStatus(0x703, Number(1)), 0);
        for (const auto& [description, user, group, isInside, name] : rows) {
            const bool isServed = isInside || (!isGrouped && name == "ipc_stat"s);
            const auto listen = [name = name, seconds = isServed ? 10 : 2] { return Listen(name, seconds); };
            EXPECT_EQ(As(user, group, listen), isServed ? 0 : 99) << description << (isGrouped ? ", grouped" : "");
        }
        std::filesystem::remove("/tmp/ipc_stat");
        EXPECT_TRUE(IsLogged("/tmp/ipc_stat is a link or somebody else's"));
    }
}

// What root could write to, a client that is not root has no part in.
TEST_F(ClientGroup, LogFilesAreOpenedForTheClientThatAsks) {
    const Daemon daemon;
    const auto open = [](const char* path) {
        LogFileCtl control{.eCmd = TESSEL_LOG_OPEN_DAEMON, .achLibPath = {}, .achDaemonPath = {}};
        strcpy(control.achDaemonPath, path);
        return RequestStatus(0x701, Bytes(control)) == 0 ? 0 : 1;
    };
    WriteFile("/etc/precious", "kept");
    for (const auto& [path, error] : {std::pair{"/etc/precious", 1}, {"/tmp/own.log", 0}})
        EXPECT_EQ(As(kOutsider, kOutsider, [&, file = path] { return open(file); }), error) << path;
    EXPECT_EQ(ReadFile("/etc/precious"), "kept");
    EXPECT_EQ(OutputOf("stat -c %u /tmp/own.log"), "2003\n");
}

}  // namespace
}  // namespace tessel::test
