#include "probe/conflict/neighbour_listener.h"

#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/log.h"
#include "core/unique_fd.h"
#include "probe/conflict/netdev_table.h"

namespace tessel {

namespace {

constexpr int kRetryMs = 60'000;
constexpr std::size_t kMessageMax = 2048;  // RFC 4861 needs some 100; longer ones are truncated

// A raw ICMPv6 socket for one interface.
struct Listener {
    char name[IF_NAMESIZE];
    unsigned index;
    UniqueFd fd;
};

// The names in the table, and nothing else of it: opening sockets needs no lock.
struct ActiveNames {
    char names[kNetdevMax][IF_NAMESIZE];
    u32 count;
};

ActiveNames CopyNames() {
    ActiveNames active{};
    const NetdevTableLock lock;
    for (const TNetdevRecord& record : RecordsOf(*g_ptNetdevMember))
        memcpy(active.names[active.count++], record.achDevName, IF_NAMESIZE);
    return active;
}

UniqueFd RawSocket() {
    return UniqueFd(socket(AF_INET6, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMPV6));
}

// Receives solicitations and advertisements with their hop limit and destination.
UniqueFd OpenSocket(const char* name) {
    UniqueFd fd = RawSocket();
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ND_NEIGHBOR_SOLICIT, &filter);
    ICMP6_FILTER_SETPASS(ND_NEIGHBOR_ADVERT, &filter);
    const int on = 1;
    const bool isReady =
        fd.IsOpen() && setsockopt(fd.Get(), IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof(filter)) == 0 &&
        setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_RECVHOPLIMIT, &on, sizeof(on)) == 0 &&
        setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof(on)) == 0 &&
        setsockopt(fd.Get(), SOL_SOCKET, SO_BINDTODEVICE, name, static_cast<socklen_t>(strlen(name) + 1)) == 0;
    if (isReady) return fd;
    TESSEL_PERROR("socket error!");
    return UniqueFd();
}

// What poll waits for: the table's rebuilds, and one socket per interface.
class Listeners {
  public:
    // Opens sockets for interfaces that are new, and closes those of interfaces that are gone. One with the same name
    // but another number is new.
    void Follow(const ActiveNames& active) {
        Listener kept[kNetdevMax];
        for (u32 i = 0; i < active.count; ++i) {
            const char* const name = active.names[i];
            memcpy(kept[i].name, name, IF_NAMESIZE);
            kept[i].index = if_nametoindex(name);
            Listener* const old = Find(kept[i]);
            kept[i].fd = old != nullptr ? std::move(old->fd) : OpenSocket(name);
        }
        for (u32 i = 0; i < kNetdevMax; ++i)
            listeners_[i] = std::move(kept[i]);
        count_ = active.count;
    }

    // Waits. Calls take(listener) for each socket that has something; true when sockets are to be opened: the table was
    // rebuilt, or one could not be opened a minute ago.
    template <typename Take>
    bool Wait(Take take) {
        pollfd waited[kNetdevMax + 1];
        waited[kNetdevMax] = {.fd = NetdevRebuildFd(), .events = POLLIN, .revents = 0};
        int waitMs = -1;
        for (u32 i = 0; i < kNetdevMax; ++i) {
            waited[i] = {.fd = i < count_ ? listeners_[i].fd.Get() : -1, .events = POLLIN, .revents = 0};
            if (i < count_ && !listeners_[i].fd.IsOpen()) waitMs = kRetryMs;
        }
        const int ready = poll(waited, kNetdevMax + 1, waitMs);
        if (ready <= 0) return ready == 0;
        for (u32 i = 0; i < count_; ++i) {
            if (waited[i].revents != 0) take(listeners_[i]);
        }
        eventfd_t rebuilds = 0;
        return waited[kNetdevMax].revents != 0 && eventfd_read(NetdevRebuildFd(), &rebuilds) == 0;
    }

  private:
    Listener* Find(const Listener& wanted) {
        for (u32 i = 0; i < count_; ++i) {
            Listener& old = listeners_[i];
            if (old.index == wanted.index && old.fd.IsOpen() && strcmp(old.name, wanted.name) == 0) return &old;
        }
        return nullptr;
    }

    Listener listeners_[kNetdevMax];
    u32 count_ = 0;
};

template <typename Value>
void ReadControl(const cmsghdr* header, Value& value) {
    if (header->cmsg_len >= CMSG_LEN(sizeof(value))) memcpy(&value, CMSG_DATA(header), sizeof(value));
}

// One message of a socket. False when there is none.
bool Receive(int fd, std::span<u8> buffer, std::span<u8>& bytes, NeighbourPath& path) {
    sockaddr_in6 source{};
    alignas(cmsghdr) u8 control[CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(in6_pktinfo))];
    iovec part{.iov_base = buffer.data(), .iov_len = buffer.size()};
    msghdr message{};
    message.msg_name = &source;
    message.msg_namelen = sizeof(source);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t size = recvmsg(fd, &message, 0);
    if (size < 0) return false;
    bytes = buffer.first(static_cast<std::size_t>(size));
    path = {.source = source.sin6_addr, .destination = {}, .hopLimit = -1};
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != IPPROTO_IPV6) continue;
        in6_pktinfo destination{};
        if (header->cmsg_type == IPV6_HOPLIMIT) ReadControl(header, path.hopLimit);
        if (header->cmsg_type == IPV6_PKTINFO) {
            ReadControl(header, destination);
            path.destination = destination.ipi6_addr;
        }
    }
    return true;
}

}  // namespace

void ListenToNeighbours(void (*take)(const char* interfaceName, const NeighbourMessage& message)) {
    if (!RawSocket().IsOpen() && errno == EAFNOSUPPORT) {
        TESSEL_PERROR("socket error!");
        return;
    }
    Listeners listeners;
    listeners.Follow(CopyNames());
    while (true) {
        const bool mustFollow = listeners.Wait([&](const Listener& listener) {
            u8 buffer[kMessageMax];
            std::span<u8> bytes;
            NeighbourPath path{};
            if (!Receive(listener.fd.Get(), buffer, bytes, path)) return;
            const auto message = ReadNeighbourMessage(bytes, path);
            if (message) take(listener.name, *message);
        });
        if (mustFollow) listeners.Follow(CopyNames());
    }
}

}  // namespace tessel
