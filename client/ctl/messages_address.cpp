#include <algorithm>
#include <cstring>

#include "client/ctl/addresses.h"
#include "client/ctl/messages.h"
#include "client/ctl/record_text.h"
#include "tessel/address.h"
#include "tessel/command.h"
#include "tessel/mac.h"
#include "tessel/mtu.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

// Requests that are an interface name alone.
ordered_json DescribeInterface(std::span<const u8> bytes) {
    return {{"interface", TextOf(ReadRecord<TNetMtuGetReq>(bytes).achDevName)}};
}

std::string EntryText(const TNetIpAddr& entry) {
    return AddressText(ShowAddress(entry));
}

ordered_json DescribeAddrChange(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpaddrChangeReq>(bytes);
    return {{"interface", TextOf(request.achDevName)},
            {"address", EntryText(request.tIp)},
            {"family", FamilyName(request.tIp.wSinFamily)}};
}

ordered_json DescribeAddrSet(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpaddrSetReq>(bytes);
    ordered_json addresses = ordered_json::array();
    for (u32 i = 0; i < std::min<u32>(request.tIfaceIp.dwNum, TESSEL_ADDRESSES_MAX); ++i) {
        addresses.push_back(EntryText(request.tIfaceIp.atIp[i]));
    }
    return {{"interface", TextOf(request.achDevName)},
            {"family", FamilyName(request.wSinFamily)},
            {"addresses", addresses}};
}

template <typename Record>
std::string MacOf(const Record& record) {
    Mac mac;
    memcpy(mac.data(), record.abyMac, mac.size());
    return MacText(mac);
}

ordered_json DescribeMacSet(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetMacaddrSetReq>(bytes);
    return {{"interface", TextOf(request.achDevName)}, {"mac", MacOf(request)}};
}

ordered_json DescribeMac(std::span<const u8> bytes) {
    const auto reply = ReadRecord<TNetMacaddrGetReply>(bytes);
    return {{"result", reply.nResult}, {"mac", MacOf(reply)}};
}

ordered_json DescribeAddrGet(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpaddrGetReq>(bytes);
    return {{"interface", TextOf(request.achDevName)}, {"family", FamilyName(request.wSinFamily)}};
}

ordered_json DescribeAddrList(std::span<const u8> bytes) {
    const auto reply = ReadRecord<TNetIpaddrGetReply>(bytes);
    return {{"result", reply.nResult}, {"addresses", reply.tIfaceIp.dwNum}};
}

ordered_json DescribeAddrInfo(std::span<const u8> bytes) {
    const auto reply = ReadRecord<TNetIpaddrShowReply>(bytes);
    return {{"result", reply.nResult},
            {"mtu", reply.tInfo.mtu},
            {"mac", TextOf(reply.tInfo.mac)},
            {"addresses", reply.tInfo.num}};
}

ordered_json DescribeMtuSet(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetMtuSetReq>(bytes);
    return {{"interface", TextOf(request.achDevName)}, {"mtu", request.dwMtu}};
}

ordered_json DescribeMtu(std::span<const u8> bytes) {
    const auto reply = ReadRecord<TNetMtuGetReply>(bytes);
    return {{"result", reply.nResult}, {"mtu", reply.dwMtu}};
}

constexpr Message kMessages[] = {
    {TESSEL_CMD_IPADDR_ADD,
     "addr_add",
     TESSEL_RECORD(TNetIpaddrChangeReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeAddrChange,
     &DescribeStatus,
     {{{"inet", "ip -4 addr add {address} dev {interface}"}, {"inet6", "ip -6 addr add {address} dev {interface}"}}}},
    {TESSEL_CMD_IPADDR_DEL,
     "addr_del",
     TESSEL_RECORD(TNetIpaddrChangeReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeAddrChange,
     &DescribeStatus,
     {{{"inet", "ip -4 addr del {address} dev {interface}"}, {"inet6", "ip -6 addr del {address} dev {interface}"}}}},
    {TESSEL_CMD_IPADDR_FLUSH,
     "addr_flush",
     TESSEL_RECORD(TNetIpaddrFlushReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeAddrGet,
     &DescribeStatus,
     {{{"inet", "ip -4 addr flush dev {interface}"},
       {"inet6", "ip -6 addr flush scope global permanent dev {interface}"}}}},
    {TESSEL_CMD_IPADDR_SET,
     "addr_set",
     TESSEL_RECORD(TNetIpaddrSetReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeAddrSet,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_MACADDR_SET,
     "mac_set",
     TESSEL_RECORD(TNetMacaddrSetReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeMacSet,
     &DescribeStatus,
     {{{"", "ifconfig {interface} hw ether {mac}"}}}},
    {TESSEL_CMD_MACADDR_GET,
     "mac_get",
     TESSEL_RECORD(TNetMacaddrGetReq),
     TESSEL_RECORD(TNetMacaddrGetReply),
     &DescribeInterface,
     &DescribeMac,
     {{{"", "ip link show dev {interface}"}}}},
    {TESSEL_CMD_IPADDR_GET,
     "addr_get",
     TESSEL_RECORD(TNetIpaddrGetReq),
     TESSEL_RECORD(TNetIpaddrGetReply),
     &DescribeAddrGet,
     &DescribeAddrList,
     {{{"inet", "ip -4 addr show dev {interface}"}, {"inet6", "ip -6 addr show dev {interface}"}}}},
    {TESSEL_CMD_IPADDR_SHOW,
     "addr_show",
     TESSEL_RECORD(TNetIpaddrShowReq),
     TESSEL_RECORD(TNetIpaddrShowReply),
     &DescribeInterface,
     &DescribeAddrInfo,
     {{{"", "ip addr show dev {interface}"}}}},
    {TESSEL_CMD_MTU_SET,
     "mtu_set",
     TESSEL_RECORD(TNetMtuSetReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeMtuSet,
     &DescribeStatus,
     {{{"", "ioctl SIOCSIFMTU (no tool)"}}}},
    {TESSEL_CMD_MTU_GET,
     "mtu_get",
     TESSEL_RECORD(TNetMtuGetReq),
     TESSEL_RECORD(TNetMtuGetReply),
     &DescribeInterface,
     &DescribeMtu,
     {{{"", "ioctl SIOCGIFMTU (no tool)"}}}},
};

}  // namespace

std::span<const Message> AddressMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
