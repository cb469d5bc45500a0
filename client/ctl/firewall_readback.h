// Whether a command of the firewall happened, and why not.
#pragma once

#include <functional>
#include <string>

#include "client/ctl/command.h"
#include "client/ctl/firewall_rules.h"

namespace tessel::ctl {

// What is not as the command wants it in the rules of one family; empty: nothing.
using FindFault = std::function<std::string(const Filter& filter)>;

// The outcome of a request that was answered. Success is read back: exit 5 with the fault. A failure is told with what
// `cause` finds.
[[nodiscard]] Outcome ReadBack(const std::string& asked, int error, const Options& options, const FindFault& fault,
                               const FindFault& cause);

// TESSEL_PROTOCOL_... for -4 and -6.
[[nodiscard]] int ProtocolsOf(const Options& options);

}  // namespace tessel::ctl
