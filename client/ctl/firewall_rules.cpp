#include "client/ctl/firewall_rules.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "client/ctl/next_hop.h"
#include "client/ctl/tool_output.h"

namespace tessel::ctl {

namespace {

// "[12:3456] -A whitelist -s 192.168.1.0/24 -j RETURN": packets and bytes in front.
std::optional<SavedRule> ParseRule(std::istringstream& words, const std::string& counters) {
    std::string option;
    SavedRule rule;
    words >> option >> rule.chain;
    if (!words || option != "-A") return std::nullopt;
    rule.packets = strtoull(counters.c_str() + 1, nullptr, 10);
    for (std::string word; words >> word;)
        rule.words.push_back(word);
    return rule;
}

AddressBytes BytesOf(const TNetGateway& host) {
    AddressBytes bytes;
    memcpy(bytes.data(), host.abyAddr, bytes.size());
    return bytes;
}

}  // namespace

std::string SavedRule::Get(std::string_view option) const {
    const auto found = std::find(words.begin(), words.end(), option);
    return found == words.end() || found + 1 == words.end() ? "" : *(found + 1);
}

std::string SavedRule::Text() const {
    return fmt::format("{}", fmt::join(words, " "));
}

bool Filter::IsHooked(std::string_view chain) const {
    return std::any_of(rules.begin(), rules.end(),
                       [&](const SavedRule& rule) { return rule.chain == "INPUT" && rule.Get("-j") == chain; });
}

std::vector<SavedRule> Filter::Entries(std::string_view list) const {
    std::vector<SavedRule> entries;
    const std::string_view target = list == kWhitelist ? "RETURN" : "DROP";
    std::copy_if(rules.begin(), rules.end(), std::back_inserter(entries),
                 [&](const SavedRule& rule) { return rule.chain == list && rule.Get("-j") == target; });
    return entries;
}

Filter ParseFilter(std::string_view text, int family) {
    Filter filter;
    filter.family = family;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string first;
        std::string policy;
        words >> first;
        if (first.starts_with(':')) {
            words >> policy;
            filter.policies[first.substr(1)] = policy;
        } else if (first.starts_with('[')) {
            if (auto rule = ParseRule(words, first)) filter.rules.push_back(std::move(*rule));
        }
    }
    return filter;
}

Filter ReadFilter(int family) {
    const char* program = family == TESSEL_FAMILY_INET6 ? "ip6tables-save" : "iptables-save";
    const CapturedTool tool = CaptureTool({program, "-c", "-t", "filter"});
    Filter filter = ParseFilter(tool.text, family);
    filter.problem = tool.problem;
    return filter;
}

std::string SourceText(int family, const AddressBytes& address, u32 prefixLength) {
    if (prefixLength == 0) return "";
    const AddressBytes network = NetworkAddress(address, prefixLength);
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family == TESSEL_FAMILY_INET ? AF_INET : AF_INET6, network.data(), text, sizeof(text));
    return fmt::format("{}/{}", text, prefixLength);
}

bool CoversHost(const SavedRule& rule, const TNetGateway& host) {
    if (!rule.Get("--mac-source").empty()) return false;
    const std::string range = rule.Get("--src-range");
    if (!range.empty()) {
        const auto ends = ParseRange(range);
        return ends && ends->first.wSinFamily == host.wSinFamily && BytesOf(ends->first) <= BytesOf(host) &&
               BytesOf(host) <= BytesOf(ends->second);
    }
    const std::string source = rule.Get("-s");
    if (source.empty()) return true;
    const auto network = ParsePrefixedAddress(source);
    return network && network->wSinFamily == host.wSinFamily &&
           SourceText(host.wSinFamily, BytesOf(host), network->dwPrefixLen) == source;
}

}  // namespace tessel::ctl
