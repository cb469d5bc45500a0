// What rules make of the session that a command is typed in.
#pragma once

#include <optional>
#include <string>

#include "client/ctl/failure.h"
#include "client/ctl/firewall_rules.h"
#include "client/ctl/guard.h"

namespace tessel::ctl {

// Whether INPUT lets in the session's packets. A rule with a condition that cannot be told beforehand, such as a
// hardware address or the state of a connection, is taken for one that does not match.
[[nodiscard]] bool LetsIn(const Filter& filter, const Session& session);

// A refusal when these rules would not let in the session. Nothing: they do, or there is none of this family.
[[nodiscard]] std::optional<Failure> WhyShutOut(const std::string& asked, const Filter& planned,
                                                const Options& options);

// The same for a change: nothing as well where the session is not let in without it either, as far as can be told.
[[nodiscard]] std::optional<Failure> WhyShutOut(const std::string& asked, const Filter& now, const Filter& planned,
                                                const Options& options);

}  // namespace tessel::ctl
