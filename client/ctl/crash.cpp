// The daemon's crash reports, from their files: no daemon is needed.
#include <sys/stat.h>
#include <unistd.h>

#include "client/ctl/crash_report.h"
#include "client/ctl/files.h"
#include "client/ctl/output.h"

namespace tessel::ctl {

namespace {

// The older generation first.
constexpr const char* kCrashFiles[] = {"/usr/tessel_crash.log.1", "/usr/tessel_crash.log.0"};

constexpr char kNoCrash[] = "no crash was reported";
constexpr char kFrameColumns[] =
    "FRAME #{frame}|FUNCTION {function}|OFFSET {offset}|SOURCE {source}|MODULE {module}|ADDRESS {address}";

Json CrashReports(const std::string& asked, const std::string& path) {
    Json reports = ParseCrashReports(ReadWholeFile(asked, path));
    for (Json& report : reports)
        report["file"] = path;
    return reports;
}

Json DaemonsReports(const std::string& asked) {
    Json all = Json::array();
    for (const char* path : kCrashFiles) {
        if (access(path, F_OK) != 0) continue;
        const Json reports = CrashReports(asked, path);
        all.insert(all.end(), reports.begin(), reports.end());
    }
    return all;
}

Outcome List(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = DaemonsReports(invocation.asked);
    for (Json& report : outcome.document) {
        const Json frames = std::move(report["frames"]);
        const Json first = frames.empty() ? Json::object() : frames[0];
        const std::string function = TextOf(first, "function");
        report["where"] = NullIfEmpty(function.empty() ? TextOf(first, "module") : function);
        report.erase("frames");
        report.erase("registers");
    }
    if (outcome.document.empty()) outcome.notes = {kNoCrash};
    return outcome;
}

// What stands around the frames, a few registers in a row.
std::string ReportText(const Json& report, const Options& options) {
    std::string text =
        FillTemplate("{local_time}\nsignal {signal} ({signal_name})\nthread {thread_id} {thread}\n", report);
    text += "\n" + RenderTable(report["frames"], kFrameColumns, !options.noHeader, false);
    constexpr std::size_t kInARow = 3;
    for (std::size_t i = 0; i < report["registers"].size(); ++i)
        text += (i % kInARow == 0 ? (i == 0 ? "registers  " : "\n           ") : "  ") +
                report["registers"][i].get<std::string>();
    return text + "\n";
}

Outcome ShowCrash(const Invocation& invocation) {
    const std::string file = invocation.words.Text("FILE");
    const std::string& symbols = invocation.options.symbols;
    struct stat status {};
    if (!symbols.empty() && (stat(symbols.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))) {
        throw Refused("--symbols " + symbols, "it is no directory");
    }
    Json reports = file.empty() ? DaemonsReports(invocation.asked) : CrashReports(invocation.asked, file);
    if (!file.empty() && reports.empty()) throw Failed(invocation.asked, "the file has no report");
    Outcome outcome;
    outcome.document = Json::object();
    outcome.notes = {kNoCrash};
    if (reports.empty()) return outcome;
    outcome.document = std::move(reports.back());
    outcome.notes.clear();
    if (!symbols.empty()) outcome.notes = AddSymbols(symbols, outcome.document["frames"]);
    outcome.text = ReportText(outcome.document, invocation.options);
    return outcome;
}

constexpr Command kCrashCommands[] = {
    Row("show", "[FILE]", &ShowCrash, "the newest report: when, why, and the calls that led there", "crash show")
        .More("Functions are named where the module on the device has symbols; elsewhere the offset is the "
              "module's. With --symbols DIR they are named from the unstripped files below DIR by addr2line, also "
              "on another machine."),
    Row("list", "", &List, "the crashes that were reported, the newest last", "crash list")
        .Columns("TIME {local_time}|SIGNAL {signal} ({signal_name})|THREAD {thread}|WHERE {where}")
        .More("From /usr/tessel_crash.log.1 and .0; the daemon need not run."),
};

}  // namespace

extern const Object kCrash = {.name = "crash", .summary = "the daemon's crash reports", .commands = kCrashCommands};

}  // namespace tessel::ctl
