// Messages of the kernel over netlink: the walk through them, attributes, routes.
#include "route/monitor/netlink.h"

#include "core/exec_note.h"
#include "fuzz/fuzz.h"
#include "route/monitor/default_route.h"

namespace tessel::fuzz {

namespace {

std::string Attribute(u16 type, u32 value) {
    return BytesOf(rtattr{.rta_len = 8, .rta_type = type}) + BytesOf(value);
}

std::string Route(const std::string& attributes) {
    const rtmsg route{2, 0, 0, 0, RT_TABLE_MAIN, 0, RT_SCOPE_UNIVERSE, RTN_UNICAST, 0};
    const auto size = static_cast<u32>(sizeof(nlmsghdr) + sizeof(route) + attributes.size());
    const nlmsghdr header{size, RTM_NEWROUTE, 0, 0, 0};
    return BytesOf(header) + BytesOf(route) + attributes;
}

}  // namespace

std::vector<std::string> Seeds() {
    const std::string route =
        Attribute(RTA_TABLE, RT_TABLE_MAIN) + Attribute(RTA_GATEWAY, 0x0100000a) + Attribute(RTA_OIF, 1);
    return {Route(route), Route(route + Attribute(RTA_PRIORITY, 5)), Route(route) + Route(Attribute(RTA_DST, 10))};
}

void TryInput(Input input) {
    const std::vector<u8> bytes = input.TakeRest();  // aligned, as a receive buffer is
    std::span<const u8> rest(bytes);
    while (const nlmsghdr* const message = NextMessage(rest)) {
        const u8* const begin = reinterpret_cast<const u8*>(message);
        Require(message->nlmsg_len >= sizeof(nlmsghdr) && begin >= bytes.data());
        Require(begin + message->nlmsg_len <= bytes.data() + bytes.size() && rest.size() < bytes.size());
        const rtattr* table[RTA_MAX + 1];
        const auto* const first = static_cast<const rtattr*>(NLMSG_DATA(message));
        ParseRtAttr(table, RTA_MAX, first, static_cast<i32>(message->nlmsg_len - sizeof(nlmsghdr)));
        for (const rtattr* const attribute : table) {
            if (attribute == nullptr) continue;
            Require(attribute->rta_len >= sizeof(rtattr));
            Require(reinterpret_cast<const u8*>(attribute) + attribute->rta_len <= begin + message->nlmsg_len);
        }
        ProcessRtMsg(message);
    }
    Require(MsUntilDueRoute() >= 0 && TakeToolLines().empty());
}

}  // namespace tessel::fuzz
