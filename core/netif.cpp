#include "core/netif.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "core/log.h"
#include "core/text.h"
#include "core/unique_fd.h"

using tessel::CallSite;

namespace tessel {

namespace {

// The socket that interface ioctls go through, opened with the first of them and kept: making one costs ten times what
// the ioctl costs. It carries no state, so any thread may use it at any time. -1 with errno when there is none.
int IoctlSocket() {
    static std::atomic<int> keptSocket{-1};
    const int kept = keptSocket.load();
    if (kept >= 0) return kept;
    UniqueFd opened(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int none = -1;
    if (opened.IsOpen() && keptSocket.compare_exchange_strong(none, opened.Get())) return opened.Release();
    return keptSocket.load();
}

}  // namespace

i32 InterfaceIoctl(unsigned long request, void* arg, CallSite where) {
    const int fd = IoctlSocket();
    if (fd < 0) {
        LogPerror(where, "socket error");
        return -1;
    }
    if (ioctl(fd, request, arg) < 0) {
        LogPerror(where, "ioctl error");
        return -1;
    }
    return 0;
}

bool CopyInterfaceName(char (&field)[16], const char* name) {
    if (strlen(name) >= sizeof(field)) return false;
    strncpy(field, name, sizeof(field));
    return true;
}

bool IsInterfaceWord(const char* interfaceName, CallSite where) {
    if (IsOneWord(interfaceName)) return true;
    TESSEL_ERR_AT(where, "the interface name [%s] is invalid!", interfaceName);
    return false;
}

InterfaceQuery AskInterface(const char* interfaceName, unsigned long request, ifreq& answer) {
    const UniqueFd socketFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socketFd.IsOpen()) return InterfaceQuery::kNoSocket;
    strncpy(answer.ifr_name, interfaceName, sizeof(answer.ifr_name) - 1);
    return ioctl(socketFd.Get(), request, &answer) == 0 ? InterfaceQuery::kAnswered : InterfaceQuery::kRefused;
}

bool ListInterfaces(InterfaceList& list) {
    ifconf request{};
    request.ifc_len = sizeof(list.entries);
    request.ifc_req = list.entries;
    if (SocketIoctl(SIOCGIFCONF, &request) != 0) return false;
    list.count = static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq);
    return true;
}

}  // namespace tessel

namespace {

// Issues `request` for one interface. The failure is logged twice, by the ioctl and in the helper's name.
i32 QueryInterface(u32 request, const char* ifname, ifreq& query, CallSite where = CallSite::Current()) {
    strncpy(query.ifr_name, ifname, sizeof(query.ifr_name) - 1);
    if (SocketIoctl(request, &query) == 0) return 0;
    tessel::LogPerror(where, "ioctl error");
    return -1;
}

}  // namespace

i32 SocketIoctl(u32 request, void* arg) {
    return tessel::InterfaceIoctl(request, arg);
}

i32 IfethGetFlags(const char* ifname, u32* flags) {
    if (ifname == nullptr || flags == nullptr) return -1;
    ifreq query{};
    if (QueryInterface(SIOCGIFFLAGS, ifname, query) != 0) return -1;
    *flags = static_cast<u16>(query.ifr_flags);
    return 0;
}

i32 IfethSetFlags(const char* ifname, u32 flags) {
    if (ifname == nullptr) return -1;
    ifreq query{};
    query.ifr_flags = static_cast<short>(flags);
    return QueryInterface(SIOCSIFFLAGS, ifname, query);
}

i32 IfethGetLineStatus(const char* ifname, u32* linkUp) {
    if (ifname == nullptr || linkUp == nullptr) return -1;
    ethtool_value value{.cmd = ETHTOOL_GLINK, .data = 0};
    ifreq query{};
    query.ifr_data = reinterpret_cast<char*>(&value);
    if (QueryInterface(SIOCETHTOOL, ifname, query) != 0) return -1;
    *linkUp = value.data;
    return 0;
}

i32 IfethGetIpv4Addr(const char* ifname, u32* addr) {
    if (ifname == nullptr || addr == nullptr) return -1;
    ifreq query{};
    query.ifr_addr.sa_family = AF_INET;
    if (QueryInterface(SIOCGIFADDR, ifname, query) != 0) return -1;
    sockaddr_in address{};
    memcpy(&address, &query.ifr_addr, sizeof(address));
    *addr = address.sin_addr.s_addr;
    return 0;
}

i32 interface_name(i32 index, char* buf, u32 len) {
    constexpr i32 kLastIndex = 2;
    if (index < 0 || index > kLastIndex) {
        TESSEL_ERR("Eth:%d does not exist and max interface NO:%d", index, kLastIndex);
        return tessel::kInterfaceIndexError;
    }
    char name[16];
    snprintf(name, sizeof(name), "eth%d", index);
    strncpy(buf, name, len);
    return 0;
}
