// A change that is taken back unless it is confirmed. What takes it back is the guardian, a process of its own.
#include <poll.h>
#include <unistd.h>

#include <csignal>

#include "client/ctl/guardian.h"
#include "client/ctl/held_signals.h"
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/state.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

constexpr int kPollMs = 100;

void Say(const Invocation& outer, const std::string& text) {
    if (outer.options.json || outer.options.quiet) return;
    fputs(text.c_str(), outer.err);
    fflush(outer.err);
}

// What stays whatever happens: said before.
std::string WhatStays(const Saved& saved, const std::string& object) {
    constexpr std::string_view kSettings[] = {"addr",  "apply", "link",  "gateway", "priority",
                                              "route", "rule",  "table", "firewall"};
    const bool isSetting = std::any_of(std::begin(kSettings), std::end(kSettings),
                                       [&](std::string_view name) { return name.starts_with(object); });
    if (!isSetting) return Format("only settings are taken back: what \"{}\" starts or ends stays so", object);
    if (object[0] != 'p' || !saved.state.at("priorities").empty()) return "";
    return "the first priorities since the daemon's start cannot be taken back, only changed";
}

// Until the guardian has ended. Returns the signal that ended the wait instead.
int AwaitDecision(const Invocation& outer, const Guardian& guardian, const HeldSignals& signals, u32 seconds) {
    const bool isTerminal = isatty(fileno(outer.err)) != 0;
    int input = isatty(STDIN_FILENO) != 0 ? STDIN_FILENO : -1;
    Say(outer, input >= 0 ? "Keep it? Enter here, or \"tesselctl try confirm\" from any session.\n"
                          : "Keep it? \"tesselctl try confirm\" does.\n");
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    long long shown = -1;
    while (!guardian.IsOver()) {
        const long long left = std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now()).count();
        if (isTerminal && left >= 0 && left != shown) Say(outer, Format("\r{:>5} s ", shown = left));
        pollfd waits[] = {{.fd = input, .events = POLLIN, .revents = 0},
                          {.fd = signals.Fd(), .events = POLLIN, .revents = 0}};
        if (poll(waits, std::size(waits), kPollMs) <= 0) continue;
        if (waits[0].revents != 0) {
            char line[256];
            if (read(input, line, sizeof(line)) > 0) guardian.Send(Guardian::kKeep);
            input = -1;
        }
        const int signal = signals.Take();
        if (signal == SIGHUP) return signal;  // another session may confirm it
        if (signal != 0) guardian.Send(Guardian::kTakeBack);
    }
    if (isTerminal) Say(outer, "\r");
    return 0;
}

// What the guardian left behind, as an outcome.
Outcome EndOf(const Invocation& invocation, const Json& document, const std::string& before) {
    Outcome outcome;
    const std::string state = TextOf(document, "state");
    if (state == kKept) {
        outcome.document = document;
        outcome.done = TextOf(document, "command") + "   kept";
        return outcome;
    }
    if (state != kTakenBack) throw Failed(invocation.asked, "the process that was to take it back has ended");
    const Json& rows = outcome.document = document.at("results");
    outcome.notes = document.at("problems");
    outcome.text = RenderTable(rows, " {setting}| {now}| {result}", false, false);
    const std::string_view rest = IsAllAs(rows) ? "everything is as before" : "not everything is as before";
    outcome.failure = Failure(kExitUndone, "undone", Format("{}taken back, {}", before, rest));
    return outcome;
}

Outcome Try(const Invocation& invocation) {
    constexpr u32 kSeconds = 60;
    const Options& options = invocation.options;
    const std::size_t before = options.words.size() - options.wordsBehindDashes;
    if (options.wordsBehindDashes == 0 || before > 2)
        throw Refused(invocation.asked, R"(the command stands behind "--": try 60 -- link set eth0 mtu 1400)");
    return TryCommand(
        invocation, before == 2 ? invocation.words.Get<u32>("S") : kSeconds,
        {options.words.end() - static_cast<std::ptrdiff_t>(options.wordsBehindDashes), options.words.end()});
}

Outcome ShowStatus(const Invocation& /*invocation*/) {
    const auto guardian = Guardian::Find();
    Outcome outcome;
    outcome.document = guardian ? guardian->Document() : Json::array();
    if (!guardian) outcome.done = "nothing waits to be confirmed";
    return outcome;
}

