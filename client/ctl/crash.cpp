// The daemon's crash reports, from their files: no daemon is needed. What is missing from a truncated report is null or
// empty:
//   {"time": RFC 3339, "local_time": as it was written, "signal", "signal_name", "thread", "thread_id",
//    "registers": ["PC:0x1234"],
//    "frames": from the faulting function outwards, by the method that got further:
//       [{"frame", "function": null where the module has no symbols, "source": null, "module": path, null outside of
//         any, "offset": into the function, or into the module, "address"}], "file"}
#include <cxxabi.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <memory>
#include <sstream>

#include "client/ctl/device.h"
#include "client/ctl/files.h"
#include "client/ctl/output.h"

namespace tessel::ctl {

namespace {

constexpr char kNoCrash[] = "no crash was reported";
constexpr char kFrameColumns[] =
    "FRAME #{frame}|FUNCTION {function}|OFFSET {offset}|SOURCE {source}|MODULE {module}|ADDRESS {address}";

// What the files contain.
constexpr std::string_view kReportBegin = "=============== Exception Occur =================\n";
constexpr std::string_view kRegisters = "=============CPU registers=============";
constexpr std::string_view kCallTrace = "===========Call Trace(";
constexpr std::string_view kMaps = "--------Process [";

std::string Demangled(const std::string& name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? text.get() : name;
}

// "<MODULE> (<FUNCTION> + OFFSET) [ADDRESS]". Null: it is not such a line.
Json ParseFrame(std::string_view line) {
    const std::size_t module = line.find("> (<");
    const std::size_t function = line.rfind("> + ");
    const std::size_t offset = line.rfind(") [");
    const bool isInOrder = module < function && function < offset && offset != std::string_view::npos;
    if (!isInOrder || !line.starts_with('<') || !line.ends_with(']')) return nullptr;
    const auto part = [line](std::size_t from, std::size_t to) { return std::string(line.substr(from, to - from)); };
    return {{"frame", nullptr},
            {"function", NullIfEmpty(Demangled(part(module + 4, function)))},
            {"source", nullptr},
            {"module", NullIfEmpty(part(1, module))},
            {"offset", part(function + 4, offset)},
            {"address", part(offset + 3, line.size() - 1)}};
}

// A trace may begin in the handler; the faulting address is the first register.
Json FromFault(const Json& trace, const Json& registers) {
    const std::string first = registers.empty() ? "" : registers[0].get<std::string>();
    const std::string fault = first.substr(first.find(':') + 1);
    const bool hasFault = !FindIn(trace, "address", fault).is_null();
    Json frames = Json::array();
    for (const Json& frame : trace) {
        if (frames.empty() && hasFault && frame["address"] != fault) continue;
        frames.push_back(frame);
        frames.back()["frame"] = frames.size() - 1;
    }
    return frames;
}

// "2026-11-21 10:51:52", of the device's own clock and zone. Null for anything else.
Json TimeOf(const std::string& text) {
    std::tm parts{};
    parts.tm_isdst = -1;
    if (strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts) == nullptr) return nullptr;
    return JsonTime(std::chrono::system_clock::from_time_t(mktime(&parts)));
}

Json ParseReport(const std::string& text) {
    std::map<std::string, std::string> values;
    std::vector<Json> traces;
    Json registers = Json::array();
    bool areRegisters = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line) && !line.starts_with(kMaps);) {
        if (line.starts_with(kCallTrace)) traces.push_back(Json::array());
        if (areRegisters) {
            for (const std::string& word : WordsIn(line))
                registers.push_back(word.substr(0, word.find(',')));
        }
        areRegisters = line == kRegisters || (areRegisters && !line.empty());
        const Json frame = ParseFrame(line);
        if (!frame.is_null() && !traces.empty()) traces.back().push_back(frame);
        const std::size_t colon = line.find(':');
        const std::size_t value = line.find_first_not_of(' ', std::min(colon, line.size() - 1) + 1);
        if (traces.empty() && colon != std::string::npos && value != std::string::npos)
            values.emplace(line.substr(0, colon), line.substr(value));
    }
    Json frames = Json::array();
    for (const Json& trace : traces) {
        Json fromFault = FromFault(trace, registers);
        if (fromFault.size() > frames.size()) frames = std::move(fromFault);
    }
    const auto signal = ParseNumber(values["Signal num"]);
    return {{"time", TimeOf(values["Exception time"])},
            {"local_time", NullIfEmpty(values["Exception time"])},
            {"signal", OrNull(signal)},
            {"signal_name", signal ? Json(strsignal(static_cast<int>(*signal))) : Json()},
            {"thread", NullIfEmpty(values["Thread name"])},
            {"thread_id", OrNull(ParseNumber(values["Thread id"]))},
            {"registers", registers},
            {"frames", frames}};
}

