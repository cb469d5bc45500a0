#include "client/ctl/kernel.h"

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

// The kernel fills at most 32 KiB of a dump at once (rtnetlink(7), netlink_recvmsg).
constexpr std::size_t kDumpBytes = 32768;
// A dump that a change cut into is begun anew; where changes never cease, the last one has to do.
constexpr int kDumpAttempts = 8;

using Buffer = std::array<char, kDumpBytes>;

// Of one answer there is no more to come; a dump ends by itself.
int Take(const nlmsghdr* message, void* into) {
    auto& [take, documents] = *static_cast<std::pair<Json (*)(const nlmsghdr*), Json>*>(into);
    Json document = take(message);
    if (!document.is_null()) documents.push_back(std::move(document));
    return (message->nlmsg_flags & NLM_F_MULTI) != 0 ? MNL_CB_OK : MNL_CB_STOP;
}

// What the kernel answers, by `take`. Null: it failed, with errno.
Json Ask(nlmsghdr* request, Buffer& buffer, Json (*take)(const nlmsghdr*)) {
    const std::unique_ptr<mnl_socket, decltype(&mnl_socket_close)> socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC),
                                                                          &mnl_socket_close);
    if (socket == nullptr || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return {};
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) return {};
    std::pair taken(take, Json::array());
    int state = MNL_CB_OK;
    while (state > MNL_CB_STOP) {
        const ssize_t count = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        if (count < 0) return {};
        state = mnl_cb_run(buffer.data(), static_cast<std::size_t>(count), 0, mnl_socket_get_portid(socket.get()),
                           &Take, &taken);
    }
    return state < 0 ? Json() : taken.second;
}

// Every request begins with the family.
nlmsghdr* PutRequest(Buffer& buffer, u16 type, int family, u16 flags) {
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | flags;
    *static_cast<u8*>(mnl_nlmsg_put_extra_header(request, HeaderBytes(type))) = static_cast<u8>(family);
    return request;
}

Json TakeEntry(const nlmsghdr* message) {
    Json entry = FromKernel(message);
    if (entry.is_null()) return entry;
    entry.erase("event");
    entry.erase("action");
    return entry;
}

// The entries of one family, as far as they could be read.
Json Dump(u16 type, int family) {
    for (int i = 0; i < kDumpAttempts; ++i) {
        alignas(nlmsghdr) Buffer buffer;
        Json entries = Ask(PutRequest(buffer, type, family, NLM_F_DUMP), buffer, &TakeEntry);
        // EINTR: the kernel marked the dump as inconsistent (NLM_F_DUMP_INTR), or a signal came.
        if (!entries.is_null() || errno != EINTR) return entries.is_null() ? Json::array() : entries;
    }
    return Json::array();
}

Json DumpFamilies(u16 type, int family) {
    if (family != TESSEL_FAMILY_BOTH) return Dump(type, family);
    Json entries = Dump(type, TESSEL_FAMILY_INET);
    for (Json& entry : Dump(type, TESSEL_FAMILY_INET6))
        entries.push_back(std::move(entry));
    return entries;
}

bool IsOwnAddress(const Network& host) {
    for (const Json& address : DumpFamilies(RTM_GETADDR, host.family)) {
        if (TextOf(address, "address") == HostText(host)) return true;
    }
    return false;
}

// RFC 4291: fe80::/10, on every link.
bool IsLinkLocal(const Network& host) {
    return host.family == TESSEL_FAMILY_INET6 && host.bytes[0] == 0xfe && (host.bytes[1] & 0xc0) == 0x80;
}

}  // namespace

Json KernelLinks() {
    Json links = Dump(RTM_GETLINK, AF_UNSPEC);
    Json addresses = DumpFamilies(RTM_GETADDR, TESSEL_FAMILY_BOTH);
    for (Json& link : links) {
        link["addresses"] = Json::array();
        for (Json& address : addresses) {
            if (TextOf(address, "interface") != TextOf(link, "interface")) continue;
            address.erase("interface");
            link["addresses"].push_back(std::move(address));
        }
    }
    return links;
}

Json KernelLink(const std::string& name) {
    for (Json& link : KernelLinks()) {
        if (TextOf(link, "interface") == name) return std::move(link);
    }
    return {};
}

bool LinkHas(const Json& link, const Network& host) {
    const Json& addresses = link["addresses"];
    return std::any_of(addresses.begin(), addresses.end(),
                       [&](const Json& one) { return TextOf(one, "address") == HostText(host); });
}

Json KernelRoutes(int family, u32 table) {
    Json routes = Json::array();
    for (Json& route : DumpFamilies(RTM_GETROUTE, family)) {
        if (NumberOf(route, "table") == table) routes.push_back(std::move(route));
    }
    return routes;
}