Outcome Decide(const Invocation& invocation, Guardian::Order order) {
    auto guardian = Guardian::Find();
    if (!guardian) throw Failed(invocation.asked, "nothing waits to be confirmed");
    if (invocation.options.dryRun) return ShowStatus(invocation);
    guardian->Send(order);
    return EndOf(invocation, guardian->LastDocument(),
                 invocation.asked + (order == Guardian::kKeep ? ": too late, " : ": "));
}

Outcome Confirm(const Invocation& invocation) {
    return Decide(invocation, Guardian::kKeep);
}

Outcome Cancel(const Invocation& invocation) {
    Outcome outcome = Decide(invocation, Guardian::kTakeBack);
    // It was asked for.
    if (outcome.failure && IsAllAs(outcome.document)) outcome.failure.reset();
    return outcome;
}

constexpr char kWhatIsTakenBack[] =
    "The command stands behind \"--\". Taken back are addresses, MTU, hardware addresses, gateways, priorities, "
    "routes, rules and the packet filter, also when the session ends: exit status 6. The guard of remote sessions does "
    "not hold here.";

constexpr Command kTryCommands[] = {
    Row("", "[S] COMMAND...", &Try, "run a command, and take it back after S seconds (60) unless somebody keeps it",
        "try 60 -- gateway replace 192.168.1.254 dev eth0")
        .Sends(TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET)
        .More(kWhatIsTakenBack),
    Row("confirm", "", &Confirm, "keep it, from any session", "try confirm"),
    Row("cancel", "", &Cancel, "take it back now", "try cancel"),
    Row("status", "", &ShowStatus, "what waits to be confirmed", "try status")
        .Columns("COMMAND {command}|STATE {state}|UNTIL {until}|PID {pid}"),
};

}  // namespace

Outcome TryCommand(const Invocation& outer, u32 seconds, const std::vector<std::string>& arguments) {
    std::vector<std::string> forced = {"--force"};  // instead of the guard there is the guardian
    forced.insert(forced.end(), arguments.begin(), arguments.end());
    (void)ParseWords(ParseOptions(arguments).words);
    if (outer.options.dryRun) {
        Outcome outcome = RunInner(forced, outer);
        outcome.planned.push_back(Format("takes it back after {} s unless it is confirmed", seconds));
        return outcome;
    }
    const Saved saved = SaveSettings(outer.asked);
    Say(outer, Format("saved: {} interfaces, {} priorities, {} routes, {} rules{}\n", saved.state["interfaces"].size(),
                      saved.state["priorities"].size(), saved.state["routes"].size(), saved.state["rules"].size(),
                      saved.filters.empty() ? "" : ", firewall"));
    const auto object = std::find_if(arguments.begin(), arguments.end(), [](const auto& one) { return one[0] != '-'; });
    const std::string stays = object == arguments.end() ? "" : WhatStays(saved, *object);
    if (!stays.empty()) ShowNote(outer, stays);
    Guardian guardian = Guardian::Start(outer, saved, seconds, Joined(arguments, " "));
    const HeldSignals signals;
    const Outcome inner = RunInner(forced, outer);
    if (inner.failure) {
        // What was refused has changed nothing.
        const bool wasRefused = inner.failure->exit == kExitRefused;
        guardian.Send(wasRefused ? Guardian::kKeep : Guardian::kTakeBack);
        const Json& document = guardian.LastDocument();
        return wasRefused ? inner : EndOf(outer, document, inner.failure->message + "; ");
    }
    guardian.Send(Guardian::kBegin);
    Say(outer, inner.done.empty() ? inner.text : inner.done + "\n");
    for (const std::string& note : inner.notes)
        ShowNote(outer, note);
    const int signal = AwaitDecision(outer, guardian, signals, seconds);
    if (signal == 0) return EndOf(outer, guardian.LastDocument(), Joined(arguments, " ") + ": not kept, ");
    Outcome outcome;
    outcome.signal = signal;
    return outcome;
}

extern const Object kTry = {
    .name = "try", .summary = "a change that is taken back unless it is confirmed", .commands = kTryCommands};

}  // namespace tessel::ctl
