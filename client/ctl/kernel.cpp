#include "client/ctl/kernel.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "client/ctl/device.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

// Closed, with errno, when it cannot be opened. `groups`: of the changes that it delivers; none: for queries.
UniqueFd OpenKernel(u32 groups, int flags) {
    UniqueFd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    own.nl_groups = groups;
    if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0) socket.Reset();
    return socket;
}

struct Received {
    bool isWay = false;
    Json documents = Json::array();
};

// MNL_CB_STOP: the answer is complete; MNL_CB_ERROR: with errno.
int Receive(const UniqueFd& socket, Received& received) {
    // The kernel fills at most 32 KiB of a dump at once (rtnetlink(7), netlink_recvmsg).
    alignas(nlmsghdr) char bytes[32768];
    const ssize_t count = recv(socket.Get(), bytes, sizeof(bytes), 0);
    const auto take = [](const nlmsghdr* message, void* into) {
        auto& [isWay, documents] = *static_cast<Received*>(into);
        Json document = FromKernel(message, isWay);
        if (!document.is_null()) documents.push_back(std::move(document));
        return MNL_CB_OK;
    };
    return count < 0 ? MNL_CB_ERROR : mnl_cb_run(bytes, static_cast<std::size_t>(count), 0, 0, take, &received);
}

// Null: it failed, with errno. One message is followed by an acknowledgement, a dump ends by itself.
Json Ask(nlmsghdr* request, u16 type, u16 flags, bool isWay) {
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | flags;
    const UniqueFd socket = OpenKernel(0, 0);
    if (send(socket.Get(), request, request->nlmsg_len, 0) < 0) return {};
    Received received{.isWay = isWay};
    int state = MNL_CB_OK;
    while (state > MNL_CB_STOP)
        state = Receive(socket, received);
    return state < 0 ? Json() : received.documents;
}

// The entries of a family, or of both, as far as they could be read.
Json Dump(u16 type, int family = TESSEL_FAMILY_BOTH) {
    alignas(nlmsghdr) char bytes[MNL_NLMSG_HDRLEN + MNL_ALIGN(sizeof(rtgenmsg))];
    nlmsghdr* request = mnl_nlmsg_put_header(bytes);
    auto& header = *static_cast<rtgenmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtgenmsg)));
    header.rtgen_family = static_cast<u8>(family == TESSEL_FAMILY_BOTH ? AF_UNSPEC : family);
    // A dump interrupted by a change is started again (NLM_F_DUMP_INTR): changes are seldom continuous.
    Json entries;
    for (int attempts = 8; attempts > 0 && entries.is_null(); --attempts)
        entries = Ask(request, type, NLM_F_DUMP, false);
    return entries.is_null() ? Json::array() : entries;
}

}  // namespace

Json KernelLinks() {
    Json links = Dump(RTM_GETLINK);
    const Json addresses = Dump(RTM_GETADDR);
    for (Json& link : links) {
        Json& own = link["addresses"] = Json::array();
        for (Json address : addresses) {
            if (address["interface"] != link["interface"]) continue;
            address.erase("interface");
            own.push_back(std::move(address));
        }
    }
    return links;
}

Json KernelLink(const std::string& name) {
    return FindIn(KernelLinks(), "interface", name);
}

Json KernelRoutes(int family, u32 table) {
    Json routes = Json::array();
    for (Json& route : Dump(RTM_GETROUTE, family)) {
        // A kernel without IPv6 lists the routes of IPv4 in place of its.
        const bool isAsked = family == TESSEL_FAMILY_BOTH || route["family"] == FamilyName(family);
        if (isAsked && (table == kAllTables || NumberOf(route, "table") == table)) routes.push_back(std::move(route));
    }
    return routes;
}

Json KernelRules(int family) {
    return Dump(RTM_GETRULE, family);
}

Json KernelNeighbours(int family) {
    return Dump(RTM_GETNEIGH, family);
}

Json KernelRouteTo(const Network& to, const Network* from, std::optional<u32> mark, std::string& problem) {
    alignas(nlmsghdr) char bytes[256];
    nlmsghdr* request = mnl_nlmsg_put_header(bytes);
    auto& header = *static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
    header.rtm_family = static_cast<u8>(to.family);
    header.rtm_flags = RTM_F_LOOKUP_TABLE;
    header.rtm_dst_len = static_cast<u8>(to.FullLength());
    mnl_attr_put(request, RTA_DST, to.FullLength() / 8, to.bytes.data());
    if (from != nullptr) {
        header.rtm_src_len = header.rtm_dst_len;
        mnl_attr_put(request, RTA_SRC, to.FullLength() / 8, from->bytes.data());
    }
    if (mark) mnl_attr_put_u32(request, RTA_MARK, *mark);
    const Json answer = Ask(request, RTM_GETROUTE, NLM_F_ACK, true);
    if (!answer.empty()) return answer.front();
    const int error = errno;
    problem = error == ENETUNREACH ? "no route leads there" : strerror(error);
    if (error == EINVAL) problem = "a route drops it";  // the type blackhole
    if (from != nullptr && FindIn(Dump(RTM_GETADDR), "address", HostText(*from)).is_null())
        problem = HostText(*from) + " is not an address of this device";
    return {};
}

KernelFollower::KernelFollower()
    : socket_(OpenKernel(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE |
                             RTMGRP_IPV4_RULE | 1U << (RTNLGRP_IPV6_RULE - 1),
                         SOCK_NONBLOCK)) {
    if (!socket_.IsOpen()) throw Failed("kernel", strerror(errno));
}

Json KernelFollower::Next(bool& isCut) {
    Received received;
    int state = MNL_CB_OK;
    while (state != MNL_CB_ERROR || errno == ENOBUFS) {
        state = Receive(socket_, received);
        isCut = isCut || (state == MNL_CB_ERROR && errno == ENOBUFS);
    }
    return received.documents;
}

std::vector<std::string> InterfaceNames() {
    std::vector<std::string> names;
    for (const Json& link : Dump(RTM_GETLINK))
        names.push_back(TextOf(link, "interface"));
    return names;
}

std::string MissingInterface(const std::string& name) {
    return name.empty() || if_nametoindex(name.c_str()) != 0 ? "" : "there is no interface " + name;
}

std::string WhyUnreachable(const Network& gateway, const std::string& interfaceName) {
    const bool isNamed = !interfaceName.empty();
    const bool isOnEveryLink = Covers(*ParseNetwork("fe80::/10"), gateway);  // RFC 4291
    if (!isNamed && isOnEveryLink) return HostText(gateway) + " is on every link: name the interface";
    std::vector<std::string> networks;
    for (const Json& link : KernelLinks()) {
        if (isNamed && TextOf(link, "interface") != interfaceName) continue;
        if (isNamed && TextOf(link, "state") == "down") return interfaceName + " is down";
        for (const Json& address : link["addresses"]) {
            const auto own = ParseNetwork(AddressText(address));
            if (!own || own->family != gateway.family) continue;
            if (Covers(*own, gateway)) return "";
            networks.push_back(NetworkText(*own));
        }
    }
    std::string missing = MissingInterface(interfaceName);
    if (!missing.empty() || isOnEveryLink) return missing;
    return Format("{} is in no network of {} ({})", HostText(gateway), isNamed ? interfaceName : "any interface",
                  networks.empty() ? "it has no address" : Joined(networks, ", "));
}

std::string ForeignKernel() {
    const auto shares = SharesOurNetwork(tessel_daemon_pid());
    if (!shares) return "cannot tell from here which network namespace the daemon is in";
    return *shares ? "" : "the daemon is in another network namespace";
}

}  // namespace tessel::ctl
