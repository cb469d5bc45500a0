// NTP clients: the machine's clocks kept in step with one server of each family.
//
// A session asks its server, sets the clocks, reports to TESSEL_SOCKET_NTP or TESSEL_SOCKET_NTPV6 and sleeps, until it
// is stopped. Commands come one at a time; the worker reads its own record, which nobody changes while it runs, except
// for the flag.
#pragma once

#include <pthread.h>

#include <atomic>

#include "core/types.h"
#include "core/worker.h"
#include "tessel/ntp.h"

struct TNtpcInfo {
    TNtpcInfo* next = nullptr;
    u16 wSinFamily = 0;  // 2 or 10
    TNetGateway tServer{};
    std::atomic<u32> isRunning{0};            // from a successful start to a stop, also when the worker has ended
    std::atomic<pthread_t> tNtpcThreadID{0};  // the worker's, which clears it as it ends, but not without a socket
    u32 dwSyncTimeInterval = 0;               // seconds; 0 counts as 1
    int startSemaphore = -1;                  // IPv4: given back by the worker when it runs
    tessel::Worker worker;
};

// The record of IPv4, followed by that of IPv6. Null without memory.
extern TNtpcInfo* g_ptDaeNtpcInfo;

// Makes both records and the semaphore of the start. 0, or -1 with a log line.
i32 DaemonNtpcInit();

// Null, with a log line, for any family other than 2 and 10.
[[nodiscard]] TNtpcInfo* DaeFamilyMapNtpcInfo(u16 family);

// Starts the session of the server's family, which asks every `interval` seconds. IPv4: takes up to twice 5 seconds
// when others hold the semaphore. 0, or -1 with a log line, also when the session runs.
[[nodiscard]] i32 NtpcStart(const TNetGateway& server, u32 interval);

// Ends the session of a family, whatever it waits for. 0, also when none runs, or -1 with a log line.
[[nodiscard]] i32 NtpcStop(u16 family);

// Whether the server answers within 100 ms. 0, or -1 with a log line. No clock is touched.
[[nodiscard]] i32 NtpcCheck(const TNetGateway& server);
