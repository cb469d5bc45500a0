// What applications link: the transport, calls to the daemon and the listener for its reports.
#include <poll.h>
#include <sys/fsuid.h>

#include <atomic>

#include "client/event_names.h"
#include "tests/support/fake_daemon.h"
#include "tests/support/link_requests.h"
#include "tests/support/listener.h"
#include "tests/support/socket_pair.h"

namespace tessel::test {
namespace {

// A socket under a name.
struct Socket {
    UniqueFd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    socklen_t length = 0;

    i32 Make(decltype(&MakeAddrServer) how, const std::string& name) {
        return how(fd.Get(), name.c_str(), &address, &length);
    }
};

TEST(Address, PathsUpTo101CharactersAreTaken) {
    const std::string longest(101 - strlen(TESSEL_SOCKET_DIRECTORY), 'n');
    Socket server;
    EXPECT_EQ(server.Make(&MakeAddrServer, longest + "n"), -1);
    EXPECT_EQ(server.Make(&MakeAddrServer, longest), 0);
    EXPECT_EQ(server.length, 103U);
    EXPECT_TRUE(std::filesystem::is_socket(server.address.sun_path));
    EXPECT_EQ(Socket().Make(&MakeAddrClient, longest), 0);
    EXPECT_EQ(Socket().Make(&MakeAddrClient, longest + "n"), -1);
}

TEST(Address, ClientWaitsForTheFileAndForTheListener) {
    const auto waited = TimeOf([] { EXPECT_EQ(Socket().Make(&MakeAddrClient, "nobody"), -1); });
    EXPECT_TRUE(waited >= 7s && waited < 15s) << "5 for the file, 2 between 3 attempts";
}

TEST(Exchange, RefusesWhatIsHalfGivenOrTooLong) {
    char data[4000] = {};
    i32 reply = 0;
    const auto start = steady_clock::now();
    const auto expectRefused = [](auto... results) { EXPECT_THAT((std::vector<i32>{results...}), testing::Each(-1)); };
    expectRefused(IpcApiSendAndRecv(1, data, 0, nullptr, 0), IpcApiSendAndRecv(1, nullptr, 4, nullptr, 0),
                  IpcApiSendAndRecv(1, nullptr, 0, &reply, 0), IpcApiSendAndRecv(1, nullptr, 0, nullptr, 4),
                  IpcApiSendAndRecv(1, data, -5, nullptr, 0),
                  IpcCallbackSendAndRecv("nobody", 1, data, 3073, nullptr, 0), IpcApiSendMsg(0, 1, data, 0, 0),
                  IpcApiSendMsg(0, 1, nullptr, 4, 0));
    EXPECT_LT(steady_clock::now() - start, 3s) << "nobody was looked for";
}

TEST(Reply, OfAnySizeReachesASlowReader) {
    SocketPair connection;
    const int daemonEnd = connection.near.Get();
    const std::string payload(3000000, 'b');
    const IpcMsgHead head{.type = 0x115, .size = 3000000, .flag = 9};
    std::string received(payload.size() + 100, '#');
    std::thread reader([&] {
        received.resize(
            static_cast<std::size_t>(recv(connection.far.Get(), received.data(), received.size(), MSG_WAITALL)));
    });
    EXPECT_EQ(IpcApiSendMsg(daemonEnd, 0x115, payload.data(), static_cast<i32>(payload.size()), 9), 0);
    shutdown(daemonEnd, SHUT_WR);
    reader.join();
    EXPECT_TRUE(received == std::string(Bytes(head)) + payload);

    connection.far.Reset();
    EXPECT_EQ(IpcApiSendMsg(daemonEnd, 0x115, "x", 1, 0), -1) << "nobody is there: no signal, a failure";
}

constexpr char kSilence[] = "-";

TEST(Call, EveryWayToMissAReplyIsAnErrorOfItsOwn) {
    const std::string good = FakeDaemon::Message(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400});
    const std::tuple<const char*, std::string, i32, int> rows[] = {
        {"whole, whatever its type and flag", std::string(good).replace(0, 1, "\7").replace(8, 1, "\7"), 0, TESSEL_OK},
        {"a status of -1", FakeDaemon::Message(TNetMtuGetReply{.nResult = -1, .dwMtu = 0}), 0, TESSEL_E_FAILED},
        {"closed without a word", "", 0, TESSEL_E_NO_REPLY},
        {"the header alone", good.substr(0, 12), 12, TESSEL_E_PROTOCOL},
        {"one byte short", good.substr(0, good.size() - 1), 19, TESSEL_E_PROTOCOL},
        {"a header that gives another size", std::string(good).replace(4, 1, "\7"), 20, TESSEL_E_PROTOCOL},
        {"silence", kSilence, TESSEL_IPC_READ_TIMEOUT, TESSEL_E_TIMEOUT},
    };
    for (const auto& [description, wire, ipcResult, expected] : rows) {
        SCOPED_TRACE(description);
        std::atomic<bool> isOver{wire != kSilence};
        FakeDaemon daemon(
            [&, &wire = wire](const auto&) { return Eventually([&] { return isOver.load(); }) ? wire : ""; });
        tessel_set_timeout_ms(isOver ? 60000 : 100);
        const auto start = steady_clock::now();
        u32 mtu = 77;
        EXPECT_EQ(tessel_mtu_get("eth0", &mtu), expected);
        EXPECT_EQ(mtu, expected == TESSEL_OK ? 1400U : 77U) << "outputs are written on success only";
        EXPECT_EQ(tessel_daemon_pid(), getpid());
        EXPECT_LT(steady_clock::now() - start, 5s);
        std::string reply(8, '.');
        EXPECT_EQ(IpcApiSendAndRecvWithin(1, nullptr, 0, reply.data(), 8, isOver ? 5000 : 100, nullptr), ipcResult);
        EXPECT_EQ(reply == "........", ipcResult != 0 || wire.empty());
        isOver = true;
    }
    EXPECT_EQ(tessel_set_timeout_ms(0), TESSEL_E_ARGUMENT);
}

TEST(Call, WhetherADaemonListensIsKnownAtOnceAndNotNoticed) {
    const auto start = steady_clock::now();
    u32 mtu = 0;
    EXPECT_EQ(tessel_mtu_get("eth0", &mtu), TESSEL_E_NOT_RUNNING) << "no file";
    WriteFile("/tmp/api_daemon", "");
    EXPECT_EQ(tessel_mtu_get("eth0", &mtu), TESSEL_E_NOT_RUNNING) << "a file that is no socket";
    EXPECT_EQ(tessel_daemon_pid(), 0);
    EXPECT_EQ(tessel_daemon_is_listening(), 0);
    EXPECT_LT(steady_clock::now() - start, 2s);
    FakeDaemon daemon([](const auto&) { return std::string(); });
    EXPECT_EQ(tessel_daemon_is_listening(), 1);
    EXPECT_EQ(tessel_log_level_set(1), TESSEL_E_NO_REPLY);
    EXPECT_EQ(daemon.Requests().size(), 1U);
}

TEST(Call, WhatMeansNothingIsNeverSent) {
    FakeDaemon daemon(&IdleAnswer);
    TNetIfaceIp list{};
    ipaddr_show_info info{};
    u32 mtu = 0;
    const auto expectRefused = [](auto... results) {
        EXPECT_THAT((std::vector<int>{results...}), testing::Each(TESSEL_E_ARGUMENT));
    };
    for (const char* name : {"", "sixteen-letters-", "two words", "tab\t", "new\nline"})
        EXPECT_EQ(tessel_mtu_get(name, &mtu), TESSEL_E_ARGUMENT) << name;
    TNetDhcpsConf served{}, longPrefix{}, manyServers{};
    served.dwPrefixLen = manyServers.dwPrefixLen = 24;
    longPrefix.dwPrefixLen = 33;
    manyServers.dwDnsNum = 65;
    const TNetPingStartReq ping{};
    const TNetGateway ofBoth{.wSinFamily = TESSEL_FAMILY_BOTH, .wReserved = 0, .abyAddr = {}};
    const TNetPppoeConf onNoInterface{};
    const char* const names[] = {"eth0", "eth1", "eth2", "two words", "eth4"};
    expectRefused(
        tessel_mtu_get(nullptr, &mtu), tessel_addr_get("", TESSEL_FAMILY_INET, &list), tessel_addr_show("", &info),
        tessel_mtu_set("", 1400), tessel_service_stop(""), tessel_router_start("", 1, 1),
        tessel_dhcpd_start("eth0", &longPrefix), tessel_dhcpd_start("", &served),
        tessel_dhcpd_start("eth0", &manyServers), tessel_ping_start(&ping),
        tessel_bond_start(0, names, 3, nullptr, nullptr), tessel_pppoe_start(TESSEL_FAMILY_BOTH, &onNoInterface),
        tessel_pppoe_stop(7), tessel_ntp_stop(TESSEL_FAMILY_BOTH), tessel_conflict_start(TESSEL_FAMILY_BOTH),
        tessel_conflict_stop(0x10002), tessel_traceroute_start(&ofBoth, 30, 1), tessel_log_file(0, nullptr, nullptr),
        tessel_log_file(7, nullptr, nullptr), tessel_log_file(3, nullptr, std::string(128, 'p').c_str()),
        tessel_raw(1, std::string(3073, 'x').data(), 3073, nullptr, 0));
    tessel_event event{};
    TNetPingResult result{};
    expectRefused(tessel_ping_start(nullptr), tessel_traceroute_start(nullptr, 30, 1), tessel_ntp_start(nullptr, 60),
                  tessel_ntp_check(nullptr), tessel_dhcpd_start("eth0", nullptr), tessel_dhcpd_status("eth0", nullptr),
                  tessel_event_ping(nullptr, &result), tessel_event_ntp(&event, nullptr),
                  tessel_event_traffic(&event, nullptr), tessel_listener_next(nullptr, nullptr, 0));
    event.kind = TESSEL_EVENT_PING_REPLY;
    event.size = sizeof(result);
    expectRefused(tessel_event_ping(&event, nullptr));
    for (const std::size_t count : {0U, 4U, 5U})
        EXPECT_EQ(tessel_bond_start(0, names, count, "eth0", nullptr), TESSEL_E_ARGUMENT) << count;
    for (const std::size_t bytes : {3032U, 3069U, 9999U})
        EXPECT_EQ(tessel_bond_start(0, names, 3, "eth0", std::string(bytes, '/').c_str()), TESSEL_E_ARGUMENT) << bytes;
    for (const int family : {0, 1, 3, 12, -2, 0x10002})
        EXPECT_EQ(tessel_addr_get("eth0", family, &list), TESSEL_E_ARGUMENT) << family;
    EXPECT_TRUE(daemon.Requests().empty());
}

// Those of more than a word: the tool's tests have the others, with the daemon at the other end.
TEST(Call, RequestsAreTheRecordsOfTheirCommands) {
    FakeDaemon daemon(&IdleAnswer);
    const TNetGateway target{.wSinFamily = TESSEL_FAMILY_INET6, .wReserved = 0, .abyAddr = {0xfd}};
    const std::string targetBytes = std::string("\n\0\0\0\xfd", 5).append(15, '\0');
    TNetPppoeConf link{};
    link.achUser[0] = 'u';
    link.achDevName[0] = 'e';
    link.dwMaxfail = 7;
    const char* const names[] = {"eth0", "eth1"};
    const std::tuple<int, u32, std::string> rows[] = {
        {tessel_mtu_set("fifteen-letters", 1400), 0x111, std::string("fifteen-letters\0\x78\x05\0\0", 20)},
        {tessel_log_file(TESSEL_LOG_OPEN_DAEMON, nullptr, "/tmp/d.log"), 0x701,
         std::string("\3\0\0\0", 4).append(128, '\0').append("/tmp/d.log").append(118, '\0')},
        {tessel_traceroute_start(&target, 30, -2), 0xD01, targetBytes + std::string("\x1e\0\0\0\xfe\xff\xff\xff", 8)},
        {tessel_ntp_start(&target, 60), 0x901, std::string("\n\0", 2) + targetBytes + std::string("<\0\0\0", 4)},
        {tessel_ntp_check(&target), 0x903, targetBytes},
        {tessel_pppoe_start(TESSEL_FAMILY_BOTH, &link), 0x601, Dial(11, "u", "", "", "e", {0, 0, 0, 0, 0, 0, 7})},
        {tessel_bond_start(5, names, 2, "eth1", nullptr), 0xF01, WithLength(BondParts({"eth0", "eth1"}, "eth1", 5))},
    };
    const auto seen = daemon.Requests();
    ASSERT_EQ(seen.size(), std::size(rows));
    for (std::size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(rows[i], std::tuple(TESSEL_OK, seen[i].type, seen[i].payload)) << i;
}

TEST(Call, CountsInRepliesStayWithinTheirLists) {
    TNetIpaddrGetReply numeric{};
    numeric.tIfaceIp.dwNum = 0xFFFFFFFF;
    TNetIpaddrShowReply text{};
    text.tInfo.num = 17;
    FakeDaemon daemon([&](const auto& request) {
        return request.type == TESSEL_CMD_IPADDR_GET ? FakeDaemon::Message(numeric) : FakeDaemon::Message(text);
    });
    TNetIfaceIp list{};
    ipaddr_show_info info{};
    EXPECT_EQ(tessel_addr_get("eth0", TESSEL_FAMILY_BOTH, &list), TESSEL_OK);
    EXPECT_EQ(tessel_addr_show("eth0", &info), TESSEL_OK);
    EXPECT_EQ(list.dwNum, 16U);
    EXPECT_EQ(info.num, 16U);
}

TEST(Call, TheLibraryLogStaysInThisProcess) {
    FakeDaemon daemon(&IdleAnswer);
    EXPECT_EQ(tessel_log_file(TESSEL_LOG_OPEN_LIB, "/tmp/lib.log", nullptr), TESSEL_OK);
    EXPECT_EQ(tessel_log_file(TESSEL_LOG_CLOSE_LIB, nullptr, nullptr), TESSEL_OK);
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_TRUE(std::filesystem::exists("/tmp/lib.log"));
    EXPECT_EQ(tessel_log_file(TESSEL_LOG_OPEN_LIB, "/nonexistent/lib.log", nullptr), TESSEL_E_SYSTEM);
    EXPECT_EQ(tessel_log_file(TESSEL_LOG_OPEN_BOTH, "/tmp/both.log", nullptr), TESSEL_OK);
    EXPECT_TRUE(std::filesystem::exists("/tmp/both.log"));
    EXPECT_EQ(daemon.Requests().size(), 1U);
    std::filesystem::create_hard_link("/tmp/both.log", "/tmp/second.log");
    errno = 0;
    EXPECT_EQ(tessel_log_file(TESSEL_LOG_OPEN_LIB, "/tmp/second.log", nullptr), TESSEL_E_SYSTEM);
    EXPECT_EQ(errno, EPERM);
}

void SendAndClose(const char* name, u32 type, i32 size, std::string_view payload) {
    const UniqueFd fd = ConnectTo(name);
    const IpcMsgHead head{.type = type, .size = size, .flag = 0};
    const std::string message = std::string(Bytes(head)).append(payload);
    EXPECT_EQ(write(fd.Get(), message.data(), message.size()), static_cast<ssize_t>(message.size()));
}

TEST(Listener, DeliversWhatTheDaemonSendsAndPassesOverWhatIsNoMessage) {
    const auto listener = OpenListener("ipc_ping_7");
    ConnectTo("ipc_ping_7");
    SendAndClose("ipc_ping_7", 0, 100, "only this");
    SendAndClose("ipc_ping_7", 0, TESSEL_PAYLOAD_MAX + 1, std::string(TESSEL_PAYLOAD_MAX + 1, 'x'));
    SendAndClose("ipc_ping_7", 0, -1, "");
    const UniqueFd silent = ConnectTo("ipc_ping_7");
    const std::string payload(TESSEL_PAYLOAD_MAX, 'p');
    EXPECT_EQ(IpcCallbackSendAndRecv("ipc_ping_7", 3, payload.data(), TESSEL_PAYLOAD_MAX, nullptr, 0), 0);
    EXPECT_EQ(IpcCallbackSendAndRecv("ipc_ping_7", 9, nullptr, 0, nullptr, 0), 0);
    pollfd readable{.fd = tessel_listener_fd(listener.get()), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&readable, 1, 1000), 1);

    const auto start = steady_clock::now();
    tessel_event event{};
    ASSERT_EQ(tessel_listener_next(listener.get(), &event, 5000), TESSEL_OK);
    EXPECT_EQ(event.name, "ping_unreachable"s);
    EXPECT_EQ(std::string(event.payload, event.payload + event.size), payload);
    EXPECT_EQ(tessel_listener_malformed(listener.get()), 5U);
    EXPECT_LT(steady_clock::now() - start, 3s);
    ASSERT_EQ(tessel_listener_next(listener.get(), &event, 1000), TESSEL_OK);
    EXPECT_EQ(std::tuple(event.kind, event.type, event.size), std::tuple(TESSEL_EVENT_UNKNOWN, 9U, 0U));
    EXPECT_EQ(tessel_listener_next(listener.get(), &event, 10), TESSEL_E_TIMEOUT);
}

TEST(Listener, ANameHasOneOwner) {
    auto first = OpenListener("ipc_ntp");
    OpenListener("ipc_ntp", 0, TESSEL_E_IN_USE);
    auto taker = OpenListener("ipc_ntp", TESSEL_LISTEN_TAKE);
    EXPECT_EQ(tessel_listener_has_name(first.get()), 0);
    EXPECT_EQ(tessel_listener_has_name(taker.get()), 1);
    // The former owner leaves alone what is no longer its own.
    first.reset();
    SendAndClose("ipc_ntp", 1, 0, "");
    tessel_event event{};
    EXPECT_EQ(tessel_listener_next(taker.get(), &event, 1000), TESSEL_OK);
    OpenListener("ipc_ntp", 0, TESSEL_E_IN_USE);
    taker.reset();
    EXPECT_FALSE(std::filesystem::exists("/tmp/ipc_ntp"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/ipc_ntp.lock"));
}

TEST(Listener, RespectsListenersWithoutALockAndReplacesDeadOnes) {
    Socket foreign;
    ASSERT_EQ(foreign.Make(&MakeAddrServer, "ipc_ntpv6"), 0);
    OpenListener("ipc_ntpv6", 0, TESSEL_E_IN_USE);
    ConnectTo("ipc_ntpv6");  // still reachable
    foreign.fd.Reset();
    EXPECT_TRUE(std::filesystem::exists("/tmp/ipc_ntpv6"));
    EXPECT_NE(OpenListener("ipc_ntpv6"), nullptr);
}

// The kernel may refuse a file of another user's with O_CREAT (fs.protected_regular), and one of mode 0 without.
TEST(Listener, LockFilesLeftByOthersAreNoObstacle) {
    constexpr char kLockFile[] = "/tmp/ipc_stat.lock";
    constexpr uid_t kOther = 1;
    WriteFile(kLockFile, "");
    if (chown(kLockFile, kOther, 0) != 0) GTEST_SKIP() << "there is only one user";
    EXPECT_NE(OpenListener("ipc_stat"), nullptr);
    WriteFile(kLockFile, "");
    ASSERT_EQ(chown(kLockFile, kOther, 0), 0);
    ASSERT_EQ(chmod(kLockFile, 0), 0);
    setfsuid(kOther);
    OpenListener("ipc_stat", 0, TESSEL_E_SYSTEM);
    EXPECT_NE(OpenListener("ipc_stat", TESSEL_LISTEN_TAKE), nullptr);
    setfsuid(0);
}

TEST(Listener, RefusesNamesThatAreNone) {
    const std::string tooLong(97, 'n');
    for (const char* name : {"", "api_daemon", "../etc/x", tooLong.c_str(), static_cast<const char*>(nullptr)})
        OpenListener(name, 0, TESSEL_E_ARGUMENT);
    OpenListener("ipc_x", 2, TESSEL_E_ARGUMENT);
}

// Those that are known have their lines in the tool's tests.
TEST(EventName, SocketFamilyAndTypeDecide) {
    EXPECT_STREQ(FindEventName("ipc_dhcpcv6_eth0_6_12", 0x506).name, "dhcp_failed");
    for (const auto& [socketName, type] : {std::pair{"ipc_pingpong", 0U}, {"ipc_traceroute_1", 107U}, {"ipc_stat", 1U}})
        EXPECT_STREQ(FindEventName(socketName, type).name, "unknown") << socketName;
}

}  // namespace
}  // namespace tessel::test
