#include "services/dhcp_client.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <new>

#include "core/log.h"
#include "core/netif.h"
#include "services/dhcp_session.h"
#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"

TDhcpcInfo* g_ptDaeDhcpCInfo = nullptr;

namespace {

using tessel::InterfaceOf;

// Every existing session, even one that has fallen out of the registry: as long as its worker runs, it keeps reporting
// to its application.
TDhcpcInfo* g_owned = nullptr;

bool IsOf(const TDhcpcInfo& info, u16 family, const char* interfaceName) {
    return info.wSinFamily == family && family != 0 && strcmp(InterfaceOf(info), interfaceName) == 0;
}

bool IsRegistered(const TDhcpcInfo& info) {
    for (const TDhcpcInfo* each = g_ptDaeDhcpCInfo; each != nullptr; each = each->next) {
        if (each == &info) return true;
    }
    return false;
}

// Frees the sessions that nobody can find and nothing runs for.
void FreeLostSessions() {
    for (TDhcpcInfo** link = &g_owned; *link != nullptr;) {
        TDhcpcInfo* const info = *link;
        if (IsRegistered(*info) || info->worker.IsRunning()) {
            link = &info->nextOwned;
            continue;
        }
        *link = info->nextOwned;
        delete info;
    }
}

// Appends a session to the registry. Null, with a log line, without memory.
TDhcpcInfo* AppendSession(u16 family, const char* interfaceName, tessel::CallSite where) {
    auto* const info = new (std::nothrow) TDhcpcInfo;
    if (info == nullptr) {
        tessel::LogPerror(where, "XMALLOC error");
        return nullptr;
    }
    info->wSinFamily = family;
    strncpy(info->tLease.achDevName, interfaceName, sizeof(info->tLease.achDevName) - 1);
    info->nextOwned = g_owned;
    g_owned = info;
    TDhcpcInfo** end = &g_ptDaeDhcpCInfo;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = info;
    return info;
}

// Ends what still runs for the interface although the registry does not know it: there is at most one worker for each.
void EndLostSessions(u16 family, const char* interfaceName, tessel::CallSite where) {
    for (TDhcpcInfo* info = g_owned; info != nullptr; info = info->nextOwned) {
        if (!IsOf(*info, family, interfaceName) || IsRegistered(*info)) continue;
        info->isRunning = 0;
        tessel::EndWorker(*info, where);
    }
    FreeLostSessions();
}

// True when the session's client runs and has been asked to renew its lease.
bool RenewRunningClient(const tessel::InterfaceProcess& client, const TDhcpcInfo& info, tessel::CallSite where) {
    const pid_t pid = client.Find();
    if (pid <= 0) return false;
    TESSEL_PRT_AT(where, " %s dhcpc already start. nApipid %d", InterfaceOf(info), info.nApipid.load());
    Signal(client, pid, SIGUSR1);
    return true;
}

// A session whose client has died gets a new one, with a worker that knows the new wish for DNS servers.
void TakeNewWish(TDhcpcInfo& info, u16 wDnsDynmic, tessel::CallSite where) {
    if (info.wDnsDynmic == wDnsDynmic) return;
    info.wDnsDynmic = wDnsDynmic;
    TESSEL_PRT_AT(where, "ptDhcpcInfo->wDnsDynmic is modified, now is %d", wDnsDynmic);
    info.isRunning = 0;
    info.worker.AskToEnd();
    sleep(1);
}

i32 StartByFamily(TDhcpcInfo& info, tessel::CallSite where) {
    if (info.wSinFamily == TESSEL_FAMILY_INET) return StartDhcpcV4(&info);
    if (info.wSinFamily == TESSEL_FAMILY_INET6) return StartDhcpcV6(&info);
    TESSEL_ERR_AT(where, "the wSinFamily %d is invalid!", info.wSinFamily);
    return -1;
}

// Ends a client that runs without a session.
void StopClientAlone(const char* interfaceName, u16 family, tessel::CallSite where) {
    if (family == TESSEL_FAMILY_INET && tessel::ClientV4(interfaceName).Find() > 0) {
        TESSEL_PRT_AT(where, "%s dhcpc will be stop. ", interfaceName);
        (void)LinuxDhcpcStop(interfaceName);
    }
    if (family == TESSEL_FAMILY_INET6 && tessel::ClientV6(interfaceName).Find() > 0) {
        TESSEL_PRT_AT(where, "%s dhcpc will be stop.", interfaceName);
        (void)LinuxDhcpcStopV6(interfaceName);
    }
}

}  // namespace

