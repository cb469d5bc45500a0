#include <poll.h>
#include <sys/socket.h>

#include "client/event_names.h"
#include "core/ipc.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

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
    sockaddr_un address{};
    socklen_t length = 0;
    UniqueFd foreign(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(MakeAddrServer(foreign.Get(), "ipc_ntpv6", &address, &length), 0);
    OpenListener("ipc_ntpv6", 0, TESSEL_E_IN_USE);
    ConnectTo("ipc_ntpv6");  // still reachable
    foreign.Reset();
    EXPECT_TRUE(std::filesystem::exists("/tmp/ipc_ntpv6"));
    EXPECT_NE(OpenListener("ipc_ntpv6"), nullptr);
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
