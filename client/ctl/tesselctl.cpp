#include "client/ctl/tesselctl.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "client/ctl/complete.h"
#include "client/ctl/grammar.h"
#include "client/ctl/help.h"
#include "client/ctl/note.h"
#include "client/ctl/processes.h"
#include "client/ctl/trace.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

constexpr char kCompleteWord[] = "__complete";

bool IsSet(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr && value[0] != '\0' && std::string_view(value) != "0";
}

bool WantsColour(const Options& options, std::FILE* out) {
    if (options.colour != "auto") return options.colour == "always";
    const char* noColour = getenv("NO_COLOR");
    if (noColour != nullptr && noColour[0] != '\0') return false;
    return IsSet("CLICOLOR_FORCE") || isatty(fileno(out)) != 0;
}

int ShowFailure(const Failure& failure, bool asJson, std::FILE* err) {
    fmt::print(err, "{}", RenderFailure(failure, asJson));
    return failure.exit;
}

// A daemon that is starting, for as long as --wait says.
std::optional<Failure> WaitForDaemon(const Options& options) {
    constexpr int kPollMs = 50;
    using Clock = std::chrono::steady_clock;
    if (!options.waitMs || options.dryRun) return std::nullopt;
    const auto deadline = Clock::now() + std::chrono::milliseconds(*options.waitMs);
    while (tessel_daemon_is_listening() == 0) {
        if (Clock::now() >= deadline) return CallFailed("", TESSEL_E_NOT_RUNNING);
        poll(nullptr, 0, kPollMs);
    }
    return std::nullopt;
}

int PrintCompletions(const std::vector<std::string>& arguments, std::FILE* out) {
    for (const std::string& offer : Complete({arguments.begin() + 1, arguments.end()}))
        fmt::print(out, "{}\n", offer);
    return kExitDone;
}

int ShowPlan(const Outcome& outcome, const Options& options, std::FILE* out, std::FILE* err) {
    if (outcome.failure && outcome.failure->exit != kExitDone) return ShowFailure(*outcome.failure, options.json, err);
    fmt::print(out, "{}", RenderPlan(PlannedRequests(), outcome.planned, outcome.notes, options.json));
    return kExitDone;
}

int RunCommand(const Options& options, std::FILE* out, std::FILE* err) {
    auto parsed = ParseWords(options.words);
    if (const auto* failure = std::get_if<Failure>(&parsed)) return ShowFailure(*failure, options.json, err);
    const auto& [command, words] = std::get<ParsedCommand>(parsed);
    if ((options.inet || options.inet6) && !command->takesFamily) {
        return ShowFailure(Refused(TitleOf(*command), "-4 and -6 mean nothing here"), options.json, err);
    }
    if (const auto failure = WaitForDaemon(options)) return ShowFailure(*failure, options.json, err);
    (void)tessel_set_timeout_ms(options.timeoutMs);
    StartTrace(options.verbosity, options.dryRun, err);
    Outcome outcome = command->run({.words = words, .options = options, .out = out, .err = err});
    const int daemon = tessel_daemon_pid();
    if (daemon != 0 && SharesOurNetwork(daemon) == false) {
        outcome.notes.push_back(
            fmt::format("the daemon (pid {}) has another network: its interfaces are not those of "
                        "this shell",
                        daemon));
    }
    return options.dryRun ? ShowPlan(outcome, options, out, err) : ShowOutcome(outcome, options, out, err);
}

}  // namespace

int ShowOutcome(const Outcome& outcome, const Options& options, std::FILE* out, std::FILE* err) {
    const bool hasResult = !outcome.document.is_null();
    if (!options.fields.empty() && hasResult) {
        const auto lines = RenderFields(outcome.document, options.fields);
        if (!lines) return ShowFailure(Refused("--get", "no such field (--json shows them)"), options.json, err);
        fmt::print(out, "{}", *lines);
    } else if (options.json && hasResult) {
        fmt::print(out, "{}", RenderJson(outcome.document));
    } else if (!outcome.done.empty()) {
        if (!options.quiet && !outcome.failure) fmt::print(out, "{}\n", outcome.done);
    } else if (!outcome.failure || !outcome.table.rows.empty()) {
        fmt::print(out, "{}", RenderTable(outcome.table, !options.noHeader, WantsColour(options, out)));
    }
    fflush(out);
    for (const std::string& note : outcome.notes)
        ShowNote(note, options, err);
    if (outcome.failure) return ShowFailure(*outcome.failure, options.json, err);
    return outcome.signal == 0 ? kExitDone : kExitSignal + outcome.signal;
}

int RunTool(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err) {
    if (!arguments.empty() && arguments[0] == kCompleteWord) return PrintCompletions(arguments, out);
    auto parsed = ParseOptions(arguments);
    if (const auto* failure = std::get_if<Failure>(&parsed)) return ShowFailure(*failure, WantsJson(arguments), err);
    const auto& options = std::get<Options>(parsed);
    if (options.version) {
        fmt::print(out, "tesselctl {}\n", TESSEL_VERSION);
        return kExitDone;
    }
    if (options.help) {
        fmt::print(out, "{}", HelpText(options.words));
        return kExitDone;
    }
    return RunCommand(options, out, err);
}

}  // namespace tessel::ctl
