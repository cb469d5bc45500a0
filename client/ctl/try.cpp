// A change that is taken back unless it is confirmed: by the guardian, a process that outlives the session it may cut.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <syslog.h>

#include "client/ctl/files.h"
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"
#include "client/ctl/state.h"
#include "client/ctl/tesselctl.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

const char* RestText(const Json& rows) {
    return IsAllAs(rows) ? "everything is as before" : "not everything is as before";
}

// What the guardian is sent.
constexpr int kKeep = SIGUSR1;
constexpr int kTakeBack = SIGUSR2;
constexpr int kBegin = SIGALRM;  // the command has finished

// The guardian's file, on which it holds a lock as long as it lives:
//   {"pid", "command", "state": "running", "waiting", "kept" or "taken back", "until" or null, "results" and
//    "problems": the rows and notes of TakeBack}
// One for each user; in /tmp for those who may not write to /run. Closed: it cannot be opened, or is another user's.
UniqueFd OpenGuardian(int flags) {
    const char* const directory = access("/run", W_OK) == 0 ? "/run" : "/tmp";
    const std::string path = Format("{}/tesselctl-try.{}.lock", directory, geteuid());
    UniqueFd file(open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    struct stat status {};
    if (fstat(file.Get(), &status) != 0 || status.st_uid != geteuid()) file.Reset();
    return file;
}

bool IsOver(const UniqueFd& guardian) {
    const int fd = guardian.Get();
    return !guardian.IsOpen() || (flock(fd, LOCK_SH | LOCK_NB) == 0 && flock(fd, LOCK_UN) == 0);
}

Json DocumentIn(const UniqueFd& guardian) {
    (void)lseek(guardian.Get(), 0, SEEK_SET);
    return Json::parse(ReadToEnd(guardian.Get()).value_or(""), nullptr, false);
}

void WriteDocument(const UniqueFd& guardian, const Json& document) {
    const std::string text = document.dump() + "\n";
    (void)(ftruncate(guardian.Get(), 0) == 0 && pwrite(guardian.Get(), text.data(), text.size(), 0) > 0);
}

void Send(const UniqueFd& guardian, int order) {
    const auto pid = static_cast<pid_t>(NumberOf(DocumentIn(guardian), "pid"));
    if (pid > 0 && !IsOver(guardian)) (void)kill(pid, order);
}

// Leaves the session, and what is open there but the guardian's file. kBegin comes when `parent` ends, too.
void DetachFrom(pid_t parent, const UniqueFd& file) {
    setsid();
    (void)prctl(PR_SET_PDEATHSIG, kBegin);
    if (getppid() != parent) (void)kill(getpid(), kBegin);
    const int nowhere = open("/dev/null", O_RDWR);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        (void)dup2(nowhere, fd);
    for (const std::string& path : Matching("/proc/self/fd/*")) {
        const int fd = std::atoi(path.substr(path.rfind('/') + 1).c_str());
        if (fd != file.Get() && fd > STDERR_FILENO) (void)close(fd);
    }
    (void)EndCallsAt(-1);
    openlog("tesselctl", LOG_PID, LOG_DAEMON);
}

// kKeep, kTakeBack, or -1: nobody decided in time. Every signal is blocked. The command may take long, or ask: the time
// begins with kBegin, and what was decided before counts from then on.
int AwaitOrder(u32 seconds, const UniqueFd& file, Json& document) {
    sigset_t orders;
    sigemptyset(&orders);
    for (const int order : {kKeep, kTakeBack, kBegin})
        sigaddset(&orders, order);
    int decision = 0;
    for (int order = 0; (order = sigwaitinfo(&orders, nullptr)) != kBegin;)
        decision = order > 0 ? order : decision;  // it may have been stopped meanwhile
    if (decision != 0) return decision;
    document["state"] = "waiting";
    document["until"] = JsonTime(std::chrono::system_clock::now() + std::chrono::seconds(seconds));
    WriteDocument(file, document);
    sigdelset(&orders, kBegin);  // the end of the parent means nothing any more
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    do {  // again when it was stopped and continued
        const auto left = std::chrono::ceil<std::chrono::seconds>(end - Clock::now()).count();
        const timespec limit{.tv_sec = static_cast<time_t>(std::max<i64>(left, 0)), .tv_nsec = 0};
        decision = sigtimedwait(&orders, nullptr, &limit);
    } while (decision < 0 && errno == EINTR);
    return decision;
}

[[noreturn]] void Guard(const Invocation& outer, const Json& saved, u32 seconds, const UniqueFd& file, Json document,
                        pid_t parent) {
    DetachFrom(parent, file);
    document["pid"] = getpid();
    const int decision = AwaitOrder(seconds, file, document);
    document["state"] = "kept";
    if (decision != kKeep) {
        const Outcome outcome = TakeBack(saved, outer);
        document.update({{"state", "taken back"}, {"results", outcome.document}, {"problems", outcome.notes}});
        syslog(LOG_NOTICE, "%s: taken back, %s", TextOf(document, "command").c_str(), RestText(outcome.document));
    }
    WriteDocument(file, document);
    _exit(kExitDone);
}

// Takes everything back `seconds` after kBegin.
UniqueFd StartGuardian(const Invocation& outer, const Json& saved, u32 seconds, const std::string& command) {
    const UniqueFd file = OpenGuardian(O_RDWR | O_CREAT);
    if (!file.IsOpen()) throw Failed(outer.asked, "the guardian's file cannot be opened, or is another user's");
    if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0)
        throw Refused(outer.asked, Format("\"{}\" waits to be confirmed (tesselctl try confirm, or try cancel)",
                                          TextOf(DocumentIn(file), "command")));
    Json document{{"pid", nullptr},   {"command", command},       {"state", "running"},
                  {"until", nullptr}, {"results", Json::array()}, {"problems", Json::array()}};
    WriteDocument(file, document);
    (void)fflush(nullptr);
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &previous);  // what is sent to the guardian before it looks is not lost
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) Guard(outer, saved, seconds, file, document, parent);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (child < 0) throw Failed(outer.asked, "cannot start the process that would undo it");
    document["pid"] = child;
    WriteDocument(file, document);
    return OpenGuardian(O_RDONLY);
}

