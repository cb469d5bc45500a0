#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>

#include <bit>

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

// After `skipped` bytes. Empty: not of the size that the family's addresses have.
std::string AddressText(int family, const nlattr* attribute, std::size_t skipped = 0) {
    char text[INET6_ADDRSTRLEN] = "";
    const std::size_t size = skipped + (family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr));
    if (attribute != nullptr && mnl_attr_get_payload_len(attribute) == size)
        inet_ntop(family, static_cast<const u8*>(mnl_attr_get_payload(attribute)) + skipped, text, sizeof(text));
    return text;
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

Json LinkFields(const void* from, const Attributes& attributes) {
    const auto& header = *static_cast<const ifinfomsg*>(from);
    if (attributes[IFLA_IFNAME] == nullptr) return {};
    Attributes info{};
    if (attributes[IFLA_LINKINFO] != nullptr) mnl_attr_parse_nested(attributes[IFLA_LINKINFO], &StoreAttribute, &info);
    const nlattr* kind = info[IFLA_INFO_KIND];
    const char* const carrier = (header.ifi_flags & IFF_RUNNING) != 0 ? "up" : "no carrier";
    return {{"interface", mnl_attr_get_str(attributes[IFLA_IFNAME])},
            {"state", (header.ifi_flags & IFF_UP) == 0 ? "down" : carrier},
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
    return {{"interface", InterfaceAt(header.ifa_index)},
            {"address", AddressText(header.ifa_family, own)},
            {"prefix_length", header.ifa_prefixlen},
            {"family", FamilyName(header.ifa_family)},
            {"scope", ScopeText(header.ifa_scope)},
            {"dynamic", (header.ifa_flags & IFA_F_PERMANENT) == 0},
            {"tentative", (header.ifa_flags & IFA_F_TENTATIVE) != 0}};
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
    // A gateway may be of another family: RFC 5549 has IPv4 routes through IPv6 neighbours.
    const auto* via = StructureIn<rtvia>(hop[RTA_VIA]);
    const std::string gateway = via == nullptr ? AddressText(header.rtm_family, hop[RTA_GATEWAY])
                                               : AddressText(via->rtvia_family, hop[RTA_VIA], sizeof(rtvia));
    // What came from router advertisements expires by itself; nothing else that lasts does.
    const auto* cache = StructureIn<rta_cacheinfo>(attributes[RTA_CACHEINFO]);
    const bool isLearnt = header.rtm_protocol == RTPROT_RA || (cache != nullptr && cache->rta_expires != 0);
    return {{"destination", NetworkText(header.rtm_family, attributes[RTA_DST], header.rtm_dst_len, "default")},
            {"gateway", NullIfEmpty(gateway)},
            {"interface", InterfaceAt(interfaceIndex)},
            {"metric", U32Of(attributes[RTA_PRIORITY])},
            {"table", attributes[RTA_TABLE] != nullptr ? U32Of(attributes[RTA_TABLE]) : header.rtm_table},
            {"family", FamilyName(header.rtm_family)},
            {"learnt", isLearnt},
            {"source", NullIfEmpty(AddressText(header.rtm_family, attributes[RTA_PREFSRC]))},
            {"local", header.rtm_type == RTN_LOCAL}};
}

Json NeighbourFields(const void* from, const Attributes& attributes) {
    // By their bits. Multicast and loopback addresses need no neighbour: they have none of these states.
    constexpr std::array<const char*, 17> kStates = {"incomplete", "reachable", "stale", "delay",
                                                     "probe",      "failed",    nullptr, "permanent"};
    const auto& header = *static_cast<const ndmsg*>(from);
    const char* const state = kStates[static_cast<std::size_t>(std::countr_zero(header.ndm_state))];
    if (state == nullptr || (header.ndm_flags & NTF_PROXY) != 0) return {};
    return {{"address", AddressText(header.ndm_family, attributes[NDA_DST])},
            {"mac", MacIn(attributes[NDA_LLADDR])},
            {"interface", InterfaceAt(static_cast<u32>(header.ndm_ifindex))},
            {"state", state},
            {"family", FamilyName(header.ndm_family)}};
}

Json RuleFields(const void* from, const Attributes& attributes) {
    constexpr u16 kConditions[] = {FRA_IIFNAME,   FRA_OIFNAME,  FRA_TUN_ID,      FRA_L3MDEV,
                                   FRA_UID_RANGE, FRA_IP_PROTO, FRA_SPORT_RANGE, FRA_DPORT_RANGE};
    const auto& header = *static_cast<const fib_rule_hdr*>(from);
    // A mark of 0 compared with all bits is a condition; the kernel then sends only its mask.
    const bool hasMark = attributes[FRA_FWMASK] != nullptr;
    const bool hasOthers = header.dst_len != 0 || header.tos != 0 || (header.flags & FIB_RULE_INVERT) != 0 ||
                           (hasMark && U32Of(attributes[FRA_FWMASK]) != ~u32{0}) ||
                           std::ranges::any_of(kConditions, [&](u16 one) { return attributes[one] != nullptr; });
    return {{"pref", U32Of(attributes[FRA_PRIORITY])},
            {"from", NetworkText(header.family, attributes[FRA_SRC], header.src_len, "all")},
            {"fwmark", hasMark ? Json(U32Of(attributes[FRA_FWMARK])) : Json()},
            {"table", header.action == FR_ACT_TO_TBL ? U32Of(attributes[FRA_TABLE]) : 0},
            {"family", FamilyName(header.family)},
            {"other_conditions", hasOthers}};
}

}  // namespace

Json FromKernel(const nlmsghdr* message, bool isWay) {
    // Each type is followed by the one for its removal.
    static constexpr struct {
        u16 type;
        const char* event;
        std::size_t headerBytes;
        Json (*fields)(const void* header, const Attributes& attributes);
    } kKinds[] = {{RTM_NEWLINK, "link", sizeof(ifinfomsg), &LinkFields},
                  {RTM_NEWADDR, "addr", sizeof(ifaddrmsg), &AddressFields},
                  {RTM_NEWROUTE, "route", sizeof(rtmsg), &RouteFields},
                  {RTM_NEWNEIGH, "neighbour", sizeof(ndmsg), &NeighbourFields},
                  {RTM_NEWRULE, "rule", sizeof(fib_rule_hdr), &RuleFields}};
    for (const auto& [type, event, headerBytes, fields] : kKinds) {
        const bool isGone = message->nlmsg_type == type + 1;
        if (message->nlmsg_type != type && !isGone) continue;
        if (mnl_nlmsg_get_payload_len(message) < headerBytes) break;
        const void* header = mnl_nlmsg_get_payload(message);
        // Every header begins with the family. Bridges and multicast routing have entries of their own.
        const u8 family = *static_cast<const u8*>(header);
        if (family != AF_INET && family != AF_INET6 && (family != AF_UNSPEC || type != RTM_NEWLINK)) break;
        Attributes attributes{};
        mnl_attr_parse(message, static_cast<unsigned>(headerBytes), &StoreAttribute, &attributes);
        Json document = fields(header, attributes);
        if (document.is_null() || isWay) return document;
        if (type == RTM_NEWROUTE) {
            const auto& route = *static_cast<const rtmsg*>(header);
            if (route.rtm_type != RTN_UNICAST || (route.rtm_flags & RTM_F_CLONED) != 0) break;
            document.erase("source");
            document.erase("local");
        }
        if ((message->nlmsg_flags & NLM_F_MULTI) != 0) return document;
        Json change{{"event", event}, {"action", isGone ? "removed" : "added"}};
        change.update(document);
        return change;
    }
    return {};
}

}  // namespace tessel::ctl
