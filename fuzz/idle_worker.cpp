// Workers that never do anything, and a daemon that never sleeps: sessions begin and end at once, and an input leaves
// no thread behind. Linked instead of core/worker.cpp.
#include <unistd.h>

#include "core/worker.h"

namespace tessel {

const Worker* Worker::Current() {
    return nullptr;
}

bool Worker::Start(const char* /*name*/, Body /*body*/, void* /*session*/) {
    if (isRunning_) return false;
    isRunning_ = true;
    isWanted_ = true;
    return true;
}

void Worker::AskToEnd() {
    isWanted_ = false;
}

void Worker::End() {
    isRunning_ = false;
}

bool Worker::AwaitEnd(std::chrono::milliseconds /*limit*/) {
    isRunning_ = false;
    return true;
}

bool Worker::Sleep(std::chrono::milliseconds /*time*/) const {
    return false;
}

Wait Worker::WaitFor(int /*fd*/, short /*events*/, std::chrono::milliseconds /*time*/) const {
    return Wait::kStopped;
}

}  // namespace tessel

// The linker puts this in the place of sleep(3). The fuzzer's own threads do sleep.
extern "C" unsigned __real_sleep(unsigned seconds);   // NOLINT(bugprone-reserved-identifier)
extern "C" unsigned __wrap_sleep(unsigned seconds) {  // NOLINT(bugprone-reserved-identifier)
    return getpid() == gettid() ? 0 : __real_sleep(seconds);
}
