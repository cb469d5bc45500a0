#include "client/ctl/messages.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "client/ctl/addresses.h"
#include "client/ctl/service_names.h"
#include "core/text.h"
#include "tessel/address.h"
#include "tessel/command.h"
#include "tessel/log.h"
#include "tessel/mac.h"
#include "tessel/mtu.h"
#include "tessel/service.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

template <typename Record>
Record ReadRecord(std::span<const u8> bytes) {
    Record record{};
    memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
    return record;
}

template <std::size_t kBytes>
std::string TextOf(const char (&field)[kBytes]) {
    return FieldText(field).Get();
}

// Requests that are an interface name alone.
ordered_json DescribeInterface(std::span<const u8> bytes) {
    return {{"interface", TextOf(ReadRecord<TNetMtuGetReq>(bytes).achDevName)}};
}

ordered_json DescribeStatus(std::span<const u8> bytes) {
    return {{"result", ReadRecord<TNetStatusReply>(bytes).nResult}};
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

ordered_json DescribeServiceStop(std::span<const u8> bytes) {
    const std::string service = TextOf(ReadRecord<TNetServiceStopReq>(bytes).achServiceName);
    return {{"service", service}, {"process", ProcessOfService(service)}};
}

ordered_json DescribeLogFile(std::span<const u8> bytes) {
    constexpr std::string_view kActions[] = {"none",         "open library", "close library", "open daemon",
                                             "close daemon", "open both",    "close both"};
    const auto request = ReadRecord<LogFileCtl>(bytes);
    return {{"action", kActions[request.eCmd < std::size(kActions) ? request.eCmd : 0]},
            {"library_path", TextOf(request.achLibPath)},
            {"daemon_path", TextOf(request.achDaemonPath)}};
}

ordered_json DescribeLogLevel(std::span<const u8> bytes) {
    return {{"level", ReadRecord<TNetLogLevelReq>(bytes).nLevel}};
}

#define TESSEL_RECORD(record) #record, sizeof(record)

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
    {TESSEL_CMD_SERVICE_STOP,
     "service_stop",
     TESSEL_RECORD(TNetServiceStopReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeServiceStop,
     &DescribeStatus,
     {{{"", "killall -9 {process}"}}}},
    {TESSEL_CMD_LOG_FILE,
     "log_file",
     TESSEL_RECORD(LogFileCtl),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeLogFile,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_LOG_LEVEL,
     "log_level",
     TESSEL_RECORD(TNetLogLevelReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeLogLevel,
     &DescribeStatus,
     {}},
};

std::string ValueText(const ordered_json& value) {
    if (value.is_array()) return fmt::format("{}", fmt::join(value.get<std::vector<std::string>>(), " "));
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string FillIn(std::string_view line, const ordered_json& values) {
    std::string text(line);
    for (const auto& [key, value] : values.items()) {
        const std::string place = "{" + key + "}";
        const std::size_t position = text.find(place);
        if (position != std::string::npos) text.replace(position, place.size(), ValueText(value));
    }
    return text;
}

template <typename Predicate>
const Message* FindIf(Predicate matches) {
    const auto* const found = std::find_if(std::begin(kMessages), std::end(kMessages), matches);
    return found == std::end(kMessages) ? nullptr : found;
}

}  // namespace

std::span<const Message> Messages() {
    return kMessages;
}

const Message* FindMessage(u32 code) {
    return FindIf([&](const Message& message) { return message.code == code; });
}

const Message* FindMessage(std::string_view name) {
    return FindIf([&](const Message& message) { return message.name == name; });
}

std::vector<std::string> ToolLinesFor(const Message& message, const ordered_json& request) {
    const std::string family = request.contains("family") ? request["family"].get<std::string>() : "";
    std::vector<std::string> lines;
    for (const ToolLine& line : message.runs) {
        const bool isMeant = line.family.empty() || family == "both" || line.family == family;
        if (!line.text.empty() && isMeant) lines.push_back(FillIn(line.text, request));
    }
    return lines;
}

std::string DescriptionText(const ordered_json& description) {
    std::string text;
    for (const auto& [key, value] : description.items()) {
        const std::string word = ValueText(value);
        if (!word.empty()) text += fmt::format("{}{} {}", text.empty() ? "" : "   ", key, word);
    }
    return text;
}

}  // namespace tessel::ctl
