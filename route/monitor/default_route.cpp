#include "route/monitor/default_route.h"

#include <net/if.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <optional>
#include <vector>

#include "core/family.h"
#include "core/log.h"
#include "core/wait.h"
#include "route/gateway.h"
#include "route/monitor/netlink.h"
#include "route/priority_table.h"

using tessel::AddressText;
using tessel::CallSite;
using tessel::Deadline;

namespace {

constexpr u32 kAttributeMax = RTA_TABLE + 1;
constexpr std::chrono::seconds kSettle(2);

// An interface whose default route waits for its metric: once, however many messages came.
struct PendingRoute {
    char interfaceName[IF_NAMESIZE];
    CallSite where;
    Deadline due;
    bool isRepeated;  // more messages came while this one waited: once it is handled, they get a wait of their own
};
std::vector<PendingRoute> pendingRoutes;

// The attributes of a route.
struct Attributes {
    explicit Attributes(const nlmsghdr* message) {
        ParseRtAttr(table, kAttributeMax, RTM_RTA(NLMSG_DATA(message)), static_cast<i32>(RTM_PAYLOAD(message)));
    }

    // The number that an attribute carries; false if it is missing.
    [[nodiscard]] bool Read(u32 type, u32& number) const {
        if (table[type] == nullptr || RTA_PAYLOAD(table[type]) < sizeof(number)) return false;
        memcpy(&number, RTA_DATA(table[type]), sizeof(number));
        return true;
    }

    // The address that an attribute carries; no text if it is missing.
    [[nodiscard]] AddressText Address(u32 type, u16 familyCode) const {
        const tessel::AddressFamily* const family = tessel::FindFamily(familyCode);
        if (family == nullptr || table[type] == nullptr ||
            RTA_PAYLOAD(table[type]) < static_cast<std::size_t>(family->hostPrefixLength) / 8) {
            return {AF_UNSPEC, nullptr};
        }
        return {familyCode, RTA_DATA(table[type])};
    }

    const rtattr* table[kAttributeMax + 1];
};

TNetGateway GatewayOf(const Attributes& attributes) {
    TNetGateway gateway{};
    gateway.wSinFamily = TESSEL_FAMILY_INET;
    (void)inet_pton(AF_INET, attributes.Address(RTA_GATEWAY, AF_INET).text, gateway.abyAddr);
    return gateway;
}

bool IsWhole(const nlmsghdr* message) {
    return message->nlmsg_len >= NLMSG_LENGTH(sizeof(rtmsg));
}

// Which default routes an interface has in the main table.
struct DefaultRoutes {
    std::optional<TNetGateway> plain;  // of the first one with a gateway and without metric: what packets take
    bool hasMetric = false;            // whether there is one with a metric
};

// Nothing when the kernel could not be asked for all of them.
std::optional<DefaultRoutes> FindDefaultRoutes(const char* interfaceName, CallSite where) {
    DefaultRoutes found;
    const u32 wanted = if_nametoindex(interfaceName);
    tessel::RouteDump dump(where);
    while (const nlmsghdr* message = dump.Next()) {
        if (!IsWhole(message)) continue;
        const Attributes attributes(message);
        u32 table = 0;
        u32 index = 0;
        if (attributes.table[RTA_DST] != nullptr || !attributes.Read(RTA_TABLE, table) || table != RT_TABLE_MAIN ||
            !attributes.Read(RTA_OIF, index) || index != wanted) {
            continue;
        }
        if (attributes.table[RTA_PRIORITY] != nullptr) {
            found.hasMetric = true;
        } else if (attributes.table[RTA_GATEWAY] != nullptr && !found.plain) {
            found.plain = GatewayOf(attributes);
        }
    }
    if (!dump.IsComplete()) return std::nullopt;
    return found;
}

void KeepInMind(const char* interfaceName, CallSite where) {
    const auto known = std::find_if(pendingRoutes.begin(), pendingRoutes.end(), [&](const PendingRoute& route) {
        return strcmp(route.interfaceName, interfaceName) == 0;
    });
    if (known != pendingRoutes.end()) {
        known->isRepeated = true;
        return;
    }
    PendingRoute route{.interfaceName = {}, .where = where, .due = Deadline(kSettle), .isRepeated = false};
    memcpy(route.interfaceName, interfaceName, strlen(interfaceName) + 1);
    pendingRoutes.push_back(route);
}

// First a second route with the metric is added, then the one without is removed: there always is one. False: the
// kernel could not be asked now.
bool InstallWithMetric(const PendingRoute& route) {
    const CallSite where = route.where;
    const char* const name = route.interfaceName;
    if (PriorityMetricGet(name) <= 0) {
        TESSEL_PRT_AT(where, "don't need change priority");
        return true;
    }
    const std::lock_guard lock(tessel::g_defaultRouteLock);
    const std::optional<DefaultRoutes> before = FindDefaultRoutes(name, where);
    if (!before) return false;
    if (!before->plain) {
        TESSEL_DBG_AT(where, "the route without metric has gone");
        return true;
    }
    const bool isAdded = GatewaySetV4(name, &*before->plain) == 0;
    if (!isAdded) {
        TESSEL_ERR_AT(where, "GatewaySetV4 error");
    } else {
        TESSEL_PRT_AT(where, "gateway re add with metric ok");
    }
    // No metric can be named: the kernel removes the interface's first default route. That is the one without a metric
    // or, if that is already gone, the one that is to stay.
    const std::optional<DefaultRoutes> after = FindDefaultRoutes(name, where);
    if (!after) return false;
    if (!after->plain || !(isAdded || after->hasMetric)) return true;
    if (GatewayDel(TESSEL_FAMILY_INET, name) != 0) {
        TESSEL_DBG_AT(where, "GatewayDel error!");
    } else {
        TESSEL_DBG_AT(where, "GatewayDel ok!");
    }
    return true;
}

}  // namespace

