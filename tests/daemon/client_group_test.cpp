// The daemon that a group's members may use, beside the one that everybody may.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "core/ipc.h"
#include "core/unique_fd.h"
#include "tessel/log.h"
#include "tessel/mtu.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

constexpr gid_t kNetadmin = 4711;
constexpr uid_t kMember = 2001;    // the group is its second one
constexpr uid_t kFirst = 2002;     // the group is its first one
constexpr uid_t kOutsider = 2003;  // has nothing to do with it
const TNetMtuGetReq kMtuOfLo{.achDevName = "lo"};

// What a function returns in a process of that user and groups; -1 when it cannot be one.
int As(uid_t user, gid_t group, bool isMember, const std::function<int()>& run) {
    const pid_t child = fork();
    if (child == 0) {
        const bool isReady = setgroups(isMember ? 1 : 0, &kNetadmin) == 0 && setgid(group) == 0 && setuid(user) == 0;
        _exit(isReady ? run() : 255);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) : -1;
}

int ConnectError() {
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    (void)FormSocketAddress(TESSEL_SOCKET_API, address);
    return connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 ? 0 : errno;
}

class ClientGroup : public testing::Test {
  protected:
    void SetUp() override {
        if (As(kOutsider, kOutsider, false, [] { return 0; }) != 0) GTEST_SKIP() << "one user in this namespace";
        WriteFile("/etc/group", "root:x:0:\nnetadmin:x:4711:other,member\n");
        WriteFile("/etc/passwd",
                  "root:x:0:0::/:/bin/sh\nmember:x:2001:2001::/:/bin/sh\nfirst:x:2002:4711::/:/bin/sh\n"
                  "netadmi:x:2003:2003::/:/bin/sh\n");
    }
    static mode_t SocketMode(gid_t& group) {
        struct stat file {};
        EXPECT_EQ(stat("/tmp/api_daemon", &file), 0);
        group = file.st_gid;
        return file.st_mode & 07777U;
    }
};

TEST_F(ClientGroup, KeepsOthersFromTheSocket) {
    const struct {
        const char* description;
        const char* program;
        const char* groups;
        int errorOfMember;
        int errorOfOutsider;
        mode_t mode;
        gid_t group;
    } rows[] = {
        {"everybody, as ever", TESSEL_DAEMON_PATH, "root:x:0:\nnetadmin:x:4711:\n", 0, 0, 0777, 0},
        {"a group", TESSEL_GROUPED_DAEMON_PATH, "root:x:0:\nnetadmin:x:4711:\n", 0, EACCES, 0660, kNetadmin},
        {"a group that there is not", TESSEL_GROUPED_DAEMON_PATH, "root:x:0:\n", EACCES, EACCES, 0600, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.description);
        WriteFile("/etc/group", row.groups);
        const Daemon daemon(row.program);
        gid_t group = 1;
        EXPECT_EQ(SocketMode(group), row.mode);
        EXPECT_EQ(group, row.group);
        EXPECT_EQ(As(kMember, kMember, true, &ConnectError), row.errorOfMember);
        EXPECT_EQ(As(kFirst, kNetadmin, false, &ConnectError), row.errorOfMember);
        EXPECT_EQ(As(kOutsider, kOutsider, false, &ConnectError), row.errorOfOutsider);
    }
    EXPECT_TRUE(IsLogged("the group netadmin is not known!"));
}

// A listener, in a process of that user, for statistics: how many bytes came, 99 when nobody connected.
int Listen(gid_t fileGroup, const char* path, time_t seconds) {
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval limit{.tv_sec = seconds, .tv_usec = 0};
    setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    strcpy(address.sun_path, path);
    if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || listen(fd.Get(), 5) != 0)
        return 98;
    if (chown(path, getuid(), fileGroup) != 0) return 97;
    if (strcmp(path, "/tmp/ipc_stat") != 0 && symlink(path, "/tmp/ipc_stat") != 0) return 96;
    const UniqueFd connection(accept(fd.Get(), nullptr, nullptr));
    if (!connection.IsOpen()) return 99;
    char bytes[200];
    return static_cast<int>(read(connection.Get(), bytes, sizeof(bytes)));
}

TEST_F(ClientGroup, IsWhomNotificationsAreSentTo) {
    constexpr int kNobody = 99;
    const struct {
        const char* description;
        uid_t user;
        gid_t group;
        gid_t fileGroup;
        bool isInside;     // the grouped daemon connects
        const char* path;  // where a link leads to, if it is not the listener's own
    } rows[] = {
        {"root", 0, 0, 0, true, "/tmp/ipc_stat"},
        {"one that the group lists", kMember, kMember, kMember, true, "/tmp/ipc_stat"},
        {"one whose first group it is", kFirst, kFirst, kFirst, true, "/tmp/ipc_stat"},
        {"one who gave the file to the group", kOutsider, kOutsider, kNetadmin, true, "/tmp/ipc_stat"},
        {"somebody else", kOutsider, kOutsider, kOutsider, false, "/tmp/ipc_stat"},
        {"root, behind a link", 0, 0, 0, false, "/tmp/elsewhere"},
    };
    for (const char* program : {TESSEL_DAEMON_PATH, TESSEL_GROUPED_DAEMON_PATH}) {
        const Daemon daemon(program);
        ASSERT_EQ(RequestStatus(0x703, Number(1)), 0);
        for (const auto& row : rows) {
            const bool isEverybodys = strcmp(program, TESSEL_DAEMON_PATH) == 0;
            const bool isLink = strcmp(row.path, "/tmp/ipc_stat") != 0;
            const bool isServed = row.isInside || (isEverybodys && !isLink);
            const int bytes = As(row.user, row.group, row.fileGroup == kNetadmin,
                                 [&] { return Listen(row.fileGroup, row.path, isServed ? 10 : 2); });
            EXPECT_EQ(bytes != kNobody, isServed) << row.description << ' ' << program << ' ' << bytes;
            std::filesystem::remove("/tmp/ipc_stat");
            std::filesystem::remove("/tmp/elsewhere");
        }
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
    EXPECT_EQ(As(kOutsider, kOutsider, false, [&] { return open("/etc/precious"); }), 1);
    EXPECT_EQ(As(kOutsider, kOutsider, false, [&] { return open("/etc/new"); }), 1);
    EXPECT_EQ(As(kOutsider, kOutsider, false, [&] { return open("/tmp/own.log"); }), 0);
    EXPECT_EQ(As(kOutsider, kOutsider, false, [&] { return open(""); }), 0);
    EXPECT_EQ(open("/etc/roots.log"), 0);
    EXPECT_EQ(ReadFile("/etc/precious"), "kept");
    EXPECT_FALSE(std::filesystem::exists("/etc/new"));
    struct stat file {};
    EXPECT_TRUE(stat("/tmp/own.log", &file) == 0 && file.st_uid == kOutsider);
    EXPECT_TRUE(stat("/tmp/tessel_daemon.log", &file) == 0 && file.st_uid == 0);
}

}  // namespace
}  // namespace tessel::test
