#include "probe/router/router_watch.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "addr/address.h"
#include "core/client_sessions.h"
#include "core/family.h"
#include "core/log.h"
#include "core/netif.h"
#include "core/notify.h"
#include "probe/router/router_solicitation.h"
#include "route/gateway.h"

using tessel::AddressesOf;
using tessel::AddressText;
using tessel::CallSite;
using tessel::Worker;

namespace {

struct RouterWatch {
    char interfaceName[TESSEL_NAME_SIZE] = {};
    i32 userId = 0;
    // What further starts change, under the pool's lock.
    i32 pid = 0;
    bool isForced = false;  // a report is due even if nothing has changed
};

}  // namespace

class tessel::RouterWatchPool : public tessel::ClientSessions<RouterWatch, TESSEL_ROUTER_WATCHES_MAX> {};

tessel::RouterWatchPool* g_ptDaeRouterNotifyInfo = nullptr;

std::chrono::milliseconds tessel::g_routerCycle = std::chrono::seconds(2);

namespace {

bool IsSame(const TNetIpAddr& one, const TNetIpAddr& other) {
    return memcmp(&one, &other, sizeof(one)) == 0;
}

// Finds the watch of an interface.
auto OfInterface(const char* name) {
    return [name](const RouterWatch& watch) { return strcmp(watch.interfaceName, name) == 0; };
}

RouterWatch CopyOf(const RouterWatch& watch) {
    const auto lock = g_ptDaeRouterNotifyInfo->Hold();
    return watch;
}

// The process that the next report goes to; that report counts as the forced one.
i32 TakeReceiver(RouterWatch& watch) {
    const auto lock = g_ptDaeRouterNotifyInfo->Hold();
    watch.isForced = false;
    return watch.pid;
}

void Report(const RouterWatch& watch, i32 pid, const TNetRouterNotify& record, CallSite where) {
    const tessel::NoticeSocket socket("%s_%s_%d_%d", TESSEL_SOCKET_ROUTER_NOTIFY, watch.interfaceName, watch.userId,
                                      pid);
    TESSEL_PRT_AT(where, "achServerPath %s", socket.name);
    const i32 sent = Notify(socket, TESSEL_ROUTER_CHANGED, record);
    if (sent != TESSEL_IPC_OK) TESSEL_ERR_AT(where, "send and recv msg error:%d!", sent);
}

// What a watch remembers from one look to the next.
struct Memory {
    TNetIfaceIp addresses;      // as they were reported last
    i32 pid;                    // to this process
    bool lacksGateway = false;  // there was none: it is looked for again until there is one
};

// One look. Nothing: no report is due. The output of a tool killed by a stop is ignored.
std::optional<TNetRouterNotify> Look(const Worker& self, const RouterWatch& watch, Memory& memory, CallSite where) {
    TNetRouterNotify record{};
    memcpy(record.achDevName, watch.interfaceName, sizeof(record.achDevName));
    const i32 result = GetGlobalIpaddrV6(watch.interfaceName, &record.tIfaceIp);
    if (!self.IsWanted()) return std::nullopt;
    if (result != 0) {
        TESSEL_ERR_AT(where, "GetGlobalIpaddrV6 error");
        return std::nullopt;
    }
    const bool hasChanged = NetAddrCmp(&record.tIfaceIp, &memory.addresses) != 0;
    const RouterWatch wanted = CopyOf(watch);
    if (!hasChanged && !memory.lacksGateway && !wanted.isForced && wanted.pid == memory.pid) {
        TESSEL_DBG_AT(where, "ra addr not change, no need to report");
        return std::nullopt;
    }
    memory.lacksGateway = GetRaGateWayV6(watch.interfaceName, &record.tGateway) != 0;
    if (!self.IsWanted()) return std::nullopt;
    if (!memory.lacksGateway) {
        TESSEL_DBG_AT(where, "GetRaGateWayV6 ok");
        return record;
    }
    TESSEL_PRT_AT(where, "GetDefaultGateway error");
    if (hasChanged) return record;
    TESSEL_DBG_AT(where, "ra addr not change, no gateway, no need to report");
    return std::nullopt;
}

bool RouterNotifyThread(const Worker& self, RouterWatch& watch) {
    const CallSite where = CallSite::Current();
    Memory memory{.addresses = {}, .pid = CopyOf(watch).pid};
    do {
        if (const auto record = Look(self, watch, memory, where)) {
            memory.addresses = record->tIfaceIp;
            memory.pid = TakeReceiver(watch);
            Report(watch, memory.pid, *record, where);
        }
    } while (self.Sleep(tessel::g_routerCycle));
    TESSEL_PRT("the RouterNotifyThread %d quit!", watch.userId);
    return false;  // only a stop ends it
}

}  // namespace

void DaemonRouterNotifyInit() {
    g_ptDaeRouterNotifyInfo = new (std::nothrow) tessel::RouterWatchPool;
    if (g_ptDaeRouterNotifyInfo == nullptr) TESSEL_PERROR("XMALLOC error");
}

