// An application that listens for the daemon's reports.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "client/libtessel.h"
#include "core/types.h"

namespace tessel::test {

class Listener {
  public:
    explicit Listener(const char* name) {
        EXPECT_EQ(tessel_listener_open(name, 0, &listener_), TESSEL_OK);
    }
    ~Listener() {
        tessel_listener_close(listener_);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // The next report's type; -1 when none came in time.
    i64 Next(int timeoutMs = 5000) {
        event = {};
        return tessel_listener_next(listener_, &event, timeoutMs) == TESSEL_OK ? i64{event.type} : -1;
    }

    tessel_event event{};  // that came last

  private:
    tessel_listener* listener_ = nullptr;
};

// The same as the library gives it, or the error that it has to give.
inline std::unique_ptr<tessel_listener, decltype(&tessel_listener_close)> OpenListener(const char* name,
                                                                                       unsigned flags = 0,
                                                                                       int expected = TESSEL_OK) {
    tessel_listener* listener = nullptr;
    EXPECT_EQ(tessel_listener_open(name, flags, &listener), expected);
    return {listener, &tessel_listener_close};
}

}  // namespace tessel::test
