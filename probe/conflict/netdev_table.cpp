#include "probe/conflict/netdev_table.h"

#include <sys/eventfd.h>
#include <sys/ioctl.h>

#include <cstring>

#include "addr/address.h"
#include "addr/mac.h"
#include "core/log.h"
#include "core/memory.h"
#include "core/netif.h"

using tessel::CallSite;

TNetdevMember* g_ptNetdevMember = nullptr;

namespace {

constexpr i32 kTableTag = 2;
constexpr std::size_t kNameMax = 14;

// Where threads queue for the table's mutex. The holder of the mutex has left it, so at most one thread waits for the
// mutex itself, and one that comes back waits here, behind it.
pthread_mutex_t queueMutex = PTHREAD_MUTEX_INITIALIZER;

int rebuildFd = -1;

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
    const auto records = tessel::RecordsOf(table);
    return std::any_of(records.begin(), records.end(),
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

// Ends at an interface that cannot be read, or whose name is too long: applications know that the ones listed after it
// then take no part until the next rebuild.
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
        TESSEL_PRT_AT(where, "ifr_name = %s, dev_num = %d, ip_num = %d", name, static_cast<i32>(table.dwNum),
                      static_cast<i32>(record.tIfaceIp.dwNum));
        ++table.dwNum;
    }
    return true;
}

}  // namespace

i32 NetdevTableInit(CallSite where) {
    void* block = xmalloc(kTableTag, sizeof(TNetdevMember));
    if (block == nullptr) {
        tessel::LogPerror(where, "XMALLOC error");
        return -1;
    }
    memset(block, 0, sizeof(TNetdevMember));
    g_ptNetdevMember = static_cast<TNetdevMember*>(block);
    pthread_mutex_init(&g_ptNetdevMember->tMutex, nullptr);
    rebuildFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return 0;
}

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

i32 InterfaceCheck(const char* name) {
    ifreq answer{};
    if (tessel::AskInterface(name, SIOCGIFFLAGS, answer, {.noSocket = nullptr, .refused = nullptr}) !=
        tessel::InterfaceAnswer::kAnswered) {
        TESSEL_ERR("Failed to get interface %s flags.", name);
        return -1;
    }
    constexpr int kWatched = IFF_UP | IFF_NOARP | IFF_LOOPBACK;
    return (answer.ifr_flags & kWatched) == IFF_UP ? 0 : -1;
}

namespace tessel {

NetdevTableLock::NetdevTableLock() {
    pthread_mutex_lock(&queueMutex);
    pthread_mutex_lock(&g_ptNetdevMember->tMutex);
    pthread_mutex_unlock(&queueMutex);
}

NetdevTableLock::~NetdevTableLock() {
    pthread_mutex_unlock(&g_ptNetdevMember->tMutex);
}

void RebuildNetdevTable() {
    if (g_ptNetdevMember == nullptr) return;
    const NetdevTableLock lock;
    (void)ProbeActiveNetdev(g_ptNetdevMember);
    (void)eventfd_write(rebuildFd, 1);
}

int NetdevRebuildFd() {
    return rebuildFd;
}

}  // namespace tessel
