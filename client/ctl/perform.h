// The one sequence of a change: guard, send, cause of a failure, read back.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

struct Change {
    std::function<int()> send;  // calls of libtessel; the first error ends it
    // Why it would end the session that it is typed in; empty: it does not. Not asked with --force.
    std::function<std::string()> guard = {};
    // Why the daemon answered -1; empty: not known.
    std::function<std::string()> cause = {};
    // What there is now, as a document; may throw. Without it the answer is all that is known.
    std::function<Json()> read = {};
    // What did not happen, by what was read: "eth0 does not have 192.168.1.20/24". Empty: everything did.
    std::function<std::string(const Json& now)> wrong = {};
    // What is read is the kernel's: where that is not the daemon's own, nothing is called wrong, and a note says so.
    bool readsKernel = false;
    std::string done = {};  // "eth0   192.168.1.20/24 added"
};

[[nodiscard]] Outcome Perform(const Invocation& invocation, const Change& change);

// Throws a Failure unless somebody agreed, by --yes or on the terminal, or nothing will be done at all (--dry-run).
// `question` is "Empty /tmp/log (3 bytes)"; `loss` what is said where nobody can be asked: "it has 3 bytes".
void Agree(const Invocation& invocation, const std::string& question, const std::string& loss);

// On standard error at once, for people alone; what can wait belongs into Outcome::notes.
void ShowNote(const Invocation& invocation, const std::string& note);

}  // namespace tessel::ctl
