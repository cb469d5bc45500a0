// What goes wrong, as the user is told: one sentence, a word for programs, and the exit status.
#pragma once

#include <string>
#include <string_view>

namespace tessel::ctl {

enum Exit : int {
    kExitDone = 0,
    kExitFailed = 1,      // the daemon answered failure, or the answer is "no"
    kExitRefused = 2,     // wrong words, or refused here before anything was sent
    kExitNotRunning = 3,  // no daemon to talk to
    kExitTimeout = 4,     // no answer in time
    kExitNotApplied = 5,  // answered success, but it did not happen
    kExitSignal = 128     // and the signal's number: ended by it, after everything was put in order
};

// What a call yields when nothing is sent because only the plan is wanted. No error of libtessel is positive.
constexpr int kPlanned = 1;

struct Failure {
    Exit exit = kExitFailed;
    std::string error;    // "not_running", for programs
    std::string message;  // one line without "tesselctl: "
};

// "ASKED: WHY", not sent.
[[nodiscard]] Failure Refused(std::string_view asked, std::string_view why);

// "ASKED: WHY", done but without effect.
[[nodiscard]] Failure NotApplied(std::string_view asked, std::string_view why);

// "ASKED: WHY", for what fails on this side (files, for example).
[[nodiscard]] Failure Failed(std::string_view asked, std::string_view why);

// For an error of libtessel. `cause` is added when the daemon answered -1; empty: none is known. errno is looked at.
[[nodiscard]] Failure CallFailed(std::string_view asked, int error, std::string_view cause = {});

// The line for standard error.
[[nodiscard]] std::string RenderFailure(const Failure& failure, bool asJson);

}  // namespace tessel::ctl
