#include "client/ctl/perform.h"

#include <poll.h>
#include <unistd.h>

#include "client/call.h"
#include "client/ctl/kernel.h"

namespace tessel::ctl {

Outcome Perform(const Invocation& invocation, const Change& change) {
    const Options& options = invocation.options;
    Outcome outcome;
    const std::string cut = change.guard && !options.force ? change.guard() : "";
    if (!cut.empty() && !options.dryRun) throw Refused(invocation.asked, cut + " (--force does it)");
    if (!cut.empty()) outcome.notes.push_back("would be refused without --force: " + cut);
    const int error = change.send();
    if (error == TESSEL_E_FAILED && change.cause) throw CallFailed(invocation.asked, error, change.cause());
    Require(invocation.asked, error);
    outcome.done = change.done;
    if (options.dryRun || !change.read) return outcome;
    try {
        outcome.document = change.read();
    } catch (Failure& failure) {
        failure.message = Format("{} (it was done, but cannot be read back)", failure.message);
        throw;
    }
    const std::string foreign = change.readsKernel ? ForeignKernel() : "";
    if (!foreign.empty()) {
        outcome.notes.push_back("not read back: " + foreign);
        return outcome;
    }
    const std::string wrong = change.wrong ? change.wrong(outcome.document) : "";
    if (!wrong.empty()) outcome.failure = NotApplied(invocation.asked, "answered success, but " + wrong);
    return outcome;
}

void Agree(const Invocation& invocation, const std::string& question, const std::string& loss) {
    if (invocation.options.yes || invocation.options.dryRun) return;
    const bool canAsk = isatty(STDIN_FILENO) != 0 && isatty(fileno(invocation.err)) != 0 && !invocation.options.json;
    if (!canAsk) throw Refused(invocation.asked, loss + " (--yes does it)");
    (void)std::fputs(Format("{}? [y/N] ", question).c_str(), invocation.err);
    (void)std::fflush(invocation.err);
    pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {StopOfCalls(), POLLIN, 0}};
    while (poll(waits, std::size(waits), -1) < 0 && errno == EINTR) {
    }
    std::array<char, 16> answer{};
    const bool isRead =
        waits[1].revents == 0 && std::fgets(answer.data(), static_cast<int>(answer.size()), stdin) != nullptr;
    if (!isRead || (answer[0] != 'y' && answer[0] != 'Y')) throw Refused(invocation.asked, "not done");
}

void ShowNote(const Invocation& invocation, const std::string& note) {
    const Options& options = invocation.options;
    if (options.json || options.quiet || !options.fields.empty()) return;
    (void)std::fputs(Format("note: {}\n", note).c_str(), invocation.err);
}

}  // namespace tessel::ctl
