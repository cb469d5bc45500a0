#include "client/ctl/crash_report.h"

#include <cxxabi.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <memory>
#include <sstream>

#include "client/ctl/files.h"

namespace tessel::ctl {

namespace {

constexpr std::string_view kReportBegin = "=============== Exception Occur =================\n";
constexpr std::string_view kRegisters = "=============CPU registers=============";
constexpr std::string_view kTrace = "===========Call Trace(";
constexpr std::string_view kMaps = "--------Process [";

// Null for empty text.
Json Demangled(const std::string& name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                           &std::free);
    return NullIfEmpty(status == 0 ? std::string(text.get()) : name);
}

// "<MODULE> (<FUNCTION> + OFFSET) [ADDRESS]". Null: it is no such line.
Json ParseFrame(std::string_view line) {
    constexpr std::string_view kBehindModule = "> (<";
    constexpr std::string_view kBehindFunction = "> + ";
    constexpr std::string_view kBehindOffset = ") [";
    const std::size_t module = line.find(kBehindModule);
    const std::size_t offset = line.rfind(kBehindOffset);
    const std::size_t function = line.rfind(kBehindFunction, offset);
    const bool isFrame = line.starts_with('<') && line.ends_with(']') && module != std::string_view::npos &&
                         offset != std::string_view::npos && function != std::string_view::npos &&
                         module + kBehindModule.size() <= function;
    if (!isFrame) return nullptr;
    const auto part = [line](std::size_t from, std::size_t to) { return std::string(line.substr(from, to - from)); };
    return {{"frame", nullptr},
            {"function", Demangled(part(module + kBehindModule.size(), function))},
            {"source", nullptr},
            {"module", NullIfEmpty(part(1, module))},
            {"offset", part(function + kBehindFunction.size(), offset)},
            {"address", part(offset + kBehindOffset.size(), line.size() - 1)}};
}

// A trace may begin in the handler; the faulting address is the first register. Null before the first trace.
Json FromFault(const Json& trace, const Json& registers) {
    const std::string first = registers.empty() ? "" : registers[0].get<std::string>();
    const std::string fault = first.substr(first.find(':') + 1);
    const auto isFault = [&](const Json& frame) { return frame["address"] == fault; };
    const auto begin = std::find_if(trace.begin(), trace.end(), isFault);
    Json frames = Json::array();
    for (auto frame = begin == trace.end() ? trace.begin() : begin; frame != trace.end(); ++frame) {
        frames.push_back(*frame);
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

Json ParseOne(std::string_view text) {
    std::map<std::string, std::string> values;
    std::vector<Json> traces;
    Json registers = Json::array();
    bool areRegisters = false;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line) && !line.starts_with(kMaps);) {
        if (line.starts_with(kTrace)) traces.push_back(Json::array());
        if (areRegisters) {
            std::istringstream words(line);
            for (std::string word; words >> word;)
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

// The frames of one module, by its file. Empty, or what did not help.
std::string NameFunctions(const std::string& file, const std::vector<Json*>& frames) {
    std::vector<std::string> words = {"addr2line", "-f", "-C", "-e", file};
    for (const Json* frame : frames) {
        // A return address belongs to the call before it, which may be the last instruction of its function.
        const u64 offset = std::strtoull(TextOf(*frame, "offset").c_str(), nullptr, 16);
        words.push_back(Format("0x{:x}", NumberOf(*frame, "frame") > 0 && offset > 0 ? offset - 1 : offset));
    }
    const CapturedTool tool = CaptureTool(words);
    if (!tool.isDone) return tool.problem + " (functions are named by addr2line, of the binutils)";
    std::istringstream lines(tool.text);
    bool hasSymbols = false;
    std::string function;
    std::string source;
    for (Json* frame : frames) {
        std::getline(lines, function);
        std::getline(lines, source);
        if (function.empty() || function == "??") continue;
        hasSymbols = true;
        (*frame)["function"] = function;
        if (!source.starts_with("??")) (*frame)["source"] = source.substr(source.rfind('/') + 1);
    }
    return hasSymbols ? "" : file + " carries no symbols for these places: is it stripped, or of another build?";
}

}  // namespace

Json ParseCrashReports(std::string_view text) {
    Json reports = Json::array();
    for (std::size_t begin = text.find(kReportBegin); begin != std::string_view::npos;) {
        const std::size_t end = text.find(kReportBegin, begin + kReportBegin.size());
        reports.push_back(ParseOne(text.substr(begin, end - begin)));
        begin = end;
    }
    return reports;
}

std::vector<std::string> AddSymbols(const std::string& directory, Json& frames) {
    std::map<std::string, std::vector<Json*>> nameless;
    for (Json& frame : frames) {
        if (frame["function"].is_null() && frame["module"].is_string()) nameless[frame["module"]].push_back(&frame);
    }
    std::vector<std::string> problems;
    for (const auto& [module, framesOfModule] : nameless) {
        const std::string whole = Format("{}/{}", directory, module);
        const std::string flat = Format("{}/{}", directory, module.substr(module.rfind('/') + 1));
        const bool hasWhole = access(whole.c_str(), R_OK) == 0;
        const bool hasFile = hasWhole || access(flat.c_str(), R_OK) == 0;
        const std::string problem = hasFile ? NameFunctions(hasWhole ? whole : flat, framesOfModule)
                                            : Format("{} has no file for {}", directory, module);
        if (!problem.empty()) problems.push_back(problem);
    }
    return problems;
}

}  // namespace tessel::ctl
