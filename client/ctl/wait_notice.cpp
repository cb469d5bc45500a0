#include "client/ctl/wait_notice.h"

#include <unistd.h>

#include <condition_variable>
#include <mutex>

namespace tessel::ctl {

namespace {

constexpr std::chrono::seconds kPatience{2};

void TellLater(const std::stop_token& stop, std::FILE* err) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any condition;
    (void)condition.wait_for(lock, stop, kPatience, [] { return false; });  // until stopped or out of patience
    if (stop.stop_requested()) return;
    (void)std::fputs("note: still waiting: the daemon serves one request at a time (--timeout limits this)\n", err);
}

}  // namespace

WaitNotice::WaitNotice(std::FILE* err) {
    if (isatty(fileno(err)) != 0) thread_ = std::jthread(&TellLater, err);
}

}  // namespace tessel::ctl