void ProcessRtMsg(const nlmsghdr* message) {
    if (!IsWhole(message)) return;
    const u16 family = static_cast<const rtmsg*>(NLMSG_DATA(message))->rtm_family;
    const Attributes attributes(message);
    TESSEL_DBG("%s: ", message->nlmsg_type == RTM_NEWROUTE ? "NEWROUT" : "DELROUT");
    if (attributes.table[RTA_DST] != nullptr) {
        TESSEL_DBG("RTA_DST %s", attributes.Address(RTA_DST, family).text);
        return;
    }
    if (attributes.table[RTA_SRC] != nullptr) TESSEL_DBG("RTA_SRC %s", attributes.Address(RTA_SRC, family).text);
    if (attributes.table[RTA_GATEWAY] == nullptr) return;
    const AddressText gatewayText = attributes.Address(RTA_GATEWAY, family);
    u32 table = 0;
    if (!attributes.Read(RTA_TABLE, table)) {
        TESSEL_ERR("table id is null");
        return;
    }
    TESSEL_DBG("Debug nTable = %d gateway = %s", static_cast<i32>(table), gatewayText.text);
    if (table != RT_TABLE_MAIN) return;
    u32 index = 0;
    if (!attributes.Read(RTA_OIF, index)) {
        TESSEL_ERR("interface is null");
        return;
    }
    char name[IF_NAMESIZE] = "";
    if (if_indextoname(index, name) != nullptr) {
        TESSEL_DBG("find devices, id %d, %s", static_cast<i32>(index), name);
    } else {
        TESSEL_ERR("get interface name according index %d failed", static_cast<i32>(index));
    }
    if (attributes.table[RTA_PRIORITY] != nullptr) return;
    TESSEL_PRT("metric is null, re add this gateway");
    KeepInMind(name, CallSite::Current());
}

namespace tessel {

void ProcessKernelRoutes() {
    constexpr int kAttempts = 5;  // routes that come and go all the time are reported anyway
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        RouteDump dump;
        while (const nlmsghdr* message = dump.Next())
            ProcessRtMsg(message);
        if (dump.IsComplete() || !dump.IsOpen()) return;
    }
}

int MsUntilDueRoute() {
    int leftMs = INT_MAX;
    for (const PendingRoute& route : pendingRoutes)
        leftMs = std::min(leftMs, route.due.LeftMs());
    return leftMs;
}

void InstallDueRoutes() {
    for (auto route = pendingRoutes.begin(); route != pendingRoutes.end();) {
        if (!route->due.HasPassed()) {
            ++route;
            continue;
        }
        const bool isDone = InstallWithMetric(*route);
        if (!isDone || route->isRepeated) {
            route->isRepeated = false;
            route->due = Deadline(kSettle);
        } else {
            route = pendingRoutes.erase(route);
        }
    }
}

}  // namespace tessel
