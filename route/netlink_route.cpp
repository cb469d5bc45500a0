// The thread that follows addresses and default routes.
#include <arpa/inet.h>
#include <net/if.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/log.h"
#include "probe/conflict.h"
#include "probe/netdev_table.h"
#include "route/gateway.h"
#include "route/netlink_monitor.h"
#include "route/netlink_socket.h"
#include "route/priority_table.h"

using tessel::CallSite;
using tessel::UniqueFd;

namespace {

constexpr u32 kGroups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_IFADDR;
constexpr int kQuietMs = 60000;
constexpr std::size_t kReadBytes = 2048;
constexpr u32 kAttributeMax = RTA_TABLE + 1;
constexpr unsigned kSettleSeconds = 2;

void AddressesChanged(CallSite where) {
    tessel::NoteAddressChange();
    TESSEL_DBG_AT(where, "TesselRouteMonitorThread detect ip change");
    tessel::RebuildNetdevTable();
}

void TakeMessage(const nlmsghdr* message, CallSite where) {
    switch (message->nlmsg_type) {
        case NLMSG_ERROR:
        case NLMSG_DONE:
        case RTM_NEWLINK:
        case RTM_DELLINK:
        case RTM_DELROUTE:
            break;
        case RTM_NEWADDR:
        case RTM_DELADDR:
            AddressesChanged(where);
            break;
        case RTM_NEWROUTE:
            if (g_nRoutedetectE != 0) ProcessRtMsg(message);
            break;
        default:
            TESSEL_DBG_AT(where, "nh->nlmsg_type = %d", message->nlmsg_type);
    }
}

// Takes what one read brings. False when the socket is of no use any more.
bool ReadMessages(int fd, CallSite where) {
    alignas(nlmsghdr) u8 buffer[kReadBytes];
    const ssize_t size = read(fd, buffer, sizeof(buffer));
    if (size < 0) {
        if (errno != ENOBUFS) return errno == EINTR;
        // More came than the socket holds, and the rest is lost: what it may have told is looked up.
        TESSEL_ERR_AT(where, "netlink messages were lost, look at the addresses");
        AddressesChanged(where);
        return true;
    }
    std::span<const u8> bytes(buffer, static_cast<std::size_t>(size));
    while (const nlmsghdr* message = tessel::NextMessage(bytes))
        TakeMessage(message, where);
    return true;
}

// Always returns -1, when waiting or reading fails.
i32 NetlinkProcess(int fd) {
    pollfd waited{.fd = fd, .events = POLLIN, .revents = 0};
    while (true) {
        const int ready = poll(&waited, 1, kQuietMs);
        if (ready < 0) {
            TESSEL_ERR("epoll error: (%d) %s", errno, strerror(errno));
            if (errno != EINTR) return -1;
        } else if (ready == 0) {
            TESSEL_DBG("Waiting for route change message timeout, no change");
        } else if (!ReadMessages(fd, CallSite::Current())) {
            return -1;
        }
    }
}

// The number that an attribute carries; false without one.
bool ReadNumber(const rtattr* attribute, u32& number) {
    if (attribute == nullptr || RTA_PAYLOAD(attribute) < sizeof(number)) return false;
    memcpy(&number, RTA_DATA(attribute), sizeof(number));
    return true;
}

struct AddressText {
    AddressText(const rtattr* attribute, u8 family) {
        const std::size_t size = family == AF_INET6 ? sizeof(in6_addr) : sizeof(in_addr);
        if (attribute == nullptr || RTA_PAYLOAD(attribute) < size) return;
        (void)inet_ntop(family, RTA_DATA(attribute), text, sizeof(text));
    }
    char text[INET6_ADDRSTRLEN] = "";
};

// Gives the route to `gateway` the interface's metric: a second route with it comes first, then the one without goes.
void InstallWithMetric(const char* interfaceName, const char* gatewayText, CallSite where) {
    TESSEL_PRT_AT(where, "metric is null, re add this gateway");
    TNetGateway gateway{};
    gateway.wSinFamily = TESSEL_FAMILY_INET;
    (void)inet_pton(AF_INET, gatewayText, gateway.abyAddr);
    sleep(kSettleSeconds);  // whoever added the route is to finish first
    if (PriorityMetricGet(interfaceName) <= 0) {
        TESSEL_PRT_AT(where, "don't need change priority");
        return;
    }
    if (GatewaySetV4(interfaceName, &gateway) != 0) {
        TESSEL_ERR_AT(where, "GatewaySetV4 error");
    } else {
        TESSEL_PRT_AT(where, "gateway re add with metric ok");
    }
    // No metric is named: the kernel removes the interface's first default route, and metric 0 is first.
    if (GatewayDel(TESSEL_FAMILY_INET, interfaceName) != 0) {
        TESSEL_DBG_AT(where, "GatewayDel error!");
    } else {
        TESSEL_DBG_AT(where, "GatewayDel ok!");
    }
}

}  // namespace

void ParseRtAttr(const rtattr** table, u32 max, const rtattr* first, i32 length) {
    std::fill_n(table, max + 1, nullptr);
    for (const rtattr* attribute = first; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type <= max) table[attribute->rta_type] = attribute;
    }
}

void ProcessRtMsg(const nlmsghdr* message) {
    if (message->nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) return;
    const auto* const route = static_cast<const rtmsg*>(NLMSG_DATA(message));
    const rtattr* attributes[kAttributeMax + 1];
    ParseRtAttr(attributes, kAttributeMax, RTM_RTA(route), static_cast<i32>(RTM_PAYLOAD(message)));
    TESSEL_DBG("%s: ", message->nlmsg_type == RTM_NEWROUTE ? "NEWROUT" : "DELROUT");
    if (attributes[RTA_DST] != nullptr) {
        TESSEL_DBG("RTA_DST %s", AddressText(attributes[RTA_DST], route->rtm_family).text);
        return;
    }
    if (attributes[RTA_SRC] != nullptr)
        TESSEL_DBG("RTA_SRC %s", AddressText(attributes[RTA_SRC], route->rtm_family).text);
    if (attributes[RTA_GATEWAY] == nullptr) return;
    const AddressText gateway(attributes[RTA_GATEWAY], route->rtm_family);
    u32 table = 0;
    if (!ReadNumber(attributes[RTA_TABLE], table)) {
        TESSEL_ERR("table id is null");
        return;
    }
    TESSEL_DBG("Debug nTable = %d gateway = %s", static_cast<i32>(table), gateway.text);
    if (table != RT_TABLE_MAIN) return;
    u32 index = 0;
    if (!ReadNumber(attributes[RTA_OIF], index)) {
        TESSEL_ERR("interface is null");
        return;
    }
    char name[IF_NAMESIZE] = "";
    if (if_indextoname(index, name) != nullptr) {
        TESSEL_DBG("find devices, id %d, %s", static_cast<i32>(index), name);
    } else {
        TESSEL_ERR("get interface name according index %d failed", static_cast<i32>(index));
    }
    if (attributes[RTA_PRIORITY] == nullptr) InstallWithMetric(name, gateway.text, CallSite::Current());
}

void RouteMonitorThread(void* /*unused*/) {
    while (true) {
        const u32 portId = static_cast<u32>(pthread_self() << 16) | static_cast<u32>(getpid());
        const UniqueFd fd = tessel::OpenNetlink(NETLINK_ROUTE, portId, kGroups);
        if (!fd.IsOpen()) return;
        // What changed before there was this socket was told to nobody.
        tessel::RebuildNetdevTable();
        (void)NetlinkProcess(fd.Get());  // a socket that fails is replaced at once
    }
}