namespace tessel {

void RemoveSession(TDhcpcInfo& info) {
    remove_node(&g_ptDaeDhcpCInfo, &info);
    info.isRunning = 0;
    info.worker.AskToEnd();
}

}  // namespace tessel

using tessel::RemoveSession;

i32 DaemonDhcpcInit() {
    constexpr int kPlaceholders = 2;
    for (int i = 0; i < kPlaceholders; ++i) {
        if (AppendSession(0, "", tessel::CallSite::Current()) == nullptr) return -1;
    }
    return 0;
}

void remove_node(TDhcpcInfo** head, TDhcpcInfo* record) {
    TESSEL_PRT("will remove the family %d,iface is %s !", record->wSinFamily, InterfaceOf(*record));
    if (*head == record) *head = record->next;
    while (*head != nullptr) {
        if ((*head)->next == record) {
            (*head)->next = record->next;
            return;
        }
        *head = (*head)->next;
    }
}

TDhcpcInfo* DaeFamilyMapDhcpcInfoExt(u16 wSinFamily, const char* achDevName) {
    if (g_ptDaeDhcpCInfo == nullptr) {
        TESSEL_PRT("not find dhcp info, will create!");
        return nullptr;
    }
    for (TDhcpcInfo *info = g_ptDaeDhcpCInfo, *next = nullptr; info != nullptr; info = next) {
        next = info->next;
        if (!IsOf(*info, wSinFamily, achDevName)) continue;
        if (info->isRunning != 0) return info;
        TESSEL_PRT("%s %d not running, will remove!", achDevName, wSinFamily);
        RemoveSession(*info);
    }
    TESSEL_PRT("the family %d,iface is %s invalid!", wSinFamily, achDevName);
    return nullptr;
}

i32 DhcpcStart(const char* achDevName, u16 wSinFamily, u16 wDnsDynmic, i32 nPid) {
    const tessel::CallSite where = tessel::CallSite::Current();
    if (!tessel::IsInterfaceName(achDevName)) return -1;
    TDhcpcInfo* info = DaeFamilyMapDhcpcInfoExt(wSinFamily, achDevName);
    if (info != nullptr) {
        TESSEL_PRT("maybe interface %s, family %d dhcpc has started, check it", achDevName, wSinFamily);
        info->nApipid = nPid;
        const bool isInet = wSinFamily == TESSEL_FAMILY_INET;
        if (RenewRunningClient(isInet ? tessel::ClientV4(achDevName) : tessel::ClientV6(achDevName), *info, where)) {
            return 0;
        }
        if (!isInet) TakeNewWish(*info, wDnsDynmic, where);
    } else {
        TESSEL_PRT("FamilyMapDhcpcInfo can not find!");
        EndLostSessions(wSinFamily, achDevName, where);
        info = AppendSession(wSinFamily, achDevName, where);
        if (info == nullptr) return -1;
        info->nApipid = nPid;
        info->wDnsDynmic = wDnsDynmic;
    }
    const i32 result = StartByFamily(*info, where);
    if (result != 0) RemoveSession(*info);
    FreeLostSessions();
    return result;
}

i32 DhcpcStop(const char* achDevName, u16 wSinFamily) {
    const tessel::CallSite where = tessel::CallSite::Current();
    // Nothing can run for what cannot be an interface, and that is a success.
    if (!tessel::IsInterfaceName(achDevName)) return 0;
    TDhcpcInfo* const info = DaeFamilyMapDhcpcInfoExt(wSinFamily, achDevName);
    if (info == nullptr) {
        TESSEL_PRT("FamilyMapDhcpcInfo can not find!maybe has been stop");
        EndLostSessions(wSinFamily, achDevName, where);
        StopClientAlone(achDevName, wSinFamily, where);
        return 0;
    }
    return wSinFamily == TESSEL_FAMILY_INET ? StopDhcpcV4(info) : StopDhcpcV6(info);
}

i32 DhcpcRenew(const char* /*achDevName*/, u16 wSinFamily) {
    TESSEL_ERR("the wSinFamily %d is invalid!", wSinFamily);
    return -1;
}