void Say(const Invocation& outer, const std::string& text) {
    if (!outer.options.json && !outer.options.quiet) (void)fputs(text.c_str(), outer.err);
}

// Until the guardian has ended. Returns the signal that ended the wait instead.
int AwaitDecision(const Invocation& outer, const UniqueFd& guardian, const HeldSignals& signals, u32 seconds) {
    constexpr int kPollMs = 100;
    const bool isTerminal = isatty(fileno(outer.err)) != 0;
    pollfd waits[] = {{.fd = isatty(STDIN_FILENO) != 0 ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0},
                      {.fd = signals.Fd(), .events = POLLIN, .revents = 0}};
    Say(outer, waits[0].fd >= 0 ? "Press Enter to keep it, or run \"tesselctl try confirm\" in any session.\n"
                                : "To keep it, run \"tesselctl try confirm\".\n");
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    while (!IsOver(guardian)) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now()).count();
        if (isTerminal && left >= 0) Say(outer, Format("\r{:>5} s ", left));
        if (poll(waits, std::size(waits), kPollMs) > 0 && waits[0].revents != 0) {
            char line[256];
            if (read(waits[0].fd, line, sizeof(line)) > 0) Send(guardian, kKeep);
            waits[0].fd = -1;
        }
        const int signal = signals.Take();
        if (signal == SIGHUP) return signal;  // another session may confirm it
        if (signal != 0) Send(guardian, kTakeBack);
    }
    if (isTerminal) Say(outer, "\r");
    return 0;
}

// Waits for the guardian's end. What it left behind, as an outcome.
Outcome EndOf(const Invocation& invocation, const UniqueFd& guardian, const std::string& before) {
    (void)flock(guardian.Get(), LOCK_SH);
    Outcome outcome{.document = DocumentIn(guardian)};
    const std::string state = TextOf(outcome.document, "state");
    outcome.done = TextOf(outcome.document, "command") + "   kept";
    if (state == "kept") return outcome;
    if (state != "taken back") throw Failed(invocation.asked, "the process that was to undo it has exited: it stays");
    outcome.notes = outcome.document.at("problems");
    outcome.document = Json(outcome.document.at("results"));
    outcome.text = RenderTable(outcome.document, " {setting}| {now}| {result}", false, false);
    outcome.failure = Failure{kExitUndone, "undone", Format("{}taken back, {}", before, RestText(outcome.document))};
    return outcome;
}

