#include "stat/traffic.h"

#include <chrono>
#include <mutex>
#include <optional>

#include "core/log.h"
#include "core/notify.h"
#include "core/worker.h"

std::FILE* g_fpNetDev = nullptr;

namespace {

using tessel::CounterSample;
using tessel::Worker;

constexpr char kCountersFile[] = "/proc/net/dev";

// The mutex guards everything but the worker, which is the API server's, and the interval, which is set before it runs.
struct Statistics {
    std::mutex mutex;
    bool isRunning = false;   // wanted
    bool hasSampler = false;  // a worker samples, or has failed for good
    u32 interval = 0;
    Worker worker;
};

Statistics& TheStatistics() {
    static Statistics statistics;
    return statistics;
}

// Closes the file when it is open.
void CloseCounters() {
    if (g_fpNetDev != nullptr) fclose(g_fpNetDev);
    g_fpNetDev = nullptr;
}

// Nothing, with a log line, when the file cannot be opened.
std::optional<CounterSample> TakeSample(Statistics& statistics, tessel::CallSite where) {
    const std::lock_guard lock(statistics.mutex);
    g_fpNetDev = fopen(kCountersFile, "re");
    if (g_fpNetDev == nullptr) {
        tessel::LogPerror(where, "fopen error");
        return std::nullopt;
    }
    const CounterSample sample = tessel::ReadCounters(g_fpNetDev);
    CloseCounters();
    return sample;
}

// True while sampling is wanted. When it is not, the next start makes a sampler of its own: nobody can come between
// this answer and that mark.
bool GoesOn(Statistics& statistics) {
    const std::lock_guard lock(statistics.mutex);
    if (!statistics.isRunning) statistics.hasSampler = false;
    return statistics.isRunning;
}

void stat_thread(Worker& self, void* session) {
    Statistics& statistics = *static_cast<Statistics*>(session);
    const tessel::CallSite where = tessel::CallSite::Current();
    std::optional<CounterSample> previous = TakeSample(statistics, where);
    while (previous && GoesOn(statistics)) {
        if (!self.Sleep(std::chrono::seconds(statistics.interval))) return;
        const std::optional<CounterSample> current = TakeSample(statistics, where);
        // A sampler that cannot read its file ends and stays marked: there are no statistics until the next start of
        // the daemon. It has always been so.
        if (!current) return;
        const TNetBandwidthReport report = tessel::BandwidthBetween(*previous, *current, statistics.interval);
        previous = current;
        const i32 result = Notify(tessel::NoticeSocket("%s", TESSEL_SOCKET_STAT), TESSEL_STAT_BANDWIDTH, report);
        if (result != TESSEL_IPC_OK) TESSEL_ERR("send and recv msg error:%d!", result);
    }
}

}  // namespace

namespace tessel {

TNetBandwidthReport BandwidthBetween(const CounterSample& previous, const CounterSample& current, u32 interval,
                                     CallSite where) {
    // Signed: the rate of a counter that has restarted is negative.
    const auto rate = [interval](u64 from, u64 to) {
        return static_cast<u64>(static_cast<i64>((to - from) * 8) / static_cast<i64>(interval));
    };
    TNetBandwidthReport report{};
    for (u32 index = 0; index < TESSEL_TRAFFIC_INTERFACES; ++index) {
        const ByteCounters& before = previous.interfaces[index];
        const ByteCounters& now = current.interfaces[index];
        TNetBandwidth band{};
        if (before.isThere && now.isThere) {
            band.ullSendBand = rate(before.sent, now.sent);
            band.ullRecvBand = rate(before.received, now.received);
            band.dwValid = 1;
        }
        const u32 valid = band.dwValid;
        TESSEL_DBG_AT(where, "index : %u, valid : %d, sendband : %llu, recvband : %llu", index, static_cast<i32>(valid),
                      static_cast<unsigned long long>(band.ullSendBand),
                      static_cast<unsigned long long>(band.ullRecvBand));
        TESSEL_DBG_AT(where, "received : %llu, sent : %llu", static_cast<unsigned long long>(now.received),
                      static_cast<unsigned long long>(now.sent));
        report.atBand[index] = band;
    }
    return report;
}

}  // namespace tessel

i32 stat_start(u32 interval) {
    Statistics& statistics = TheStatistics();
    {
        const std::lock_guard lock(statistics.mutex);
        statistics.isRunning = true;
        if (statistics.hasSampler) return 0;
        statistics.hasSampler = true;
    }
    // The one before has nothing left to do but to end.
    statistics.worker.AskToEnd();
    const bool hasEnded = statistics.worker.AwaitEnd(std::chrono::seconds(5));
    statistics.interval = interval;
    if (hasEnded && statistics.worker.Start("stat_thread", &stat_thread, &statistics)) return 0;
    const std::lock_guard lock(statistics.mutex);
    statistics.isRunning = false;
    statistics.hasSampler = false;
    return -1;
}

i32 stat_stop() {
    Statistics& statistics = TheStatistics();
    const std::lock_guard lock(statistics.mutex);
    statistics.isRunning = false;
    CloseCounters();
    return 0;
}
