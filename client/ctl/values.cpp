#include "client/ctl/values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "client/ctl/addresses.h"
#include "client/ctl/commands.h"
#include "client/ctl/kernel.h"
#include "client/ctl/messages.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/port_list.h"
#include "tessel/ipc.h"

namespace tessel::ctl {

namespace {

constexpr std::size_t kNameMax = TESSEL_NAME_SIZE - 1;
// Requests carry metrics with a sign.
constexpr u32 kMetricMax = 0x7fffffff;

std::optional<std::string> CheckName(const std::string& word) {
    if (word.empty()) return "an empty name";
    if (word.size() > kNameMax) return fmt::format("\"{}\" is longer than {} characters", word, kNameMax);
    const bool hasBlank = std::any_of(word.begin(), word.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; });
    if (hasBlank) return fmt::format("\"{}\" is not one word", word);
    return std::nullopt;
}

std::optional<std::string> CheckNumber(const std::string& word) {
    if (ParseNumber(word)) return std::nullopt;
    return fmt::format("\"{}\" is no number from 0 to 4294967295", word);
}

std::optional<std::string> CheckMetric(const std::string& word) {
    const auto metric = ParseNumber(word);
    if (metric && *metric <= kMetricMax) return std::nullopt;
    return fmt::format("\"{}\" is no number from 0 to {}", word, kMetricMax);
}

std::optional<std::string> CheckCode(const std::string& word) {
    if (ParseNumber(word) || FindMessage(word) != nullptr) return std::nullopt;
    return fmt::format("\"{}\" is neither a code nor the name of one", word);
}

std::optional<std::string> CheckNotEmpty(const std::string& word) {
    if (!word.empty()) return std::nullopt;
    return "an empty word";
}

std::optional<std::string> CheckPrefixedAddress(const std::string& word) {
    if (ParsePrefixedAddress(word)) return std::nullopt;
    return fmt::format("\"{}\" is no address with its length, such as 192.168.1.20/24", word);
}

std::optional<std::string> CheckHost(const std::string& word) {
    if (ParseHost(word)) return std::nullopt;
    const bool isZero = ParsePrefixedAddress(word + "/0").has_value();
    if (isZero) return fmt::format("\"{}\" stands for no gateway (use \"gateway del\" to be without)", word);
    return fmt::format("\"{}\" is no address, such as 192.168.1.1", word);
}

std::optional<std::string> CheckMac(const std::string& word) {
    if (ParseMac(word)) return std::nullopt;
    return fmt::format("\"{}\" is no hardware address, such as 02:00:00:00:00:01", word);
}

std::optional<std::string> CheckRange(const std::string& word) {
    if (ParseRange(word)) return std::nullopt;
    return fmt::format("\"{}\" is no range, such as 192.168.1.10-192.168.1.20", word);
}

// The kernel's xt_multiport takes 15 numbers, two for a range. Neither end of a range is left out.
std::optional<std::string> CheckPorts(const std::string& word) {
    constexpr std::size_t kNumbersMax = 15;
    const auto ports = ParsePorts(word);
    std::size_t count = 0;
    for (const auto& [first, last] : ports.value_or(PortList()))
        count += first == last ? 1 : 2;
    const bool isClosed = word.find_first_not_of("0123456789,:") == std::string::npos && !word.starts_with(':') &&
                          !word.ends_with(':') && word.find(":,") == std::string::npos &&
                          word.find(",:") == std::string::npos;
    if (ports && isClosed && count <= kNumbersMax) return std::nullopt;
    return fmt::format("\"{}\" is no list of at most 15 ports, such as 80,443", word);
}

std::vector<std::string> InterfaceNames() {
    std::vector<std::string> names;
    for (const KernelLink& link : KernelLinks())
        names.push_back(link.name);
    return names;
}

std::vector<std::string> CodeNames() {
    std::vector<std::string> names;
    for (const Message& message : Messages())
        names.emplace_back(message.name);
    return names;
}

std::vector<std::string> NoneKnown() {
    return {};
}

struct ValueKind {
    std::string_view word;
    std::optional<std::string> (*check)(const std::string& word);
    std::vector<std::string> (*known)();
};

constexpr ValueKind kKinds[] = {
    {"IF", &CheckName, &InterfaceNames},
    {"NAME", &CheckName, &NoneKnown},
    {"N", &CheckNumber, &NoneKnown},
    {"METRIC", &CheckMetric, &NoneKnown},
    {"CODE", &CheckCode, &CodeNames},
    {"OBJECT", &CheckNotEmpty, &ObjectNames},
    {"A/L", &CheckPrefixedAddress, &NoneKnown},
    {"A", &CheckHost, &NoneKnown},
    {"M", &CheckMac, &NoneKnown},
    {"A-A", &CheckRange, &NoneKnown},
    {"PORTS", &CheckPorts, &NoneKnown},
};

const ValueKind* FindKind(std::string_view word) {
    const auto* const found =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&](const ValueKind& kind) { return kind.word == word; });
    return found == std::end(kKinds) ? nullptr : found;
}

}  // namespace

std::optional<std::string> CheckValue(std::string_view kind, const std::string& word) {
    const ValueKind* found = FindKind(kind);
    return found == nullptr ? CheckNotEmpty(word) : found->check(word);
}

std::vector<std::string> KnownValues(std::string_view kind) {
    const ValueKind* found = FindKind(kind);
    return found == nullptr ? std::vector<std::string>{} : found->known();
}

std::optional<u32> ParseNumber(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    u32 number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace tessel::ctl
