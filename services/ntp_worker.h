// What happens in a session of the NTP client.
#pragma once

#include <chrono>

#include "services/ntp_client.h"

namespace tessel {

// How long each wait lasts. Tests shorten them while no session runs.
struct NtpTimes {
    std::chrono::milliseconds reply{75000};    // over IPv4
    std::chrono::milliseconds replyV6{10000};  // over IPv6
    std::chrono::milliseconds retry{10000};    // after a query that was not answered
    std::chrono::milliseconds check{100};      // for the answer to a check
    std::chrono::milliseconds handshake{5000};
    std::chrono::milliseconds intervalUnit{1000};
};
extern NtpTimes g_ntpTimes;

}  // namespace tessel

// The bodies of the workers, whose session is a TNtpcInfo. SIGUSR1 harms neither: the first logs it, the second has it
// blocked.
void NtpcThread(tessel::Worker& self, void* session);
void NtpcThreadV6(tessel::Worker& self, void* session);

// Report a synchronisation: that it failed, unless `result` is 0, or by how many seconds the clock was off.
void NtpcSyncCallBack(i32 result, i32 deviation);
void NtpcSyncCallBackV6(i32 result, i32 deviation);
