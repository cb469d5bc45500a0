// What goes wrong, as people read it: one sentence, a word for programs, and the exit status. A failure is thrown where
// it is found and caught once, where a command is run (tesselctl.cpp).
#pragma once

#include "client/ctl/text.h"

namespace tessel::ctl {

enum Exit : int {
    kExitDone = 0,
    kExitFailed = 1,      // the daemon answered failure, or the answer is "no"
    kExitRefused = 2,     // wrong words, or refused here before anything was sent
    kExitNotRunning = 3,  // no daemon to talk to
    kExitTimeout = 4,     // no answer in time
    kExitNotApplied = 5,  // answered success, but it did not happen
    kExitUndone = 6,      // `try` took it back
    kExitSignal = 128     // and the signal's number: ended by it, after everything was put in order
};

struct Failure {
    Exit exit;
    std::string error;    // "not_running", for programs
    std::string message;  // one line without "tesselctl: "
};

// "ASKED: WHY". Not sent; done without effect; failed on this side (files, for example).
[[nodiscard]] Failure Refused(std::string_view asked, std::string_view why);
[[nodiscard]] Failure NotApplied(std::string_view asked, std::string_view why);
[[nodiscard]] Failure Failed(std::string_view asked, std::string_view why);

// For an error of libtessel. `cause` is added when the daemon answered -1; empty: none is known. errno is looked at.
[[nodiscard]] Failure CallFailed(std::string_view asked, int error, std::string_view cause = {});

// Throws CallFailed unless `error` is TESSEL_OK.
void Require(std::string_view asked, int error, std::string_view cause = {});

// The line for standard error.
[[nodiscard]] std::string RenderFailure(const Failure& failure, bool asJson);

}  // namespace tessel::ctl
