// What can be read back of the device's settings, as one document, and the commands that lead from one to another.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// {"interfaces": [{"interface", "mtu", "mac", "addresses": ["192.168.1.20/24"], "gateways": ["192.168.1.1"]}],
//  "priorities": [{"interface", "metric"}], "routes": [{"destination", "gateway", "interface", "metric"}],
//  "rules": [{"pref", "from", "fwmark" or null, "table"}]}
// Without what appears by itself: link-local and learnt addresses, learnt routes, the kernel's own routes and rules.
// With `isWhole`, for TakeBack, everything that can be restored, and what it takes to see whether all of it is:
// gateways are routes then, and routes have a "table". Throws a Failure.
[[nodiscard]] Json ReadState(const std::string& asked, bool isWhole = false);

// A step is a command's words: {"addr", "set", "dev", "eth0", "192.168.1.20/24"}.
using Step = std::vector<std::string>;

// What to run, in order, to turn `now` into `wanted`. What `wanted` does not name is left alone.
[[nodiscard]] std::vector<Step> StepsBetween(const Json& now, const Json& wanted);

// Runs those steps, without asking, and reads back; once more if a step undid another's work. The document has a row
// for each setting that was not, or is not, as `wanted`:
//   {"setting", "was", "wanted", "now", "result": "as before" or "not as before"}, "before" being `word` here.
// The notes say what went wrong with individual steps.
[[nodiscard]] Outcome BringTo(const Json& wanted, const Invocation& outer, std::string_view word);

// Brings a whole state back as BringTo does, packet filters first: with a row for whatever else is not as before.
[[nodiscard]] Outcome TakeBack(const Json& state, const Invocation& outer);

// For the commands that write `text` to their FILE: standard output without one or for "-". `what` says what is in it.
[[nodiscard]] Outcome ExportText(const Invocation& invocation, const std::string& text, const std::string& what,
                                 const Json& json);

// Whether every row is "as ...".
[[nodiscard]] bool IsAllAs(const Json& rows);

}  // namespace tessel::ctl
