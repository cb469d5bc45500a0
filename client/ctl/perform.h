// The one sequence of a change: guard, send, cause of a failure, read back. Also what judges it beforehand, so that a
// remote session does not cut itself off, and what is between the commands and the daemon: -v shows what passes,
// --dry-run keeps changes here and asks what would run.
#pragma once

#include "client/ctl/command.h"
#include "client/ctl/filter.h"

namespace tessel::ctl {

struct Change {
    std::function<int()> send;  // calls of libtessel; the first error ends it
    // Why it would end the session that it is typed in; empty: it would not. Not asked with --force.
    std::function<std::string()> guard = {};
    // Why the daemon answered -1; empty: not known.
    std::function<std::string()> cause = {};
    // The present state, as a document; may throw. Without it the answer is all that is known.
    std::function<Json()> read = {};
    // What did not happen, by what was read: "eth0 does not have 192.168.1.20/24". Empty: everything did.
    std::function<std::string(const Json& now)> wrong = {};
    // What is read is the kernel's: if that is not the daemon's own, nothing is called wrong, and a note says so.
    bool readsKernel = false;
    std::string done = {};  // "eth0   192.168.1.20/24 added"
};

[[nodiscard]] Outcome Perform(const Invocation& invocation, const Change& change);

// Throws a Failure unless somebody agreed, by --yes or on the terminal, or nothing will be done at all (--dry-run).
// `question` is "Empty /tmp/log (3 bytes)"; `loss` what is said where nobody can be asked: "it has 3 bytes".
void Agree(const Invocation& invocation, const std::string& question, const std::string& loss);

// On standard error immediately, only for people; what can wait belongs in Outcome::notes.
void ShowNote(const Invocation& invocation, const std::string& note);

// A host that must not be shut out and, as far as known, its connection to the device.
struct Session {
    std::string text;  // "your session comes from 192.168.1.77"
    Network peer;
    std::optional<Network> device = {};
    std::optional<u32> devicePort = {};
    std::optional<u32> peerPort = {};
};

// The session of --protect's host, else of the one that this is typed from (SSH_CONNECTION); nothing: there is neither.
[[nodiscard]] std::optional<Session> GuardedSession(const Options& options);

// That one, and every host with an established TCP connection to port 22 or 23, as the kernel knows them.
[[nodiscard]] std::vector<Session> KnownSessions(const Options& options);

// The established connections of "tcp" or "udp", without a text.
[[nodiscard]] std::vector<Session> Connections(const std::string& protocol);

// Why losing the device's addresses for which `isLost` holds, or those of this interface (of any, when it is empty),
// would end the guarded session: "your session runs over 192.168.1.20". Empty: it would not.
[[nodiscard]] std::string CutsSession(const Options& options, const std::function<bool(const Network& device)>& isLost);
[[nodiscard]] std::string CutsSessionOn(const Options& options, const std::string& interfaceName);

// Whether the packets of a session reach the device (INPUT, destination port) and its answers leave it (OUTPUT, source
// port). What cannot be judged does not match.
[[nodiscard]] bool LetsThrough(const Filter& filter, const Session& session);

// Whether an entry of the whitelist covers every address of a network, whatever else the packet is.
[[nodiscard]] bool IsListed(const Filter& filter, const Network& network);

// From now on every call of libtessel in this process is shown on `err` (verbosity 1; 2 with bytes). With isDryRun it
// is noted: requests that only ask are sent, where there is a daemon; others succeed here, with a reply of zeros.
void UseRequests(int verbosity, bool isDryRun, std::FILE* err);

// What the requests that `send` makes would do to the packet filter. None of them is sent.
[[nodiscard]] FilterPlan PlanFilters(const std::function<int()>& send);

// What was noted since UseRequests, for people or as JSON, with what the outcome says that this side would do itself
// and what is worth knowing beforehand.
[[nodiscard]] std::string RenderPlan(const Outcome& outcome, bool asJson);

// Applies what the daemon would run to the filters first: the guard judges the result, losing entries needs a yes, and
// the kernel is compared with it afterwards. Enabling a list that would shut out other sessions needs a yes, too.
[[nodiscard]] Outcome ChangeFilter(const Invocation& invocation, const std::string& done,
                                   const std::function<int()>& send, std::string_view enabledList = {});

// As Perform, guarded by what comes of the plan; its losses are asked about. With --dry-run both become notes.
[[nodiscard]] Outcome PerformPlan(const Invocation& invocation, const FilterPlan& plan, Change change);

// Their rows are in firewall.cpp.
[[nodiscard]] Outcome FirewallExport(const Invocation& invocation);
[[nodiscard]] Outcome FirewallImport(const Invocation& invocation);

}  // namespace tessel::ctl
