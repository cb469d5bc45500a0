#include "route/monitor/netlink.h"

#include <sys/socket.h>

#include <algorithm>

#include "core/log.h"

void ParseRtAttr(const rtattr** table, u32 max, const rtattr* first, i32 length) {
    std::fill_n(table, max + 1, nullptr);
    for (const rtattr* attribute = first; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type <= max) table[attribute->rta_type] = attribute;
    }
}

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
    // By way of `void`, because compilers for processors that need alignment warn of a direct cast: the caller ensures
    // it.
    const auto* const message = static_cast<const nlmsghdr*>(static_cast<const void*>(bytes.data()));
    if (message->nlmsg_len < sizeof(nlmsghdr) || message->nlmsg_len > bytes.size()) return nullptr;
    bytes = bytes.subspan(std::min<std::size_t>(NLMSG_ALIGN(message->nlmsg_len), bytes.size()));
    return message;
}

RouteDump::RouteDump(CallSite where) : fd_(OpenNetlink(NETLINK_ROUTE, 0, 0, where)) {
    struct {
        nlmsghdr header;
        rtmsg route;
    } question{};
    question.header.nlmsg_len = sizeof(question);
    question.header.nlmsg_type = RTM_GETROUTE;
    question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    question.route.rtm_family = AF_INET;
    if (fd_.IsOpen() && send(fd_.Get(), &question, sizeof(question), 0) < 0) LogPerror(where, "send error");
}

const nlmsghdr* RouteDump::Next() {
    const nlmsghdr* message = NextMessage(rest_);
    if (message == nullptr) {
        // The kernel composes what comes next while it is read: nothing to wait for.
        const ssize_t size = recv(fd_.Get(), buffer_, sizeof(buffer_), MSG_DONTWAIT);
        if (size > 0) rest_ = {buffer_, static_cast<std::size_t>(size)};
        message = NextMessage(rest_);
    }
    if (message == nullptr) return nullptr;
    isDone_ = isDone_ || message->nlmsg_type == NLMSG_DONE;
    isInterrupted_ = isInterrupted_ || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
    return message->nlmsg_type == RTM_NEWROUTE ? message : nullptr;
}

}  // namespace tessel
