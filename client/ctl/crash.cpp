// The daemon's crash reports, from their files: no daemon is needed.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>

#include "client/ctl/crash_report.h"
#include "client/ctl/crash_symbols.h"
#include "client/ctl/handlers.h"
#include "client/ctl/values.h"

namespace tessel::ctl {

namespace {

using nlohmann::ordered_json;

// The older generation first.
constexpr const char* kCrashFiles[] = {"/usr/tessel_crash.log.1", "/usr/tessel_crash.log.0"};

constexpr char kNoCrash[] = "no crash was reported";

struct FoundReport {
    std::string file;
    CrashReport report;
};

bool AddReportsOf(const std::string& path, std::vector<FoundReport>& found) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    for (CrashReport& report : ParseCrashReports(text))
        found.push_back({.file = path, .report = std::move(report)});
    return true;
}

std::vector<FoundReport> DaemonsReports() {
    std::vector<FoundReport> found;
    for (const char* path : kCrashFiles)
        (void)AddReportsOf(path, found);  // one that is not there has none
    return found;
}

// "11 (Segmentation fault)"
std::string SignalText(const CrashReport& report) {
    const auto number = ParseNumber(report.signal);
    return number ? fmt::format("{} ({})", report.signal, strsignal(static_cast<int>(*number))) : report.signal;
}

std::string PlaceText(const CrashFrame& frame) {
    const std::string& name = frame.function.empty() ? frame.module : frame.function;
    return name.empty() ? frame.address : fmt::format("{} + {}", name, frame.offset);
}

ordered_json Document(const FoundReport& found) {
    const CrashReport& report = found.report;
    ordered_json frames = ordered_json::array();
    for (const CrashFrame& frame : report.frames) {
        frames.push_back({{"function", frame.function},
                          {"offset", frame.offset},
                          {"module", frame.module},
                          {"address", frame.address}});
    }
    return {{"time", report.time},          {"signal", report.signal}, {"thread", report.threadName},
            {"thread_id", report.threadId}, {"file", found.file},      {"registers", report.registers},
            {"frames", std::move(frames)}};
}

// A few in a row, below the frames.
void AddRegisters(const std::vector<std::string>& registers, Table& table) {
    constexpr std::size_t kInARow = 3;
    for (std::size_t i = 0; i < registers.size(); i += kInARow) {
        const std::span row = std::span(registers).subspan(i, std::min(kInARow, registers.size() - i));
        table.rows.push_back({{i == 0 ? "registers" : ""}, {fmt::format("{}", fmt::join(row, "  "))}});
    }
}

}  // namespace

Outcome CrashList(const Invocation&) {
    Outcome outcome;
    outcome.document = ordered_json::array();
    outcome.table.header = {"TIME", "SIGNAL", "THREAD", "WHERE"};
    const std::vector<FoundReport> reports = DaemonsReports();
    for (const FoundReport& found : reports) {
        const CrashReport& report = found.report;
        outcome.document.push_back(Document(found));
        const std::string where = report.frames.empty() ? "" : PlaceText(report.frames.front());
        outcome.table.rows.push_back({{report.time}, {SignalText(report)}, {report.threadName}, {where}});
    }
    if (reports.empty()) outcome.notes = {kNoCrash};
    return outcome;
}

Outcome CrashShow(const Invocation& invocation) {
    const auto file = invocation.words.Find("FILE");
    std::vector<FoundReport> reports;
    if (!file) reports = DaemonsReports();
    if (file && !AddReportsOf(*file, reports)) return Failed("crash show " + *file, strerror(errno));
    if (file && reports.empty()) return Failed("crash show " + *file, "the file has no report");
    const std::string& symbols = invocation.options.symbols;
    if (!symbols.empty() && !std::filesystem::is_directory(symbols)) {
        return Refused("--symbols " + symbols, "it is no directory");
    }
    Outcome outcome;
    if (reports.empty()) {
        outcome.document = ordered_json::object();
        outcome.notes = {kNoCrash};
        return outcome;
    }

    FoundReport& newest = reports.back();
    const CrashReport& report = newest.report;
    if (!symbols.empty()) {
        for (const std::string& module : AddSymbols(symbols, newest.report.frames))
            outcome.notes.push_back(fmt::format("{} has no file for {}", symbols, module));
    }
    outcome.document = Document(newest);
    outcome.table.preamble = {{report.time},
                              {"signal " + SignalText(report), Style::kBad},
                              {fmt::format("thread {} {}", report.threadId, report.threadName)}};
    outcome.table.header = {"FRAME", "WHERE", "MODULE", "ADDRESS"};
    for (const CrashFrame& frame : report.frames) {
        outcome.table.rows.push_back({{fmt::format("#{}", outcome.table.rows.size())},
                                      {PlaceText(frame)},
                                      {frame.ModuleName()},
                                      {frame.address, Style::kDim}});
    }
    AddRegisters(report.registers, outcome.table);
    return outcome;
}

}  // namespace tessel::ctl
