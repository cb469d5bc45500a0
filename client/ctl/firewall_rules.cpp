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

// "-A whitelist -s 192.168.1.0/24 -j RETURN"; in front of it, packets and bytes: "[12:3456]".
std::optional<SavedRule> ParseRule(std::string_view line) {
    SavedRule rule;
    if (line.starts_with('[')) {
        rule.packets = strtoull(std::string(line.substr(1)).c_str(), nullptr, 10);
        line.remove_prefix(std::min(line.find(' ') + 1, line.size()));
    }
    const auto words = SplitSavedLine(line);
    if (!words || words->size() < 2 || words->front() != "-A") return std::nullopt;
    rule.chain = (*words)[1];
    rule.words.assign(words->begin() + 2, words->end());
    line.remove_prefix(std::min(line.find(rule.chain) + rule.chain.size() + 1, line.size()));
    rule.text = line;
    return rule;
}

AddressBytes LastOf(AddressBytes network, u32 prefixLength, u32 bits) {
    constexpr u32 kByteBits = 8;
    for (u32 bit = prefixLength; bit < bits; ++bit)
        network[bit / kByteBits] |= static_cast<u8>(0x80U >> bit % kByteBits);
    return network;
}

}  // namespace

std::string SavedRule::Get(std::string_view option) const {
    const auto found = std::find(words.begin(), words.end(), option);
    return found == words.end() || found + 1 == words.end() ? "" : *(found + 1);
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

std::string Filter::Policy() const {
    const auto policy = policies.find("INPUT");
    return policy == policies.end() ? "ACCEPT" : policy->second;
}

std::optional<std::vector<std::string>> SplitSavedLine(std::string_view line) {
    std::vector<std::string> words;
    bool isQuoted = false;
    bool isInWord = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        const bool isBlank = c == ' ' || c == '\t';
        if (isBlank && !isQuoted) {
            isInWord = false;
            continue;
        }
        if (!isInWord) words.emplace_back();
        isInWord = true;
        if (c == '"') {
            isQuoted = !isQuoted;
            continue;
        }
        if (c == '\\' && isQuoted && i + 1 < line.size()) c = line[++i];
        words.back() += c;
    }
    if (isQuoted) return std::nullopt;
    return words;
}

Filter ParseFilter(std::string_view text, int family) {
    Filter filter;
    filter.family = family;
    std::istringstream lines{std::string(text)};
    bool isFilter = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('*')) {
            isFilter = line == "*filter";
        } else if (isFilter && line.starts_with(':')) {
            std::istringstream words(line.substr(1));
            std::string chain;
            words >> chain;
            words >> filter.policies[chain];
        } else if (isFilter) {
            if (auto rule = ParseRule(line)) filter.rules.push_back(std::move(*rule));
        }
    }
    return filter;
}

std::string SaveToolOf(int family) {
    return family == TESSEL_FAMILY_INET6 ? "ip6tables-save" : "iptables-save";
}

std::string RestoreToolOf(int family) {
    return family == TESSEL_FAMILY_INET6 ? "ip6tables-restore" : "iptables-restore";
}

Filter ReadFilter(int family) {
    const CapturedTool tool = CaptureTool({SaveToolOf(family), "-c", "-t", "filter"});
    Filter filter = ParseFilter(tool.text, family);
    filter.problem = tool.problem;
    return filter;
}

std::vector<int> FamiliesOf(const Options& options) {
    std::vector<int> families;
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        if (HasFamily(options, family)) families.push_back(family);
    }
    return families;
}

std::vector<Filter> ReadFilters(const Options& options) {
    std::vector<Filter> filters;
    for (const int family : FamiliesOf(options))
        filters.push_back(ReadFilter(family));
    return filters;
}

std::string MissingChain(const Filter& filter, std::string_view chain) {
    if (!filter.problem.empty() || filter.HasChain(chain)) return "";
    return fmt::format("there is no {} chain \"{}\" (tesselctl firewall chain add {})",
                       FamilyName(static_cast<u32>(filter.family)), chain, chain);
}

AddressBytes BytesOf(const u8 (&address)[16]) {
    AddressBytes bytes;
    memcpy(bytes.data(), address, bytes.size());
    return bytes;
}

u32 HostBits(int family) {
    return family == TESSEL_FAMILY_INET ? 32 : 128;
}

std::string SourceText(int family, const AddressBytes& address, u32 prefixLength) {
    if (prefixLength == 0) return "";
    const AddressBytes network = NetworkAddress(address, prefixLength);
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family == TESSEL_FAMILY_INET ? AF_INET : AF_INET6, network.data(), text, sizeof(text));
    return fmt::format("{}/{}", text, prefixLength);
}

bool CoversNetwork(const SavedRule& rule, const TNetGateway& network, u32 prefixLength) {
    const bool isNegated = std::find(rule.words.begin(), rule.words.end(), "!") != rule.words.end();
    if (isNegated || !rule.Get("--mac-source").empty()) return false;
    const AddressBytes first = NetworkAddress(BytesOf(network.abyAddr), prefixLength);
    const std::string range = rule.Get("--src-range");
    if (!range.empty()) {
        const auto ends = ParseRange(range);
        return ends && ends->first.wSinFamily == network.wSinFamily && BytesOf(ends->first.abyAddr) <= first &&
               LastOf(first, prefixLength, HostBits(network.wSinFamily)) <= BytesOf(ends->second.abyAddr);
    }
    const std::string source = rule.Get("-s");
    if (source.empty()) return true;
    const auto listed = ParsePrefixedAddress(source);
    return listed && listed->wSinFamily == network.wSinFamily && listed->dwPrefixLen <= prefixLength &&
           SourceText(network.wSinFamily, first, listed->dwPrefixLen) == source;
}

bool CoversHost(const SavedRule& rule, const TNetGateway& host) {
    return CoversNetwork(rule, host, HostBits(host.wSinFamily));
}

bool IsAllowed(const Filter& filter, const TNetGateway& host) {
    const auto entries = filter.Entries(kWhitelist);
    return std::any_of(entries.begin(), entries.end(), [&](const SavedRule& rule) { return CoversHost(rule, host); });
}

}  // namespace tessel::ctl