// Those of one file, or of the daemon's own ones when `path` is empty; the newest is the last one.
Json CrashReports(const std::string& asked, const std::string& path) {
    Json reports = Json::array();
    std::vector<std::string> files = {path};
    if (path.empty()) files = {"/usr/tessel_crash.log.1", "/usr/tessel_crash.log.0"};  // the older generation first
    for (const std::string& file : files) {
        if (path.empty() && access(file.c_str(), F_OK) != 0) continue;
        const std::string text = ReadWholeFile(asked, file);
        for (std::size_t begin = text.find(kReportBegin); begin != std::string::npos;) {
            const std::size_t end = text.find(kReportBegin, begin + kReportBegin.size());
            reports.push_back(ParseReport(text.substr(begin, end - begin)));
            reports.back()["file"] = file;
            begin = end;
        }
    }
    return reports;
}

// Names the function of a frame by addr2line and the unstripped file of its module: DIRECTORY/PATH, as below a device's
// root, or DIRECTORY/NAME; it must be the very build that crashed. Empty, or what did not help.
std::string NameFunction(const std::string& directory, Json& frame) {
    const std::string module = TextOf(frame, "module");
    std::string file = Format("{}/{}", directory, module);
    if (access(file.c_str(), R_OK) != 0) file = Format("{}/{}", directory, module.substr(module.rfind('/') + 1));
    if (access(file.c_str(), R_OK) != 0) return Format("{} has no file for {}", directory, module);
    // A return address belongs to the call before it, which may be the last instruction of its function.
    const u64 offset = std::strtoull(TextOf(frame, "offset").c_str(), nullptr, 16);
    const u64 place = NumberOf(frame, "frame") > 0 && offset > 0 ? offset - 1 : offset;
    const CapturedTool tool = CaptureTool({"addr2line", "-f", "-C", "-e", file, Format("0x{:x}", place)});
    if (!tool.isDone) return tool.problem + " (addr2line, from binutils, names the functions)";
    std::istringstream lines(tool.text);
    std::string function;
    std::string source;
    std::getline(std::getline(lines, function), source);
    if (function.empty() || function == "??")
        return file + " lacks symbols for some frames: is it stripped, or from another build?";
    frame["function"] = function;
    if (!source.starts_with("??")) frame["source"] = source.substr(source.rfind('/') + 1);
    return "";
}

Outcome ListCrashes(const Invocation& invocation) {
    Outcome outcome{.document = CrashReports(invocation.asked, "")};
    for (Json& report : outcome.document) {
        const Json first = report["frames"].empty() ? Json::object() : report["frames"][0];
        const std::string function = TextOf(first, "function");
        report["where"] = NullIfEmpty(function.empty() ? TextOf(first, "module") : function);
        report.erase("frames");
        report.erase("registers");
    }
    if (outcome.document.empty()) outcome.notes = {kNoCrash};
    return outcome;
}

Outcome ShowCrash(const Invocation& invocation) {
    const std::string file = invocation.words.Text("FILE");
    const std::string& symbols = invocation.options.symbols;
    if (!symbols.empty() && access((symbols + "/").c_str(), F_OK) != 0)
        throw Refused("--symbols " + symbols, "it is no directory");
    const Json reports = CrashReports(invocation.asked, file);
    if (!file.empty() && reports.empty()) throw Failed(invocation.asked, "the file has no report");
    if (reports.empty()) return {.document = Json::object(), .notes = {kNoCrash}};
    Outcome outcome{.document = reports.back()};
    Json& report = outcome.document;
    for (Json& frame : report["frames"]) {
        if (symbols.empty() || !frame["function"].is_null() || frame["module"].is_null()) continue;
        const std::string problem = NameFunction(symbols, frame);
        if (!problem.empty() && std::ranges::count(outcome.notes, problem) == 0) outcome.notes.push_back(problem);
    }
    outcome.text = FillTemplate("{local_time}\nsignal {signal} ({signal_name})\nthread {thread_id} {thread}\n", report);
    outcome.text += "\n" + RenderTable(report["frames"], kFrameColumns, !invocation.options.noHeader, false);
    outcome.text += FillTemplate("registers  {registers}\n", report);
    return outcome;
}

constexpr Command kCrashCommands[] = {
    Row("show", "[FILE]", &ShowCrash, "the latest report: when, why, and the call stack", "crash show")
        .More("Functions are named where the module has symbols; elsewhere the offset is relative to the module. With "
              "--symbols DIR, addr2line names them from the unstripped files in DIR, on any machine."),
    Row("list", "", &ListCrashes, "all reported crashes, latest last", "crash list")
        .Columns("TIME {local_time}|SIGNAL {signal} ({signal_name})|THREAD {thread}|WHERE {where}")
        .More("From /usr/tessel_crash.log.1 and .0; the daemon need not run."),
};

}  // namespace

extern const Object kCrash = {.name = "crash", .summary = "the daemon's crash reports", .commands = kCrashCommands};

}  // namespace tessel::ctl
