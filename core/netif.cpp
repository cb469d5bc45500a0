#include "core/netif.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/log.h"
#include "core/text.h"
#include "core/unique_fd.h"

namespace tessel {

namespace {

// The socket that interface ioctls go through, opened for the first of them and kept: creating one costs ten times what
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

InterfaceAnswer Ask(unsigned long request, void* question, const InterfaceWords& words, CallSite where) {
    const int fd = IoctlSocket();
    if (fd < 0) {
        if (words.noSocket != nullptr) LogPerror(where, words.noSocket);
        return InterfaceAnswer::kNoSocket;
    }
    if (ioctl(fd, request, question) >= 0) return InterfaceAnswer::kAnswered;
    if (words.refused != nullptr) LogPerror(where, words.refused);
    return InterfaceAnswer::kRefused;
}

// For the helpers, whose failures are logged twice: by the ioctl and in their own name.
i32 Query(unsigned long request, const char* ifname, ifreq& question, CallSite where = CallSite::Current()) {
    constexpr CallSite kIoctl = CallSite::Current("SocketIoctl");
    if (AskInterface(ifname, request, question, {}, kIoctl) == InterfaceAnswer::kAnswered) return 0;
    LogPerror(where, "ioctl error");
    return -1;
}

}  // namespace

InterfaceAnswer AskInterface(const char* name, unsigned long request, ifreq& question, const InterfaceWords& words,
                             CallSite where) {
    if (strlen(name) < sizeof(question.ifr_name)) {
        memcpy(question.ifr_name, name, strlen(name) + 1);
        return Ask(request, &question, words, where);
    }
    errno = ENODEV;
    if (words.refused != nullptr) LogPerror(where, words.refused);
    return InterfaceAnswer::kRefused;
}

bool CanNameInterface(const char* name) {
    return CanBeLineWord(name) && strlen(name) < IFNAMSIZ && strpbrk(name, "/:") == nullptr && strcmp(name, ".") != 0 &&
           strcmp(name, "..") != 0;
}

bool IsInterfaceName(const char* name, CallSite where) {
    if (CanNameInterface(name)) return true;
    TESSEL_ERR_AT(where, "the interface name [%s] is invalid!", name);
    return false;
}

bool ListInterfaces(InterfaceList& list) {
    ifconf request{};
    request.ifc_len = sizeof(list.entries);
    request.ifc_req = list.entries;
    if (SocketIoctl(SIOCGIFCONF, &request) != 0) return false;
    list.count = static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq);
    // An address with a label is listed under that ("eth0:1"): no interface's name has a colon.
    for (ifreq& entry : std::span(list.entries, list.count))
        entry.ifr_name[strcspn(entry.ifr_name, ":")] = '\0';
    return true;
}

}  // namespace tessel

using tessel::Query;

i32 SocketIoctl(u32 request, void* arg) {
    return tessel::Ask(request, arg, {}, tessel::CallSite::Current()) == tessel::InterfaceAnswer::kAnswered ? 0 : -1;
}

i32 IfethGetFlags(const char* ifname, u32* flags) {
    if (ifname == nullptr || flags == nullptr) return -1;
    ifreq query{};
    if (Query(SIOCGIFFLAGS, ifname, query) != 0) return -1;
    *flags = static_cast<u16>(query.ifr_flags);
    return 0;
}

i32 IfethSetFlags(const char* ifname, u32 flags) {
    if (ifname == nullptr) return -1;
    ifreq query{};
    query.ifr_flags = static_cast<short>(flags);
    return Query(SIOCSIFFLAGS, ifname, query);
}

i32 IfethGetLineStatus(const char* ifname, u32* linkUp) {
    if (ifname == nullptr || linkUp == nullptr) return -1;
    ethtool_value value{.cmd = ETHTOOL_GLINK, .data = 0};
    ifreq query{};
    query.ifr_data = reinterpret_cast<char*>(&value);
    if (Query(SIOCETHTOOL, ifname, query) != 0) return -1;
    *linkUp = value.data;
    return 0;
}

i32 IfethGetIpv4Addr(const char* ifname, u32* addr) {
    if (ifname == nullptr || addr == nullptr) return -1;
    ifreq query{};
    query.ifr_addr.sa_family = AF_INET;
    if (Query(SIOCGIFADDR, ifname, query) != 0) return -1;
    sockaddr_in address{};
    memcpy(&address, &query.ifr_addr, sizeof(address));
    *addr = address.sin_addr.s_addr;
    return 0;
}

i32 IfEthGetHwaddr(const char* ifname, u8* mac) {
    if (ifname == nullptr || mac == nullptr) return -1;
    ifreq query{};
    if (Query(SIOCGIFHWADDR, ifname, query) != 0) return -1;
    memcpy(mac, query.ifr_hwaddr.sa_data, 6);
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
