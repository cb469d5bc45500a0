// Messages of the kernel over netlink: the walk through them, attributes, routes.
#include "route/monitor/netlink.h"

#include "core/exec_note.h"
#include "fuzz/fuzz.h"
#include "route/monitor/default_route.h"

namespace {

using tessel::fuzz::BytesOf;
using tessel::fuzz::Require;

std::string Attribute(u16 type, u32 value) {
    return BytesOf(rtattr{.rta_len = 8, .rta_type = type}) + BytesOf(value);
}

std::string Route(const std::string& attributes) {
    rtmsg route{};
    route.rtm_family = 2;
    route.rtm_table = RT_TABLE_MAIN;
    route.rtm_type = RTN_UNICAST;
    route.rtm_scope = RT_SCOPE_UNIVERSE;
    nlmsghdr header{};
    header.nlmsg_type = RTM_NEWROUTE;
    header.nlmsg_len = static_cast<u32>(sizeof(header) + sizeof(route) + attributes.size());
    return BytesOf(header) + BytesOf(route) + attributes;
}

}  // namespace

std::vector<std::string> tessel::fuzz::Seeds() {
    const std::string route =
        Attribute(RTA_TABLE, RT_TABLE_MAIN) + Attribute(RTA_GATEWAY, 0x0100000a) + Attribute(RTA_OIF, 1);
    return {Route(route), Route(route + Attribute(RTA_PRIORITY, 5)), Route(route) + Route(Attribute(RTA_DST, 10))};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<u8> bytes(data, data + size);  // aligned, as a receive buffer is
    std::span<const u8> rest(bytes);
    while (const nlmsghdr* const message = tessel::NextMessage(rest)) {
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
    Require(tessel::MsUntilDueRoute() >= 0 && tessel::TakeToolLines().empty());
    return 0;
}
