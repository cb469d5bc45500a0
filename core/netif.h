// Network interfaces through the socket ioctls.
#pragma once

#include <net/if.h>

#include <span>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

// One ioctl on an AF_INET datagram socket. 0, or -1 with a log line in the caller's name and errno set.
[[nodiscard]] i32 InterfaceIoctl(unsigned long request, void* arg, CallSite where = CallSite::Current());

// Copies an interface name, NUL included, into a field of 16 bytes. False when it is longer than 15 characters.
[[nodiscard]] bool CopyInterfaceName(char (&field)[16], const char* name);

// True for a name that stays one word of a command line. False with a log line.
[[nodiscard]] bool IsInterfaceWord(const char* interfaceName, CallSite where = CallSite::Current());

enum class InterfaceQuery { kAnswered, kNoSocket, kRefused };

// One ioctl about an interface on a socket of its own. Logs nothing; errno is set.
[[nodiscard]] InterfaceQuery AskInterface(const char* interfaceName, unsigned long request, ifreq& answer);

// Interfaces as SIOCGIFCONF lists them: those that have an IPv4 address, once for each, in the kernel's order.
struct InterfaceList {
    static constexpr std::size_t kMax = 16;
    ifreq entries[kMax] = {};
    std::size_t count = 0;

    [[nodiscard]] std::span<const ifreq> Entries() const {
        return {entries, count};
    }
};

// The first 16 entries. False when the kernel refuses.
[[nodiscard]] bool ListInterfaces(InterfaceList& list);

constexpr i32 kInterfaceIndexError = 1201;

}  // namespace tessel

// The same under its own name.
i32 SocketIoctl(u32 request, void* arg);

// The helpers below return 0, or -1: silently for a null pointer, with a log line for anything else.

// Interface flags (IFF_...).
i32 IfethGetFlags(const char* ifname, u32* flags);
i32 IfethSetFlags(const char* ifname, u32 flags);

// 1 when the link is up, 0 when it is down.
i32 IfethGetLineStatus(const char* ifname, u32* linkUp);

// The interface's first IPv4 address, network byte order.
i32 IfethGetIpv4Addr(const char* ifname, u32* addr);

// Writes "eth%d" with index 0, 1 or 2 into `buf`, `len` bytes at most. 0, or kInterfaceIndexError with a log line.
i32 interface_name(i32 index, char* buf, u32 len);
