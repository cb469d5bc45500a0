#include <iterator>

#include "client/ctl/messages.h"
#include "client/ctl/record_text.h"
#include "client/ctl/service_names.h"
#include "tessel/command.h"
#include "tessel/log.h"
#include "tessel/service.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

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

constexpr Message kMessages[] = {
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

}  // namespace

std::span<const Message> DeviceMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
