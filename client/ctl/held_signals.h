// Signals that would end the tool before it has put things in order.
#pragma once

#include <csignal>

#include "client/ctl/command.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

// While one lives, SIGINT, SIGTERM and SIGHUP wait in a descriptor: none is lost between a look and a wait. Those that
// the caller of the tool had ignored (nohup does) stay so. SIGPIPE is ignored from then on: writes fail instead.
class HeldSignals {
  public:
    HeldSignals();
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    // Readable when one came.
    [[nodiscard]] int Fd() const {
        return fd_.Get();
    }
    // The next one; 0: none came.
    [[nodiscard]] int Take() const;

  private:
    sigset_t previous_{};
    UniqueFd fd_;
};

}  // namespace tessel::ctl
