#include "client/ctl/kernel_routes.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>

#include "tessel/ipc.h"

namespace tessel::ctl {

namespace {

// The kernel fills at most 32 KiB of a dump at once (rtnetlink(7), netlink_recvmsg).
constexpr std::size_t kDumpBytes = 32768;
// A dump that a change cut into is begun anew; where changes never cease, the last one has to do.
constexpr int kDumpAttempts = 8;

using Attributes = std::array<const nlattr*, 32>;
static_assert(std::tuple_size_v<Attributes> > FRA_MAX && std::tuple_size_v<Attributes> > RTA_MAX);

int StoreAttribute(const nlattr* attribute, void* into) {
    auto& attributes = *static_cast<Attributes*>(into);
    const u16 type = mnl_attr_get_type(attribute);
    if (type < attributes.size()) attributes[type] = attribute;
    return MNL_CB_OK;
}

u32 NumberOf(const nlattr* attribute) {
    return attribute == nullptr || mnl_attr_validate(attribute, MNL_TYPE_U32) < 0 ? 0 : mnl_attr_get_u32(attribute);
}

// Empty: none, or not of the size that the family's addresses have.
std::string AddressOf(int family, const void* bytes, std::size_t size) {
    char text[INET6_ADDRSTRLEN] = "";
    if (size == (family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr))) inet_ntop(family, bytes, text, sizeof(text));
    return text;
}

std::string AddressOf(int family, const nlattr* attribute) {
    return attribute == nullptr
               ? ""
               : AddressOf(family, mnl_attr_get_payload(attribute), mnl_attr_get_payload_len(attribute));
}

// "10.1.0.0/16"; empty: everything.
std::string NetworkOf(int family, const nlattr* attribute, u32 prefixLength) {
    if (prefixLength == 0) return "";
    return fmt::format("{}/{}", AddressOf(family, attribute), prefixLength);
}

std::string InterfaceNamed(u32 index) {
    char name[IF_NAMESIZE] = "";
    return index != 0 && if_indextoname(index, name) != nullptr ? name : "";
}

// A gateway of the route's own family, or of another: RFC 5549 has IPv4 routes through IPv6 neighbours.
std::string GatewayOf(int family, const Attributes& attributes) {
    const nlattr* via = attributes[RTA_VIA];
    if (via == nullptr) return AddressOf(family, attributes[RTA_GATEWAY]);
    if (mnl_attr_get_payload_len(via) < sizeof(rtvia)) return "";
    const auto* gateway = static_cast<const rtvia*>(mnl_attr_get_payload(via));
    return AddressOf(gateway->rtvia_family, static_cast<const void*>(gateway->rtvia_addr),
                     mnl_attr_get_payload_len(via) - sizeof(rtvia));
}

// Of several next hops the first one stands for the route.
void TakeNextHop(int family, Attributes attributes, KernelRoute& route) {
    u32 interfaceIndex = NumberOf(attributes[RTA_OIF]);
    const nlattr* hops = attributes[RTA_MULTIPATH];
    if (hops != nullptr && mnl_attr_get_payload_len(hops) >= sizeof(rtnexthop)) {
        const auto* hop = static_cast<const rtnexthop*>(mnl_attr_get_payload(hops));
        interfaceIndex = static_cast<u32>(hop->rtnh_ifindex);
        if (hop->rtnh_len >= sizeof(rtnexthop) && hop->rtnh_len <= mnl_attr_get_payload_len(hops)) {
            mnl_attr_parse_payload(hop + 1, hop->rtnh_len - sizeof(rtnexthop), &StoreAttribute, &attributes);
        }
    }
    route.gateway = GatewayOf(family, attributes);
    route.interfaceName = InterfaceNamed(interfaceIndex);
}

// The kernel gives a remaining time to what router advertisements brought, and to nothing else that lasts.
bool IsLearnt(const rtmsg& header, const Attributes& attributes) {
    if (header.rtm_protocol == RTPROT_RA || NumberOf(attributes[RTA_EXPIRES]) != 0) return true;
    const nlattr* cache = attributes[RTA_CACHEINFO];
    if (cache == nullptr || mnl_attr_get_payload_len(cache) < sizeof(rta_cacheinfo)) return false;
    return static_cast<const rta_cacheinfo*>(mnl_attr_get_payload(cache))->rta_expires != 0;
}

int TakeRoute(const nlmsghdr* message, void* into) {
    if (message->nlmsg_type != RTM_NEWROUTE || mnl_nlmsg_get_payload_len(message) < sizeof(rtmsg)) return MNL_CB_OK;
    const auto& header = *static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
    if (header.rtm_type != RTN_UNICAST || (header.rtm_flags & RTM_F_CLONED) != 0) return MNL_CB_OK;
    Attributes attributes{};
    mnl_attr_parse(message, sizeof(header), &StoreAttribute, &attributes);
    KernelRoute route;
    route.family = header.rtm_family;
    route.destination = NetworkOf(header.rtm_family, attributes[RTA_DST], header.rtm_dst_len);
    route.metric = NumberOf(attributes[RTA_PRIORITY]);
    route.table = attributes[RTA_TABLE] != nullptr ? NumberOf(attributes[RTA_TABLE]) : header.rtm_table;
    route.isLearnt = IsLearnt(header, attributes);
    TakeNextHop(header.rtm_family, attributes, route);
    static_cast<std::vector<KernelRoute>*>(into)->push_back(std::move(route));
    return MNL_CB_OK;
}

// What KernelRule has no field for.
bool HasOtherConditions(const fib_rule_hdr& header, const Attributes& attributes) {
    constexpr u16 kConditions[] = {FRA_IIFNAME,   FRA_OIFNAME,  FRA_TUN_ID,      FRA_L3MDEV,
                                   FRA_UID_RANGE, FRA_IP_PROTO, FRA_SPORT_RANGE, FRA_DPORT_RANGE};
    if (header.dst_len != 0 || header.tos != 0 || (header.flags & FIB_RULE_INVERT) != 0) return true;
    for (const u16 condition : kConditions) {
        if (attributes[condition] != nullptr) return true;
    }
    return false;
}

int TakeRule(const nlmsghdr* message, void* into) {
    if (message->nlmsg_type != RTM_NEWRULE || mnl_nlmsg_get_payload_len(message) < sizeof(fib_rule_hdr)) {
        return MNL_CB_OK;
    }
    const auto& header = *static_cast<const fib_rule_hdr*>(mnl_nlmsg_get_payload(message));
    Attributes attributes{};
    mnl_attr_parse(message, sizeof(header), &StoreAttribute, &attributes);
    KernelRule rule;
    rule.family = header.family;
    rule.preference = NumberOf(attributes[FRA_PRIORITY]);
    rule.source = NetworkOf(header.family, attributes[FRA_SRC], header.src_len);
    // A mark of 0 compared with all bits is a condition; the kernel tells its mask alone then.
    if (attributes[FRA_FWMASK] != nullptr) rule.mark = NumberOf(attributes[FRA_FWMARK]);
    rule.hasOtherConditions =
        HasOtherConditions(header, attributes) || (rule.mark && NumberOf(attributes[FRA_FWMASK]) != ~u32{0});
    if (header.action == FR_ACT_TO_TBL) rule.table = NumberOf(attributes[FRA_TABLE]);
    static_cast<std::vector<KernelRule>*>(into)->push_back(std::move(rule));
    return MNL_CB_OK;
}

struct CloseSocket {
    void operator()(mnl_socket* socket) const {
        mnl_socket_close(socket);
    }
};

// Hands every answer of one dump to `take`. 0 or -1, with errno.
int Dump(u16 type, int family, mnl_cb_t take, void* into) {
    const std::unique_ptr<mnl_socket, CloseSocket> socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (socket == nullptr || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return -1;
    alignas(nlmsghdr) std::array<char, kDumpBytes> buffer{};
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    // Both kinds of request begin with the family and are of one size.
    static_assert(sizeof(rtmsg) == sizeof(fib_rule_hdr));
    static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)))->rtm_family = static_cast<u8>(family);
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) return -1;
    int state = MNL_CB_OK;
    while (state > MNL_CB_STOP) {
        const ssize_t count = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        if (count < 0) return -1;
        state = mnl_cb_run(buffer.data(), static_cast<std::size_t>(count), 0, mnl_socket_get_portid(socket.get()), take,
                           into);
    }
    return state;
}

// The entries of a family or of both, as far as they could be read.
template <typename Entry>
std::vector<Entry> DumpAll(u16 type, int family, mnl_cb_t take) {
    std::vector<Entry> all;
    for (const int one : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        if (family != TESSEL_FAMILY_BOTH && family != one) continue;
        std::vector<Entry> entries;
        for (int i = 0; i < kDumpAttempts; ++i) {
            entries.clear();
            // EINTR: the kernel marked the dump as inconsistent (NLM_F_DUMP_INTR), or a signal came.
            if (Dump(type, one, take, &entries) == 0 || errno != EINTR) break;
        }
        all.insert(all.end(), std::make_move_iterator(entries.begin()), std::make_move_iterator(entries.end()));
    }
    return all;
}

}  // namespace

std::vector<KernelRoute> KernelRoutes(int family, u32 table) {
    auto routes = DumpAll<KernelRoute>(RTM_GETROUTE, family, &TakeRoute);
    std::erase_if(routes, [&](const KernelRoute& route) { return route.table != table; });
    return routes;
}

std::vector<KernelRule> KernelRules(int family) {
    return DumpAll<KernelRule>(RTM_GETRULE, family, &TakeRule);
}

}  // namespace tessel::ctl
