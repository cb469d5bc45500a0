#include <arpa/inet.h>
#include <linux/fib_rules.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>

#include "client/ctl/kernel.h"

namespace tessel::ctl {

namespace {

using Attributes = std::array<const nlattr*, 32>;
static_assert(std::tuple_size_v<Attributes> > FRA_MAX && std::tuple_size_v<Attributes> > RTA_MAX);

int StoreAttribute(const nlattr* attribute, void* into) {
    auto& attributes = *static_cast<Attributes*>(into);
    const u16 type = mnl_attr_get_type(attribute);
    if (type < attributes.size()) attributes[type] = attribute;
    return MNL_CB_OK;
}

u32 U32Of(const nlattr* attribute) {
    return attribute == nullptr || mnl_attr_validate(attribute, MNL_TYPE_U32) < 0 ? 0 : mnl_attr_get_u32(attribute);
}

// A structure within an attribute; null: it is missing or too short.
template <typename Structure>
const Structure* StructureIn(const nlattr* attribute) {
    const bool isWhole = attribute != nullptr && mnl_attr_get_payload_len(attribute) >= sizeof(Structure);
    return isWhole ? static_cast<const Structure*>(mnl_attr_get_payload(attribute)) : nullptr;
}

// Empty: not of the size that the family's addresses have.
std::string AddressText(int family, const void* bytes, std::size_t size) {
    char text[INET6_ADDRSTRLEN] = "";
    if (size == (family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr))) inet_ntop(family, bytes, text, sizeof(text));
    return text;
}

std::string AddressText(int family, const nlattr* attribute) {
    if (attribute == nullptr) return "";
    return AddressText(family, mnl_attr_get_payload(attribute), mnl_attr_get_payload_len(attribute));
}

// "10.1.0.0/16", or the word that stands for everything.
std::string NetworkText(int family, const nlattr* attribute, u32 length, const char* everything) {
    return length == 0 ? everything : Format("{}/{}", AddressText(family, attribute), length);
}

Json MacIn(const nlattr* attribute) {
    const auto* mac = StructureIn<Mac>(attribute);
    return mac != nullptr && mnl_attr_get_payload_len(attribute) == sizeof(Mac) ? Json(MacText(*mac)) : Json();
}

Json InterfaceAt(u32 index) {
    char name[IF_NAMESIZE] = "";
    return index != 0 && if_indextoname(index, name) != nullptr ? Json(name) : Json();
}

std::string StateOf(u32 flags) {
    if ((flags & IFF_UP) == 0) return "down";
    return (flags & IFF_RUNNING) != 0 ? "up" : "no carrier";
}

// Other families than AF_UNSPEC repeat a link for bridges and IPv6.
Json LinkFields(const void* from, const Attributes& attributes) {
    const auto& header = *static_cast<const ifinfomsg*>(from);
    if (header.ifi_family != AF_UNSPEC || attributes[IFLA_IFNAME] == nullptr) return {};
    Attributes info{};
    if (attributes[IFLA_LINKINFO] != nullptr) mnl_attr_parse_nested(attributes[IFLA_LINKINFO], &StoreAttribute, &info);
    const nlattr* kind = info[IFLA_INFO_KIND];
    return {{"interface", mnl_attr_get_str(attributes[IFLA_IFNAME])},
            {"state", StateOf(header.ifi_flags)},
            {"mtu", U32Of(attributes[IFLA_MTU])},
            {"mac", header.ifi_type == ARPHRD_ETHER ? MacIn(attributes[IFLA_ADDRESS]) : Json()},
            {"kind", kind == nullptr ? Json() : Json(mnl_attr_get_str(kind))}};
}

const char* ScopeText(u8 scope) {
    if (scope == RT_SCOPE_SITE) return "site";
    if (scope == RT_SCOPE_LINK) return "link";
    return scope >= RT_SCOPE_HOST ? "host" : "global";
}

Json AddressFields(const void* from, const Attributes& attributes) {
    const auto& header = *static_cast<const ifaddrmsg*>(from);
    // On a link between two hosts IFA_ADDRESS is the other one's.
    const nlattr* own = attributes[IFA_LOCAL] != nullptr ? attributes[IFA_LOCAL] : attributes[IFA_ADDRESS];
    const u32 flags = attributes[IFA_FLAGS] != nullptr ? U32Of(attributes[IFA_FLAGS]) : header.ifa_flags;
    return {{"interface", InterfaceAt(header.ifa_index)}, {"address", AddressText(header.ifa_family, own)},
            {"prefix_length", header.ifa_prefixlen},      {"family", FamilyName(header.ifa_family)},
            {"scope", ScopeText(header.ifa_scope)},       {"dynamic", (flags & IFA_F_PERMANENT) == 0},
            {"tentative", (flags & IFA_F_TENTATIVE) != 0}};
}

// A gateway of the route's own family, or of another: RFC 5549 has IPv4 routes through IPv6 neighbours.
std::string GatewayText(int family, const Attributes& attributes) {
    const auto* via = StructureIn<rtvia>(attributes[RTA_VIA]);
    if (via == nullptr) return AddressText(family, attributes[RTA_GATEWAY]);
    return AddressText(via->rtvia_family, static_cast<const void*>(via->rtvia_addr),
                       mnl_attr_get_payload_len(attributes[RTA_VIA]) - sizeof(rtvia));
}

// The kernel gives a remaining time to what router advertisements brought, and to nothing else that lasts.
bool IsLearnt(const rtmsg& header, const Attributes& attributes) {
    const auto* cache = StructureIn<rta_cacheinfo>(attributes[RTA_CACHEINFO]);
    return header.rtm_protocol == RTPROT_RA || U32Of(attributes[RTA_EXPIRES]) != 0 ||
           (cache != nullptr && cache->rta_expires != 0);
}

Json RouteFields(const void* from, const Attributes& attributes) {
    const auto& header = *static_cast<const rtmsg*>(from);
    // Of several next hops the first one stands for the route.
    Attributes hop = attributes;
    u32 interfaceIndex = U32Of(attributes[RTA_OIF]);
    if (const auto* first = StructureIn<rtnexthop>(attributes[RTA_MULTIPATH])) {
        interfaceIndex = static_cast<u32>(first->rtnh_ifindex);
        const bool isWhole = first->rtnh_len >= sizeof(rtnexthop) &&
                             first->rtnh_len <= mnl_attr_get_payload_len(attributes[RTA_MULTIPATH]);
        if (isWhole) mnl_attr_parse_payload(first + 1, first->rtnh_len - sizeof(rtnexthop), &StoreAttribute, &hop);
    }
    return {{"destination", NetworkText(header.rtm_family, attributes[RTA_DST], header.rtm_dst_len, "default")},
            {"gateway", NullIfEmpty(GatewayText(header.rtm_family, hop))},
            {"interface", InterfaceAt(interfaceIndex)},
            {"metric", U32Of(attributes[RTA_PRIORITY])},
            {"table", attributes[RTA_TABLE] != nullptr ? U32Of(attributes[RTA_TABLE]) : header.rtm_table},
            {"family", FamilyName(header.rtm_family)},
            {"learnt", IsLearnt(header, attributes)},
            {"source", NullIfEmpty(AddressText(header.rtm_family, attributes[RTA_PREFSRC]))},
            {"local", header.rtm_type == RTN_LOCAL}};
}

Json NeighbourFields(const void* from, const Attributes& attributes) {
    static constexpr std::pair<u16, const char*> kStates[] = {
        {NUD_PERMANENT, "permanent"}, {NUD_REACHABLE, "reachable"},   {NUD_STALE, "stale"},  {NUD_DELAY, "delay"},
        {NUD_PROBE, "probe"},         {NUD_INCOMPLETE, "incomplete"}, {NUD_FAILED, "failed"}};
    const auto& header = *static_cast<const ndmsg*>(from);
    const auto* const state = std::find_if(std::begin(kStates), std::end(kStates),
                                           [&](const auto& one) { return (header.ndm_state & one.first) != 0; });
    // Multicast and loopback addresses need no neighbour: they have none of these states.
    const bool isInet = header.ndm_family == AF_INET || header.ndm_family == AF_INET6;
    if (state == std::end(kStates) || !isInet || (header.ndm_flags & NTF_PROXY) != 0) return {};
    return {{"address", AddressText(header.ndm_family, attributes[NDA_DST])},
            {"mac", MacIn(attributes[NDA_LLADDR])},
            {"interface", InterfaceAt(static_cast<u32>(header.ndm_ifindex))},
            {"state", state->second},
            {"family", FamilyName(header.ndm_family)}};
}

Json RuleFields(const void* from, const Attributes& attributes) {
    constexpr u16 kConditions[] = {FRA_IIFNAME,   FRA_OIFNAME,  FRA_TUN_ID,      FRA_L3MDEV,
                                   FRA_UID_RANGE, FRA_IP_PROTO, FRA_SPORT_RANGE, FRA_DPORT_RANGE};
    const auto& header = *static_cast<const fib_rule_hdr*>(from);
    // A mark of 0 compared with all bits is a condition; the kernel sends its mask alone then.
    const bool hasMark = attributes[FRA_FWMASK] != nullptr;
    const bool hasOthers = header.dst_len != 0 || header.tos != 0 || (header.flags & FIB_RULE_INVERT) != 0 ||
                           (hasMark && U32Of(attributes[FRA_FWMASK]) != ~u32{0}) ||
                           std::any_of(std::begin(kConditions), std::end(kConditions),
                                       [&](u16 one) { return attributes[one] != nullptr; });
    return {{"pref", U32Of(attributes[FRA_PRIORITY])},
            {"from", NetworkText(header.family, attributes[FRA_SRC], header.src_len, "all")},
            {"fwmark", hasMark ? Json(U32Of(attributes[FRA_FWMARK])) : Json()},
            {"table", header.action == FR_ACT_TO_TBL ? U32Of(attributes[FRA_TABLE]) : 0},
            {"family", FamilyName(header.family)},
            {"other_conditions", hasOthers}};
}

// Messages come in kinds of four types: new, gone, asked for, set.
constexpr u16 kActions = 3;
constexpr u16 kGone = 1;
constexpr u16 kAskedFor = 2;

struct MessageKind {
    u16 type;
    const char* event;
    std::size_t headerBytes;
    Json (*fields)(const void* header, const Attributes& attributes);
};

constexpr MessageKind kMessageKinds[] = {
    {RTM_NEWLINK, "link", sizeof(ifinfomsg), &LinkFields},
    {RTM_NEWADDR, "addr", sizeof(ifaddrmsg), &AddressFields},
    {RTM_NEWROUTE, "route", sizeof(rtmsg), &RouteFields},
    {RTM_NEWNEIGH, "neighbour", sizeof(ndmsg), &NeighbourFields},
    {RTM_NEWRULE, "rule", sizeof(fib_rule_hdr), &RuleFields},
};

const MessageKind* FindMessageKind(u16 type) {
    const auto* const found = std::find_if(std::begin(kMessageKinds), std::end(kMessageKinds),
                                           [&](const MessageKind& kind) { return kind.type == (type & ~kActions); });
    return found == std::end(kMessageKinds) ? nullptr : found;
}

}  // namespace

