#include "client/ctl/crash_report.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>

namespace tessel::ctl {

namespace {

constexpr std::string_view kBegin = "=============== Exception Occur =================\n";
constexpr std::string_view kRegisters = "=============CPU registers=============";
constexpr std::string_view kTrace = "===========Call Trace(";
constexpr std::string_view kMaps = "--------Process [";

// "<MODULE> (<FUNCTION> + OFFSET) [ADDRESS]"
std::optional<CrashFrame> ParseFrame(std::string_view line) {
    constexpr std::string_view kBehindModule = "> (<";
    constexpr std::string_view kBehindFunction = "> + ";
    constexpr std::string_view kBehindOffset = ") [";
    const std::size_t module = line.find(kBehindModule);
    const std::size_t offset = line.rfind(kBehindOffset);
    const std::size_t function = line.rfind(kBehindFunction, offset);
    const bool isFrame = line.starts_with('<') && line.ends_with(']') && module != std::string_view::npos &&
                         offset != std::string_view::npos && function != std::string_view::npos &&
                         module + kBehindModule.size() <= function;
    if (!isFrame) return std::nullopt;
    const auto part = [line](std::size_t from, std::size_t to) { return std::string(line.substr(from, to - from)); };
    return CrashFrame{.module = part(1, module),
                      .function = Demangled(part(module + kBehindModule.size(), function)),
                      .offset = part(function + kBehindFunction.size(), offset),
                      .address = part(offset + kBehindOffset.size(), line.size() - 1)};
}

// The value behind `key` when the line has it.
void TakeValue(const std::string& line, std::string_view key, std::string& value) {
    if (line.starts_with(key)) value = line.substr(key.size());
}

void TakeRegisters(const std::string& line, std::vector<std::string>& registers) {
    std::istringstream words(line);
    for (std::string word; words >> word;)
        registers.push_back(word.substr(0, word.find(',')));
}

using Trace = std::vector<CrashFrame>;

// A trace may begin in the handler; the faulting address is the first register.
Trace FromFault(const Trace& trace, const std::vector<std::string>& registers) {
    const std::string counter = registers.empty() ? "" : registers[0].substr(registers[0].find(':') + 1);
    const auto fault =
        std::find_if(trace.begin(), trace.end(), [&](const CrashFrame& frame) { return frame.address == counter; });
    return {fault != trace.end() ? fault : trace.begin(), trace.end()};
}

CrashReport ParseOne(std::string_view text) {
    CrashReport report;
    std::vector<Trace> traces;
    bool areRegisters = false;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line) && !line.starts_with(kMaps);) {
        TakeValue(line, "Thread id: ", report.threadId);
        TakeValue(line, "Thread name:", report.threadName);
        TakeValue(line, "Signal num: ", report.signal);
        TakeValue(line, "Exception time: ", report.time);
        if (line.starts_with(kTrace)) traces.emplace_back();
        areRegisters = line == kRegisters || (areRegisters && !line.empty());
        if (areRegisters && line != kRegisters) TakeRegisters(line, report.registers);
        const auto frame = ParseFrame(line);
        if (frame && !traces.empty()) traces.back().push_back(*frame);
    }
    for (const Trace& trace : traces) {
        Trace fromFault = FromFault(trace, report.registers);
        if (fromFault.size() > report.frames.size()) report.frames = std::move(fromFault);
    }
    return report;
}

}  // namespace

std::string Demangled(const std::string& name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? std::string(text.get()) : name;
}

std::vector<CrashReport> ParseCrashReports(std::string_view text) {
    std::vector<CrashReport> reports;
    for (std::size_t begin = text.find(kBegin); begin != std::string_view::npos;) {
        const std::size_t end = text.find(kBegin, begin + kBegin.size());
        reports.push_back(ParseOne(text.substr(begin, end - begin)));
        begin = end;
    }
    return reports;
}

}  // namespace tessel::ctl