Outcome Try(const Invocation& invocation) {
    const Step command = invocation.words.All<std::string>("COMMAND");
    if (command.size() != invocation.options.wordsBehindDashes)
        throw Refused(invocation.asked, R"(the command stands behind "--": try 60 -- link set eth0 mtu 1400)");
    return TryCommand(invocation, invocation.words.Get<u32>("S", 60), command);
}

Outcome ShowStatus(const Invocation& /*invocation*/) {
    const UniqueFd guardian = OpenGuardian(O_RDONLY);
    Outcome outcome{.document = IsOver(guardian) ? Json::array() : Json::array({DocumentIn(guardian)})};
    if (outcome.document.empty()) outcome.done = "nothing waits to be confirmed";
    return outcome;
}

template <int kOrder>
Outcome Decide(const Invocation& invocation) {
    const UniqueFd guardian = OpenGuardian(O_RDONLY);
    if (IsOver(guardian)) throw Failed(invocation.asked, "nothing waits to be confirmed");
    if (invocation.options.dryRun) return {};
    Send(guardian, kOrder);
    Outcome outcome = EndOf(invocation, guardian, invocation.asked + (kOrder == kKeep ? ": too late, " : ": "));
    if (kOrder == kTakeBack && outcome.failure && IsAllAs(outcome.document)) outcome.failure.reset();
    return outcome;
}

constexpr Command kTryCommands[] = {
    Row("", "[S:1-86400] COMMAND...", &Try, "run a command, and undo it after S seconds (60) unless somebody keeps it",
        "try 60 -- gateway replace 192.168.1.254 dev eth0")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .More(
            "Write the command after \"--\". Settings and packet filter are restored as far as the daemon can, even if "
            "the session ends: exit status 6. What is not as before is named. Remote sessions are not guarded here."),
    Row("confirm", "", &Decide<kKeep>, "keep it, from any session", "try confirm"),
    Row("cancel", "", &Decide<kTakeBack>, "take it back now", "try cancel"),
    Row("status", "", &ShowStatus, "what waits to be confirmed", "try status")
        .Columns("COMMAND {command}|STATE {state}|UNTIL {until}|PID {pid}"),
};

}  // namespace

Outcome TryCommand(const Invocation& outer, u32 seconds, const std::vector<std::string>& arguments) {
    constexpr std::string_view kSettings[] = {"addr",  "apply", "link",  "gateway", "priority",
                                              "route", "rule",  "table", "firewall"};
    const std::string_view object = ParseWords(ParseOptions(arguments).words).object->name;
    Options options = outer.options;
    options.force = true;  // the guardian replaces the guard
    const Invocation forced{outer.words, options, outer.asked, outer.out, outer.err};
    if (options.dryRun) {
        Outcome outcome = RunInner(arguments, forced);
        outcome.planned.push_back(Format("undoes it after {} s unless it is confirmed", seconds));
        return outcome;
    }
    const Json saved = ReadState(outer.asked, true);
    if (std::ranges::count(kSettings, object) == 0)
        ShowNote(outer, Format("only settings are restored: what \"{}\" starts or ends stays so", object));
    if (object == "priority" && saved.at("priorities").empty())
        ShowNote(outer, "the first priorities after the daemon's start cannot be undone, only changed");
    const UniqueFd guardian = StartGuardian(forced, saved, seconds, Joined(arguments, " "));
    const HeldSignals signals;
    (void)signal(SIGTSTP, SIG_IGN);  // a command that has been stopped half-way would never be undone
    Outcome outcome = RunInner(arguments, forced);
    // What was refused has changed nothing.
    const bool wasRefused = outcome.failure && outcome.failure->exit == kExitRefused;
    if (outcome.failure) Send(guardian, wasRefused ? kKeep : kTakeBack);
    Send(guardian, kBegin);
    if (outcome.failure) {
        const std::string& why = outcome.failure->message;
        const Outcome end = EndOf(outer, guardian, why.substr(0, why.find_last_not_of('.') + 1) + "; ");
        return wasRefused ? outcome : end;
    }
    Say(outer, outcome.done.empty() ? outcome.text : outcome.done + "\n");
    for (const std::string& note : outcome.notes)
        ShowNote(outer, note);
    outcome = {.document = nullptr, .signal = AwaitDecision(outer, guardian, signals, seconds)};
    return outcome.signal != 0 ? outcome : EndOf(outer, guardian, Joined(arguments, " ") + ": not kept, ");
}

extern const Object kTry = {.name = "try", .summary = "a change, undone unless kept", .commands = kTryCommands};

}  // namespace tessel::ctl
