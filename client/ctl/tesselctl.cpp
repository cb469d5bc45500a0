#include "client/ctl/tesselctl.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

constexpr char kCompleteWord[] = "__complete";

void Print(std::FILE* file, const std::string& text) {
    (void)std::fputs(text.c_str(), file);
}

// For people: as wide as their terminal.
void PrintText(std::FILE* file, const std::string& text) {
    winsize size{};
    const bool isTerminal = ioctl(fileno(file), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    Print(file, isTerminal ? Wrapped(text, size.ws_col) : text);
}

bool WantsColour(const Options& options, std::FILE* out) {
    if (options.colour != "auto") return options.colour == "always";
    const auto isSet = [](const char* name) { return getenv(name) != nullptr && *getenv(name) != '\0'; };
    if (isSet("NO_COLOR")) return false;
    return (isSet("CLICOLOR_FORCE") && *getenv("CLICOLOR_FORCE") != '0') || isatty(fileno(out)) != 0;
}

// A daemon that is starting, for as long as --wait says.
void WaitForDaemon(const Options& options) {
    constexpr int kPollMs = 50;
    if (!options.waitMs || options.dryRun) return;
    const auto deadline = Clock::now() + std::chrono::milliseconds(*options.waitMs);
    while (tessel_daemon_is_listening() == 0) {
        if (Clock::now() >= deadline) throw CallFailed("", TESSEL_E_NOT_RUNNING);
        poll(nullptr, 0, kPollMs);
    }
}

ParsedCommand ParseCommand(const Options& options) {
    ParsedCommand parsed = ParseWords(options.words);
    const bool hasFamily = options.inet || options.inet6;
    if (hasFamily && !parsed.command->takesFamily) throw Refused(parsed.asked, "-4 and -6 mean nothing here");
    return parsed;
}

Outcome Run(const Command& command, const Invocation& invocation) {
    Outcome outcome = command.run(invocation);
    const int daemon = tessel_daemon_pid();
    if (daemon != 0 && SharesOurNetwork(daemon) == false)
        outcome.notes.push_back(Format(
            "the daemon (pid {}) is in another network namespace: its interfaces are not those of this shell", daemon));
    return outcome;
}

// What an outcome prints, by the options. Returns the exit status, or throws the outcome's failure.
int ShowOutcome(const Outcome& outcome, const Command& command, const Invocation& invocation) {
    const Options& options = invocation.options;
    std::FILE* const out = invocation.out;
    const bool hasResult = !outcome.document.is_null();
    const bool isForPrograms = options.json || !options.fields.empty();
    if (!options.fields.empty() && hasResult) {
        const auto lines = RenderFields(outcome.document, options.fields);
        if (!lines) throw Refused("--get", "no such field (--json shows them)");
        Print(out, *lines);
    } else if (options.json && (hasResult || !outcome.done.empty())) {
        Print(out, RenderJson(hasResult ? outcome.document : Json::object()));
    } else if (!isForPrograms && !outcome.text.empty()) {
        PrintText(out, outcome.text);
    } else if (!isForPrograms && !outcome.done.empty()) {
        if (!options.quiet && !outcome.failure) PrintText(out, outcome.done + "\n");
    } else if (!isForPrograms && hasResult) {
        PrintText(out, RenderTable(outcome.document, command.columns, !options.noHeader, WantsColour(options, out)));
    }
    (void)std::fflush(out);
    for (const std::string& note : outcome.notes)
        ShowNote(invocation, note);
    if (outcome.failure) throw Failure(*outcome.failure);
    return outcome.signal == 0 ? kExitDone : kExitSignal + outcome.signal;
}

int RunCommand(const Options& options, const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err) {
    const ParsedCommand parsed = ParseCommand(options);
    WaitForDaemon(options);
    (void)tessel_set_timeout_ms(options.timeoutMs);
    UseRequests(options.verbosity, options.dryRun, err);
    const Command& command = *parsed.command;
    const Invocation invocation{parsed.words, options, parsed.asked, out, err};
    if (options.dryRun) {
        Print(out, RenderPlan(Run(command, invocation), options.json));
        return kExitDone;
    }
    const auto& seconds = options.trySeconds;
    return ShowOutcome(seconds ? TryCommand(invocation, *seconds, arguments) : Run(command, invocation), command,
                       invocation);
}

}  // namespace

Outcome RunInner(const std::vector<std::string>& arguments, const Invocation& outer) {
    Outcome outcome;
    try {
        Options options = ParseOptions(arguments);
        options.json = outer.options.json;
        options.dryRun = options.dryRun || outer.options.dryRun;
        options.yes = options.yes || outer.options.yes;
        options.force = options.force || outer.options.force;
        options.quiet = options.quiet || outer.options.quiet;
        const ParsedCommand parsed = ParseCommand(options);
        outcome = Run(*parsed.command, {parsed.words, options, parsed.asked, outer.out, outer.err});
        if (outcome.text.empty() && outcome.done.empty() && !outcome.document.is_null())
            outcome.text = RenderTable(outcome.document, parsed.command->columns, !options.noHeader, false);
    } catch (const Failure& failure) {
        outcome.failure = failure;
    }
    return outcome;
}

int RunTool(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err) {
    if (!arguments.empty() && arguments[0] == kCompleteWord) {
        for (const std::string& offer : Complete({arguments.begin() + 1, arguments.end()}))
            Print(out, offer + "\n");
        return kExitDone;
    }
    try {
        const Options options = ParseOptions(arguments);
        if (options.version) {
            Print(out, options.json ? RenderJson({{"version", TESSEL_VERSION}}) : "tesselctl " TESSEL_VERSION "\n");
            return kExitDone;
        }
        if (options.help) {
            PrintText(out, options.json ? RenderJson({{"help", HelpText(options.words)}}) : HelpText(options.words));
            return kExitDone;
        }
        return RunCommand(options, arguments, out, err);
    } catch (const Failure& failure) {
        Print(err, RenderFailure(failure, WantsJson(arguments)));
        return failure.exit;
    }
}

}  // namespace tessel::ctl
