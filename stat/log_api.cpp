#include "core/api_reply.h"
#include "core/file_rights.h"
#include "core/log.h"
#include "core/log_control.h"
#include "tessel/log.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

namespace {

// What a code for both files means here: the library's file is the applications' affair.
u32 DaemonCode(u32 code) {
    if (code == TESSEL_LOG_OPEN_BOTH) return TESSEL_LOG_OPEN_DAEMON;
    if (code == TESSEL_LOG_CLOSE_BOTH) return TESSEL_LOG_CLOSE_DAEMON;
    return code;
}

}  // namespace

i32 ApidLogFileManage(int fd, u32 type, const void* payload, i32 size) {
    auto request = ApiRequest<LogFileCtl>(payload, size);
    request.eCmd = DaemonCode(request.eCmd);
    return ApiReplyStatus(fd, type, tessel::ManageDaemonLogFile(request, tessel::PeerOf(fd)),
                          "TesselDebugLevelSet error!");
}

i32 ApidLogSwitch(int fd, u32 type, const void* payload, i32 size) {
    // Without a level there is nothing to set: zero would silence the log.
    if (size < static_cast<i32>(sizeof(TNetLogLevelReq))) {
        TESSEL_ERR("the size is error:size=%d", size);
        return ApiReplyStatus(fd, type, TESSEL_RESULT_FAILED);
    }
    const auto request = ApiRequest<TNetLogLevelReq>(payload, size);
    return ApiReplyStatus(fd, type, TesselDebugLevelSet(request.nLevel));
}