Json KernelRules(int family) {
    return DumpFamilies(RTM_GETRULE, family);
}

Json KernelNeighbours(int family) {
    return DumpFamilies(RTM_GETNEIGH, family);
}

Json KernelRouteTo(const Network& target, const Network* from, std::optional<u32> mark, std::string& problem) {
    alignas(nlmsghdr) Buffer buffer;
    nlmsghdr* request = PutRequest(buffer, RTM_GETROUTE, target.family, 0);
    auto& header = *static_cast<rtmsg*>(mnl_nlmsg_get_payload(request));
    header.rtm_flags = RTM_F_LOOKUP_TABLE;
    header.rtm_dst_len = static_cast<u8>(target.FullLength());
    const std::size_t bytes = target.FullLength() / 8;
    mnl_attr_put(request, RTA_DST, bytes, target.bytes.data());
    if (from != nullptr) {
        header.rtm_src_len = header.rtm_dst_len;
        mnl_attr_put(request, RTA_SRC, bytes, from->bytes.data());
    }
    if (mark) mnl_attr_put_u32(request, RTA_MARK, *mark);
    Json answer = Ask(request, buffer, &DocumentOf);
    if (answer.is_array() && !answer.empty()) return std::move(answer.front());
    const int error = errno;
    problem = error == ENETUNREACH ? "no route leads there" : std::strerror(error);
    if (error == EINVAL) problem = "a route drops it";  // the type blackhole
    if (from != nullptr && !IsOwnAddress(*from)) problem = HostText(*from) + " is no address of this device";
    return {};
}

void KernelFollower::CloseSocket::operator()(mnl_socket* socket) const {
    mnl_socket_close(socket);
}

KernelFollower::KernelFollower() : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK)) {
    constexpr unsigned kGroups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE |
                                 RTMGRP_IPV6_ROUTE | RTMGRP_IPV4_RULE | 1U << (RTNLGRP_IPV6_RULE - 1);
    if (socket_ == nullptr || mnl_socket_bind(socket_.get(), kGroups, MNL_SOCKET_AUTOPID) < 0) {
        throw Failed("kernel", std::strerror(errno));
    }
}

int KernelFollower::Fd() const {
    return mnl_socket_get_fd(socket_.get());
}

std::vector<Json> KernelFollower::Next(bool& isCut) {
    std::vector<Json> changes;
    alignas(nlmsghdr) Buffer buffer;
    while (true) {
        const ssize_t count = mnl_socket_recvfrom(socket_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno != ENOBUFS) return changes;
        isCut = isCut || count < 0;
        int rest = static_cast<int>(count);
        const auto* message = static_cast<const nlmsghdr*>(static_cast<const void*>(buffer.data()));
        for (; mnl_nlmsg_ok(message, rest); message = mnl_nlmsg_next(message, &rest)) {
            Json change = FromKernel(message);
            if (!change.is_null()) changes.push_back(std::move(change));
        }
    }
}

std::vector<std::string> InterfaceNames() {
    std::vector<std::string> names;
    for (const Json& link : Dump(RTM_GETLINK, AF_UNSPEC))
        names.push_back(TextOf(link, "interface"));
    return names;
}

std::string MissingInterface(const std::string& name) {
    return name.empty() || if_nametoindex(name.c_str()) != 0 ? "" : "there is no interface " + name;
}

std::string WhyUnreachable(const Network& gateway, const std::string& interfaceName) {
    const bool isNamed = !interfaceName.empty();
    if (!isNamed && IsLinkLocal(gateway)) return HostText(gateway) + " is on every link: name the interface";
    std::vector<std::string> networks;
    for (const Json& link : KernelLinks()) {
        if (isNamed && TextOf(link, "interface") != interfaceName) continue;
        if (isNamed && TextOf(link, "state") == "down") return interfaceName + " is down";
        for (const Json& address : link["addresses"]) {
            auto own = ParseHost(TextOf(address, "address"));
            if (!own || own->family != gateway.family) continue;
            own->length = static_cast<u32>(NumberOf(address, "prefix_length"));
            if (Covers(*own, gateway)) return "";
            networks.push_back(NetworkText(*own));
        }
    }
    const std::string missing = MissingInterface(interfaceName);
    if (!missing.empty() || IsLinkLocal(gateway)) return missing;
    return Format("{} is in no network of {} ({})", HostText(gateway), isNamed ? interfaceName : "any interface",
                  networks.empty() ? "it has no address" : Joined(networks, ", "));
}

std::string ForeignKernel() {
    const auto shares = SharesOurNetwork(tessel_daemon_pid());
    if (!shares) return "it cannot be seen from here which network namespace the daemon lives in";
    return *shares ? "" : "the daemon lives in another network namespace";
}

}  // namespace tessel::ctl
