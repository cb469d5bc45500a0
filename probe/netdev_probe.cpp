// Filling the active-interface table.
#include <algorithm>
#include <cstring>

#include "addr/address.h"
#include "addr/mac.h"
#include "core/log.h"
#include "core/netif.h"
#include "probe/interface.h"
#include "probe/netdev_table.h"

using tessel::CallSite;

namespace {

constexpr std::size_t kNameMax = 14;

// True for an interface that takes part: no point-to-point one, up, and with a link.
bool IsOnline(const char* name, CallSite where) {
    if (strstr(name, "ppp") != nullptr || InterfaceCheck(name) != 0) return false;
    u32 hasLink = 0;
    (void)IfethGetLineStatus(name, &hasLink);
    TESSEL_PRT_AT(where, "interface %s is %s", name, hasLink != 0 ? "online" : "offline");
    return hasLink != 0;
}

// The kernel lists an interface once for each of its IPv4 addresses.
bool IsListed(const TNetdevMember& table, const char* name) {
    return std::any_of(table.atRecord, table.atRecord + table.dwNum,
                       [&](const TNetdevRecord& record) { return strcmp(record.achDevName, name) == 0; });
}

bool FillRecord(TNetdevRecord& record, const char* name, CallSite where) {
    if (strlen(name) > kNameMax) {
        TESSEL_ERR_AT(where, "the interface name is too long : %d!", static_cast<int>(strlen(name)));
        return false;
    }
    memcpy(record.achDevName, name, strlen(name) + 1);
    record.bActive = 1;
    if (IpaddrGet(name, TESSEL_FAMILY_BOTH, &record.tIfaceIp) != 0) {
        TESSEL_ERR_AT(where, "IpaddrGet error!");
        return false;
    }
    if (MacaddrGet(name, record.abyMac) != 0) {
        TESSEL_ERR_AT(where, "MacaddrGet error!");
        return false;
    }
    return true;
}

bool FillTable(TNetdevMember& table, CallSite where) {
    tessel::InterfaceList list;
    if (!tessel::ListInterfaces(list)) {
        TESSEL_ERR_AT(where, "SocketIoctl error!");
        return false;
    }
    for (const ifreq& entry : list.Entries()) {
        const char* const name = entry.ifr_name;
        if (IsListed(table, name) || !IsOnline(name, where)) continue;
        TNetdevRecord& record = table.atRecord[table.dwNum];
        if (!FillRecord(record, name, where)) return false;
        ++table.dwNum;
        TESSEL_PRT_AT(where, "ifr_name = %s, dev_num = %d, ip_num = %d", name, static_cast<i32>(table.dwNum),
                      static_cast<i32>(record.tIfaceIp.dwNum));
    }
    return true;
}

}  // namespace

i32 ProbeActiveNetdev(TNetdevMember* ptMember) {
    if (ptMember == nullptr) {
        TESSEL_ERR("ptMember is NULL!");
        return -1;
    }
    ptMember->dwNum = 0;
    memset(ptMember->atRecord, 0, sizeof(ptMember->atRecord));
    if (FillTable(*ptMember, CallSite::Current())) return 0;
    TESSEL_ERR("ProbeActiveNetdev end error!");
    return -1;
}