i32 RouterAdvertiseStart(const char* pchIfaceName, i32 userId, i32 pid) {
    if (pchIfaceName == nullptr) {
        TESSEL_ERR("pchIfaceName is NULL!");
        return -1;
    }
    TESSEL_PRT("pchIfaceName : %s", pchIfaceName);
    if (!tessel::IsInterfaceName(pchIfaceName)) return -1;
    auto* const pool = g_ptDaeRouterNotifyInfo;
    auto lock = pool != nullptr ? pool->Hold() : tessel::RouterWatchPool::Lock();
    RouterWatch* const known = lock ? pool->Find(lock, OfInterface(pchIfaceName)) : nullptr;
    if (known != nullptr) {
        TESSEL_PRT("the %s router advertise has started!", pchIfaceName);
        known->pid = pid;
        known->isForced = true;
        return 0;
    }
    RouterWatch* const watch = lock ? pool->Take(lock) : nullptr;
    if (watch == nullptr) {
        TESSEL_ERR("the module may be not inited or the iface has up to maximum !");
        return -1;
    }
    *watch = {.interfaceName = {}, .userId = userId, .pid = pid};
    strncpy(watch->interfaceName, pchIfaceName, sizeof(watch->interfaceName) - 1);
    if (!pool->Run(lock, *watch, "TesselRouterNotifyThread", &RouterNotifyThread)) {
        TESSEL_ERR("DhcpcProcessThread created error!");  // another module's words
        return -1;
    }
    lock.unlock();
    SendRsPacket(pchIfaceName);
    return 0;
}

i32 RouterAdvertiseStop(const char* pchIfaceName) {
    if (pchIfaceName == nullptr) {
        TESSEL_ERR("pchIfaceName is NULL!");
        return -1;
    }
    if (g_ptDaeRouterNotifyInfo == nullptr || !g_ptDaeRouterNotifyInfo->Stop(OfInterface(pchIfaceName))) {
        TESSEL_PRT("the %s router advertise has stopped!", pchIfaceName);
    }
    return 0;
}

i32 NetAddrCmp(const TNetIfaceIp* ptSrcAllIp, const TNetIfaceIp* ptDstAllIp) {
    if (ptSrcAllIp == nullptr || ptDstAllIp == nullptr) {
        TESSEL_ERR("ptSrcAllIp or ptDstAllIp is NULL!");
        return 1;
    }
    const auto source = AddressesOf(*ptSrcAllIp);
    const auto destination = AddressesOf(*ptDstAllIp);
    if (source.size() != destination.size()) {
        TESSEL_DBG("the ptSrcAllIp and the ptDstAllIp num is diffent!");
        return 1;
    }
    const bool areAllFound = std::all_of(destination.begin(), destination.end(), [&](const TNetIpAddr& wanted) {
        return std::any_of(source.begin(), source.end(), [&](const TNetIpAddr& each) { return IsSame(each, wanted); });
    });
    return areAllFound ? 0 : 1;
}

i32 GetGlobalIpaddrV6(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp) {
    if (pchIfaceName == nullptr || ptNetIfaceIp == nullptr) {
        TESSEL_ERR("pchIfaceName or ptNetIfaceIp is NULL!");
        return -1;
    }
    TNetIfaceIp all{};
    if (IpaddrGet(pchIfaceName, TESSEL_FAMILY_INET6, &all) != 0) {
        TESSEL_ERR("IpaddrGet error!");
        return -1;
    }
    u32 count = 0;
    for (const TNetIpAddr& entry : AddressesOf(all)) {
        if (entry.dwScope != TESSEL_SCOPE_GLOBAL) {
            TESSEL_DBG("it's not global address,continue");
        } else if (entry.bDynamic == 0) {
            TESSEL_DBG("it's not ra address,continue");
        } else {
            ptNetIfaceIp->atIp[count++] = entry;
        }
    }
    ptNetIfaceIp->dwNum = count;
    TESSEL_DBG("ra callback interface %s, number %u tNetIfaceIp.dwIpNum %u", pchIfaceName, count, all.dwNum);
    for (u32 i = 0; i < count; ++i)
        TESSEL_DBG("ra i = %u , ip %s", i, AddressText(TESSEL_FAMILY_INET6, &ptNetIfaceIp->atIp[i].abyAddr).text);
    return 0;
}

i32 GetRaGateWayV6(const char* pchIfaceName, TNetGateway* ptNetGateway) {
    if (ptNetGateway == nullptr) {
        TESSEL_ERR("pchIfaceName or ptNetIfaceIp is NULL!");
        return -1;
    }
    *ptNetGateway = {};
    ptNetGateway->wSinFamily = TESSEL_FAMILY_INET6;
    if (tessel::ReadGateWayV6(pchIfaceName, ptNetGateway, 0, CallSite::Current()) != 0) return -1;
    if (std::all_of(std::begin(ptNetGateway->abyAddr), std::end(ptNetGateway->abyAddr),
                    [](u8 byte) { return byte == 0; })) {
        TESSEL_PRT("FindStrMatchHead error!");
        return -1;
    }
    TESSEL_PRT("achIpAddr : %s", AddressText(*ptNetGateway).text);
    return 0;
}
