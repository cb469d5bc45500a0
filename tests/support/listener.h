// An application that listens for the daemon's reports.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "client/libtessel.h"
#include "core/types.h"

namespace tessel::test {

// A listener as the library gives it, or the error that it has to give.
using OpenedListener = std::unique_ptr<tessel_listener, decltype(&tessel_listener_close)>;

inline OpenedListener OpenListener(const char* name, unsigned flags = 0, int expected = TESSEL_OK) {
    tessel_listener* listener = nullptr;
    EXPECT_EQ(tessel_listener_open(name, flags, &listener), expected);
    return {listener, &tessel_listener_close};
}

class Listener {
  public:
    explicit Listener(const char* name) : listener_(OpenListener(name)) {}

    // The next report's type; -1 when none came in time.
    i64 Next(int timeoutMs = 5000) {
        event = {};
        return tessel_listener_next(listener_.get(), &event, timeoutMs) == TESSEL_OK ? i64{event.type} : -1;
    }

    tessel_event event{};  // that came last

  private:
    OpenedListener listener_;
};

}  // namespace tessel::test
