#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <filesystem>

#include "client/event_names.h"
#include "core/ipc.h"
#include "core/unique_fd.h"
#include "tests/support/daemon.h"
#include "tests/support/listener.h"

namespace {

using tessel::UniqueFd;
using tessel::test::Bytes;
using tessel::test::OpenListener;

UniqueFd ConnectTo(const char* name) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    EXPECT_TRUE(tessel::FormSocketAddress(name, address));
    EXPECT_EQ(connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    return fd;
}

void SendAndClose(const char* name, u32 type, i32 size, std::string_view payload) {
    const UniqueFd fd = ConnectTo(name);
    const IpcMsgHead head{.type = type, .size = size, .flag = 0};
    const std::string message = std::string(Bytes(head)).append(payload);
    EXPECT_EQ(write(fd.Get(), message.data(), message.size()), static_cast<ssize_t>(message.size()));
}

TEST(Listener, DeliversWhatTheDaemonSends) {
    const auto listener = OpenListener("ipc_ping_7");
    const std::string payload(TESSEL_PAYLOAD_MAX, 'p');
    EXPECT_EQ(IpcCallbackSendAndRecv("ipc_ping_7", 3, payload.data(), TESSEL_PAYLOAD_MAX, nullptr, 0), 0);
    EXPECT_EQ(IpcCallbackSendAndRecv("ipc_ping_7", 9, nullptr, 0, nullptr, 0), 0);
    pollfd readable{.fd = tessel_listener_fd(listener.get()), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&readable, 1, 1000), 1);

    tessel_event event{};
    ASSERT_EQ(tessel_listener_next(listener.get(), &event, 1000), TESSEL_OK);
    EXPECT_EQ(event.kind, TESSEL_EVENT_PING_UNREACHABLE);
    EXPECT_STREQ(event.name, "ping_unreachable");
    EXPECT_EQ(std::string(event.payload, event.payload + event.size), payload);
    ASSERT_EQ(tessel_listener_next(listener.get(), &event, 1000), TESSEL_OK);
    EXPECT_EQ(event.kind, TESSEL_EVENT_UNKNOWN);
    EXPECT_EQ(event.type, 9U);
    EXPECT_EQ(event.size, 0U);
    EXPECT_EQ(tessel_listener_next(listener.get(), &event, 10), TESSEL_E_TIMEOUT);
}

TEST(Listener, PassesOverWhatIsNoMessage) {
    const auto listener = OpenListener("ipc_stat");
    ConnectTo("ipc_stat");
    SendAndClose("ipc_stat", 0, 100, "only this");
    SendAndClose("ipc_stat", 0, TESSEL_PAYLOAD_MAX + 1, "");
    SendAndClose("ipc_stat", 0, -1, "");
    const UniqueFd silent = ConnectTo("ipc_stat");
    SendAndClose("ipc_stat", 0, 2, "ok");

    const auto start = std::chrono::steady_clock::now();
    tessel_event event{};
    ASSERT_EQ(tessel_listener_next(listener.get(), &event, 5000), TESSEL_OK);
    EXPECT_EQ(event.kind, TESSEL_EVENT_TRAFFIC);
    EXPECT_EQ(tessel_listener_malformed(listener.get()), 5U);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
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

TEST(EventName, SocketFamilyAndTypeDecide) {
    constexpr std::tuple<const char*, u32, const char*> kCases[] = {
        {"ipc_pingpong", 0, "unknown"},
        {"ipc_ping_4711", 0, "ping_reply"},
        {"ipc_traceroute_1", 107, "unknown"},
        {"ipc_traceroute_1", 106, "trace_refused"},
        {"ipc_dhcpcv6_eth0_6_12", 0x506, "dhcp_failed"},
        {"ipc_dhcpc_eth0_12", 0, "dhcp_deconfigured"},
        {"ipc_ipv6_conflict", 2, "mac_conflict"},
        {"ipc_stat", 1, "unknown"},
    };
    for (const auto& [socketName, type, expected] : kCases)
        EXPECT_STREQ(tessel::FindEventName(socketName, type).name, expected) << socketName << type;
}

}  // namespace
