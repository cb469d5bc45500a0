// Tells the person at the terminal why nothing happens.
#pragma once

#include <thread>

#include "client/ctl/command.h"

namespace tessel::ctl {

// While one lives longer than two seconds, a line says what is waited for. Silent unless `err` is a terminal.
class WaitNotice {
  public:
    explicit WaitNotice(std::FILE* err);

  private:
    std::jthread thread_;  // asked to stop, and joined, with the notice
};

}  // namespace tessel::ctl
