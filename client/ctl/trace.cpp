// What the daemon logs while a command runs.
#include "client/ctl/files.h"
#include "client/ctl/held_signals.h"
#include "client/ctl/output.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

// Of "[TESSEL_PRT]:PID[7]:TID[7]:[GatewaySet](88): remove the ipv4 gateway!" or "[TESSEL_DBG]PID[7]TID[7]:[...".
Json LineJson(const std::string& line) {
    char kind[16] = "";
    char function[64] = "";
    int text = 0;
    (void)sscanf(line.c_str(), "[TESSEL_%15[A-Z]]%*[^T]TID[%*d]:[%63[^]]](%*d): %n", kind, function, &text);
    return {{"kind", kind}, {"function", function}, {"text", line.substr(static_cast<std::size_t>(text))}};
}

// The lines of a log; text may go on for several ones. How requests come in and answers go out is left out.
Json LinesOf(std::string_view log) {
    Json lines = Json::array();
    while (!log.empty()) {
        const std::size_t end = std::min(log.find("\n[TESSEL_"), log.size() - 1);
        const Json line = LineJson(std::string(log.substr(0, end)));
        const std::string function = TextOf(line, "function");
        if (!function.starts_with("Ipc") && function != "ServeConnection") lines.push_back(line);
        log.remove_prefix(end + 1);
    }
    return lines;
}

Outcome TraceCommand(const Invocation& invocation) {
    const std::string& asked = invocation.asked;
    const auto arguments = invocation.words.All<std::string>("COMMAND");
    (void)ParseWords(ParseOptions(arguments).words);
    char directory[] = "/tmp/tesselctl-trace.XXXXXX";
    if (mkdtemp(directory) == nullptr) throw Failed(asked, strerror(errno));
    const std::string path = std::string(directory) + "/log";
    const HeldSignals signals;  // everything is put back first
    Outcome outcome;
    std::string log;
    int error = tessel_log_file(TESSEL_LOG_OPEN_DAEMON, nullptr, path.c_str());
    if (error == TESSEL_OK) {
        error = tessel_log_level_set(5);  // everything
        outcome = RunInner(arguments, invocation);
        (void)tessel_log_level_set(2);  // the level of a daemon that was just started
        (void)tessel_log_file(TESSEL_LOG_CLOSE_DAEMON, nullptr, nullptr);
        if (access(path.c_str(), R_OK) == 0) log = ReadWholeFile(asked, path);
    }
    (void)unlink(path.c_str());
    (void)rmdir(directory);
    Require(asked, error);
    if (invocation.options.dryRun) return outcome;
    const Json lines = LinesOf(log);
    outcome.text = RenderTable(lines, " {kind}| {function}| {text}", false, false) +
                   (outcome.done.empty() ? outcome.text : outcome.done + "\n");
    outcome.document = {{"lines", lines}, {"outcome", outcome.document}};
    outcome.notes.emplace_back(
        "the log level is 2 now: it cannot be read back. The daemon's log file is closed (see \"log file\")");
    return outcome;
}

constexpr Command kTraceCommands[] = {
    Row("", "COMMAND...", &TraceCommand, "run a command, and show what the daemon logs for it",
        "trace -- addr add 192.168.1.21/24 dev eth0")
        .Sends(TESSEL_CMD_LOG_LEVEL, TESSEL_CMD_LOG_FILE)
        .More("Requests of others show as well. --dry-run of the command itself shows the lines of tools."),
};

}  // namespace

extern const Object kTrace = {
    .name = "trace", .summary = "what the daemon runs and logs for a command", .commands = kTraceCommands};

}  // namespace tessel::ctl
