// What senders of notifications write to libtessel's listener. The first byte chooses the socket's name.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "client/libtessel.h"
#include "core/ipc.h"
#include "fuzz/fuzz.h"

namespace tessel::fuzz {

namespace {

constexpr const char* kNames[] = {
    "ipc_dhcpc_eth0_7", "ipc_dhcpcv6_eth0_6_7",       "ipc_ntp",         "ipc_ntpv6",         "ipc_ping_7",
    "ipc_traceroute_7", "ipc_router_notify_eth0_7_8", "ipc_ip_conflict", "ipc_ipv6_conflict", "ipc_stat"};

tessel_listener* ListenerAt(std::size_t index) {
    static std::array<tessel_listener*, std::size(kNames)> listeners{};
    if (listeners[index] == nullptr) Require(tessel_listener_open(kNames[index], 0, &listeners[index]) == TESSEL_OK);
    return listeners[index];
}

void Send(const char* name, const std::vector<u8>& bytes) {
    const UniqueFd sender(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    Require(FormSocketAddress(name, address));
    Require(connect(sender.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0);
    Require(write(sender.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
}

template <typename Record>
void CheckReader(int (*read)(const tessel_event*, Record*), const tessel_event& event, int first, int last) {
    Record record{};
    const bool isOfThese = event.kind >= first && event.kind <= last;
    Require((read(&event, &record) == TESSEL_OK) == (isOfThese && event.size == sizeof(Record)));
}

}  // namespace

std::vector<std::string> Seeds() {
    const auto message = [](char name, u32 type, std::size_t size) {
        return name + BytesOf(IpcMsgHead{.type = type, .size = static_cast<i32>(size), .flag = 0}) +
               std::string(size, '\1');
    };
    return {message(0, TESSEL_DHCPC_LEASE, sizeof(TNetDhcpcLease)),
            message(2, 0, 4),
            message(3, 0, 4),
            message(4, 0, sizeof(TNetPingResult)),
            message(5, 103, sizeof(TNetTracerouteResult)),
            message(6, 0, sizeof(TNetRouterNotify)),
            message(7, 1, sizeof(TNetConflictReport)),
            message(9, 0, sizeof(TNetBandwidthReport)),
            message(4, 7, 3072),
            message(4, 7, 3073)};
}

void TryInput(Input input) {
    const std::size_t index = input.Take<u8>() % std::size(kNames);
    const std::vector<u8> bytes = input.TakeBytes(8192);
    tessel_listener* const listener = ListenerAt(index);
    const unsigned long malformed = tessel_listener_malformed(listener);
    Send(kNames[index], bytes);

    static tessel_event event;
    memset(&event, 0xa5, sizeof(event));
    int result = tessel_listener_next(listener, &event, 0);
    while (result == TESSEL_E_SYSTEM && errno == EINTR)  // by the fuzzer's clock
        result = tessel_listener_next(listener, &event, 0);
    IpcMsgHead head{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof(head)), reinterpret_cast<u8*>(&head));
    const bool isWhole = bytes.size() >= sizeof(head) && head.size >= 0 && head.size <= TESSEL_PAYLOAD_MAX &&
                         bytes.size() - sizeof(head) >= static_cast<std::size_t>(head.size);
    Require(result == (isWhole ? TESSEL_OK : TESSEL_E_TIMEOUT));
    Require(tessel_listener_malformed(listener) == malformed + (isWhole ? 0 : 1));
    if (!isWhole) return;
    Require(event.type == head.type && event.size == static_cast<u32>(head.size) && event.name != nullptr);
    Require(memcmp(event.payload, bytes.data() + sizeof(head), event.size) == 0);
    CheckReader(&tessel_event_lease, event, TESSEL_EVENT_DHCP_LEASE, TESSEL_EVENT_DHCP_DECONFIGURED);
    CheckReader(&tessel_event_ping, event, TESSEL_EVENT_PING_REPLY, TESSEL_EVENT_PING_UNREACHABLE);
    CheckReader(&tessel_event_trace, event, TESSEL_EVENT_TRACE_ERROR, TESSEL_EVENT_TRACE_REFUSED);
    CheckReader(&tessel_event_router, event, TESSEL_EVENT_RA_CHANGED, TESSEL_EVENT_RA_CHANGED);
    CheckReader(&tessel_event_ntp, event, TESSEL_EVENT_NTP_SYNCED, TESSEL_EVENT_NTP_SYNCED);
    tessel_traffic traffic[TESSEL_TRAFFIC_INTERFACES];
    (void)tessel_event_traffic(&event, traffic);
}

}  // namespace tessel::fuzz
