// Network interfaces through the socket ioctls.
#pragma once

#include <net/if.h>

#include <span>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

enum class InterfaceAnswer { kAnswered, kNoSocket, kRefused };

// The words in which an unanswered question is logged; null: not at all.
struct InterfaceWords {
    const char* noSocket = "socket error";
    const char* refused = "ioctl error";
};

// Asks the kernel about one interface, or changes it: stores the name in `question` and issues the ioctl. A failure is
// logged in the caller's name and leaves errno; a name of more than 15 characters is no device (ENODEV).
[[nodiscard]] InterfaceAnswer AskInterface(const char* name, unsigned long request, ifreq& question,
                                           const InterfaceWords& words = {}, CallSite where = CallSite::Current());

// True for what can name an interface: what the kernel accepts (1 to 15 characters, no '/' or ':', not "." or "..")
// that is also one word of a line (core/text.h) without control characters, which the kernel would accept. False with a
// log line.
[[nodiscard]] bool IsInterfaceName(const char* name, CallSite where = CallSite::Current());

// The same without a log line.
[[nodiscard]] bool CanNameInterface(const char* name);

// Interfaces as SIOCGIFCONF lists them: those that have an IPv4 address, once for each, in the kernel's order.
struct InterfaceList {
    static constexpr std::size_t kMax = 16;
    ifreq entries[kMax] = {};
    std::size_t count = 0;

    [[nodiscard]] std::span<const ifreq> Entries() const {
        return {entries, count};
    }
};

// The first 16 addresses, with the names of their interfaces. False when the kernel refuses, with a log line.
[[nodiscard]] bool ListInterfaces(InterfaceList& list);

constexpr i32 kInterfaceIndexError = 1201;

}  // namespace tessel

// One ioctl on an AF_INET datagram socket. 0, or -1 with a log line and errno.
i32 SocketIoctl(u32 request, void* arg);

// The helpers below return 0, or -1: silently for a null pointer, with a log line for anything else.

// Interface flags (IFF_...).
i32 IfethGetFlags(const char* ifname, u32* flags);
i32 IfethSetFlags(const char* ifname, u32 flags);

// 1 when the link is up, 0 when it is down.
i32 IfethGetLineStatus(const char* ifname, u32* linkUp);

// The interface's first IPv4 address, network byte order.
i32 IfethGetIpv4Addr(const char* ifname, u32* addr);

// The 6 bytes of its hardware address.
i32 IfEthGetHwaddr(const char* ifname, u8* mac);

// Writes "eth%d" with index 0, 1 or 2 into `buf`, `len` bytes at most. 0, or kInterfaceIndexError with a log line.
i32 interface_name(i32 index, char* buf, u32 len);
