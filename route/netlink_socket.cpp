#include "route/netlink_socket.h"

#include <sys/socket.h>

#include <algorithm>

#include "core/log.h"

namespace tessel {

UniqueFd OpenNetlink(int protocol, u32 portId, u32 groups, CallSite where) {
    UniqueFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol));
    if (!fd.IsOpen()) {
        LogPerror(where, "can not create a netlink socket");
        return fd;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = portId;
    address.nl_groups = groups;
    if (bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
    LogPerror(where, "bind error");
    return UniqueFd();
}

const nlmsghdr* NextMessage(std::span<const u8>& bytes) {
    if (bytes.size() < sizeof(nlmsghdr)) return nullptr;
    // Past `void`, as compilers for processors with alignment warn of the direct way: the caller sees to it.
    const auto* const message = static_cast<const nlmsghdr*>(static_cast<const void*>(bytes.data()));
    if (message->nlmsg_len < sizeof(nlmsghdr) || message->nlmsg_len > bytes.size()) return nullptr;
    bytes = bytes.subspan(std::min<std::size_t>(NLMSG_ALIGN(message->nlmsg_len), bytes.size()));
    return message;
}

}  // namespace tessel
