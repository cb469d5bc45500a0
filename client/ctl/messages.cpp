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