std::size_t HeaderBytes(u16 type) {
    const MessageKind* kind = FindMessageKind(type);
    return kind == nullptr ? 0 : kind->headerBytes;
}

Json DocumentOf(const nlmsghdr* message) {
    const MessageKind* kind = FindMessageKind(message->nlmsg_type);
    if (kind == nullptr || mnl_nlmsg_get_payload_len(message) < kind->headerBytes) return {};
    Attributes attributes{};
    mnl_attr_parse(message, static_cast<unsigned>(kind->headerBytes), &StoreAttribute, &attributes);
    return kind->fields(mnl_nlmsg_get_payload(message), attributes);
}

Json FromKernel(const nlmsghdr* message) {
    const u16 action = message->nlmsg_type & kActions;
    const MessageKind* kind = FindMessageKind(message->nlmsg_type);
    Json fields = DocumentOf(message);
    if (fields.is_null() || action >= kAskedFor) return {};
    if (kind->type == RTM_NEWROUTE) {
        const auto& header = *static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
        if (header.rtm_type != RTN_UNICAST || (header.rtm_flags & RTM_F_CLONED) != 0) return {};
        fields.erase("source");
        fields.erase("local");
    }
    Json event{{"event", kind->event}, {"action", action == kGone ? "removed" : "added"}};
    event.update(fields);
    return event;
}

}  // namespace tessel::ctl
