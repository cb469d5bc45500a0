// Services, logs and statistics.
#include <cstring>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"
#include "core/log_control.h"

using tessel::CallForStatus;
using tessel::StoreName;

namespace {

// Null and empty mean the default path.
template <std::size_t kFieldBytes>
[[nodiscard]] bool StorePath(char (&field)[kFieldBytes], const char* path) {
    if (path == nullptr) return true;
    const std::size_t length = strlen(path);
    if (length >= kFieldBytes) return false;
    memcpy(field, path, length);
    return true;
}

}  // namespace

int tessel_service_stop(const char* name) {
    TNetServiceStopReq request{};
    if (!StoreName(request.achServiceName, name)) return TESSEL_E_ARGUMENT;
    return CallForStatus(TESSEL_CMD_SERVICE_STOP, request);
}

int tessel_web_start(void) {
    const TNetWebsStartReq request{.dwReserved = 0};
    return CallForStatus(TESSEL_CMD_WEBS_START, request);
}

int tessel_web_stop(void) {
    return CallForStatus(TESSEL_CMD_WEBS_STOP);
}

int tessel_log_level_set(int32_t level) {
    const TNetLogLevelReq request{.nLevel = level};
    return CallForStatus(TESSEL_CMD_LOG_LEVEL, request);
}

int tessel_log_file(int code, const char* lib_path, const char* daemon_path) {
    LogFileCtl request{};
    if (code < TESSEL_LOG_OPEN_LIB || code > TESSEL_LOG_CLOSE_BOTH || !StorePath(request.achLibPath, lib_path) ||
        !StorePath(request.achDaemonPath, daemon_path)) {
        return TESSEL_E_ARGUMENT;
    }
    request.eCmd = static_cast<u32>(code);
    const bool concernsDaemon = code >= TESSEL_LOG_OPEN_DAEMON;
    // Does nothing for the codes that concern only the daemon.
    if (LogLibFileManage(&request) != 0) return TESSEL_E_SYSTEM;
    if (!concernsDaemon) return TESSEL_OK;
    return CallForStatus(TESSEL_CMD_LOG_FILE, request);
}

int tessel_traffic_start(uint32_t interval) {
    if (interval == 0) return TESSEL_E_ARGUMENT;
    const TNetStatStartReq request{.dwInterval = interval};
    return CallForStatus(TESSEL_CMD_STAT_START, request);
}

int tessel_traffic_stop(void) {
    return CallForStatus(TESSEL_CMD_STAT_STOP);
}

int tessel_event_traffic(const tessel_event* event, tessel_traffic traffic[TESSEL_TRAFFIC_INTERFACES]) {
    if (traffic == nullptr) return TESSEL_E_ARGUMENT;
    TNetBandwidthReport report;
    const int error = tessel::ReadEvent(event, TESSEL_EVENT_TRAFFIC, TESSEL_EVENT_TRAFFIC, &report);
    if (error != TESSEL_OK) return error;
    for (int index = 0; index < TESSEL_TRAFFIC_INTERFACES; ++index) {
        const TNetBandwidth band = report.atBand[index];
        tessel_traffic& one = traffic[index];
        one = {.is_valid = band.dwValid == 1 ? 1 : 0,
               .has_restarted = 0,
               .sent_bits_per_second = static_cast<int64_t>(band.ullSendBand),
               .received_bits_per_second = static_cast<int64_t>(band.ullRecvBand)};
        one.has_restarted = one.sent_bits_per_second < 0 || one.received_bits_per_second < 0 ? 1 : 0;
    }
    return TESSEL_OK;
}
