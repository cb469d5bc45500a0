#include "client/ctl/filter.h"

#include <sstream>

#include "client/ctl/files.h"

namespace tessel::ctl {

namespace {

// "-A whitelist -s 192.168.1.0/24 -j RETURN"; in front of it, packets and bytes: "[12:3456]".
std::optional<FilterRule> ParseRule(std::string_view line) {
    FilterRule rule;
    if (line.starts_with('[')) {
        rule.packets = strtoull(std::string(line.substr(1)).c_str(), nullptr, 10);
        line.remove_prefix(std::min(line.find(' ') + 1, line.size()));
    }
    const auto words = SplitSavedLine(line);
    if (!words || words->size() < 2 || words->front() != "-A") return std::nullopt;
    rule.chain = (*words)[1];
    rule.words.assign(words->begin() + 2, words->end());
    return rule;
}

// A value as iptables-save prints it, or at least always in the same form.
std::string Canonical(const std::string& value) {
    if (const auto network = ParseNetwork(value)) return NetworkText(Masked(*network));
    if (const auto host = ParseHost(value)) return NetworkText(*host);
    if (const auto range = ParseRange(value)) return NetworkText(range->first) + "-" + NetworkText(range->last);
    if (const auto mac = ParseMac(value)) return MacText(*mac);
    if (value == "icmpv6") return "ipv6-icmp";
    return value == "notice" ? "5" : value;
}

// What a rule consists of, in an order and a form in which two of them can be compared: the tools' own differ from
// those in which it was typed.
std::vector<std::string> PiecesOf(const FilterRule& rule) {
    std::vector<std::string> pieces;
    std::string negation;
    for (std::size_t i = 0; i < rule.words.size(); ++i) {
        std::string option = rule.words[i];
        if (option == "!") {
            negation = "! ";
            continue;
        }
        const bool hasValue = i + 1 < rule.words.size() && !rule.words[i + 1].starts_with('-');
        const std::string value = hasValue ? Canonical(rule.words[++i]) : "";
        if (option.ends_with("ports")) option.pop_back();
        // A protocol brings its matches along, and every address is one of a network without length.
        if (option != "-m" && value != "0.0.0.0/0" && value != "::/0")
            pieces.push_back(negation + option + " " + value);
        negation.clear();
    }
    std::sort(pieces.begin(), pieces.end());
    return pieces;
}

template <typename Rules>
auto FindRule(Rules& rules, const FilterRule& wanted) {
    const auto pieces = PiecesOf(wanted);
    return std::find_if(rules.begin(), rules.end(),
                        [&](const FilterRule& rule) { return rule.chain == wanted.chain && PiecesOf(rule) == pieces; });
}

// Those of the tools' own are written in capitals.
bool IsTarget(const Filter& filter, const std::string& name) {
    return filter.HasChain(name) ||
           std::all_of(name.begin(), name.end(), [](unsigned char c) { return c >= 'A' && c <= 'Z'; });
}

}  // namespace

std::string FilterRule::Get(std::string_view option) const {
    const auto found = std::find(words.begin(), words.end(), option);
    return found == words.end() || found + 1 == words.end() ? "" : *(found + 1);
}

std::string FilterRule::Text() const {
    std::vector<std::string> shown;
    for (const std::string& word : words)
        shown.push_back(word.find(' ') == std::string::npos ? word : Format("\"{}\"", word));
    return Joined(shown, " ");
}

bool Filter::Has(const FilterRule& rule) const {
    return FindRule(rules, rule) != rules.end();
}

bool Filter::IsHooked(std::string_view chain) const {
    return std::any_of(rules.begin(), rules.end(),
                       [&](const FilterRule& rule) { return rule.chain == "INPUT" && rule.Get("-j") == chain; });
}

std::vector<FilterRule> Filter::Entries(std::string_view list) const {
    const std::string_view target = list == kWhitelist ? "RETURN" : "DROP";
    std::vector<FilterRule> entries;
    std::copy_if(rules.begin(), rules.end(), std::back_inserter(entries),
                 [&](const FilterRule& rule) { return rule.chain == list && rule.Get("-j") == target; });
    return entries;
}

std::optional<FilterLine> ParseFilterLine(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    if (words.size() > 2 && words[1] == "-t") words.erase(words.begin() + 1, words.begin() + 3);
    if (words.size() < 3 || (words[0] != "iptables" && words[0] != "ip6tables")) return std::nullopt;
    FilterLine parsed{.family = words[0] == "iptables" ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6,
                      .operation = words[1],
                      .rule = {.chain = words[2], .words = {words.begin() + 3, words.end()}}};
    return parsed;
}

bool Filter::Apply(const FilterLine& line) {
    if (line.family != family) return true;
    if (!problem.empty()) return line.operation != "-C";
    const FilterRule& rule = line.rule;
    if (line.operation == "-N") return policies.emplace(rule.chain, "-").second;
    if (!HasChain(rule.chain)) return false;
    if (line.operation == "-F") {
        std::erase_if(rules, [&](const FilterRule& old) { return old.chain == rule.chain; });
        return true;
    }
    const auto found = FindRule(rules, rule);
    if (line.operation == "-C") return found != rules.end();
    if (line.operation == "-D") {
        if (found == rules.end()) return false;
        rules.erase(found);
        return true;
    }
    if (!IsTarget(*this, rule.Get("-j"))) return false;
    rules.insert(line.operation == "-I" ? rules.begin() : rules.end(), rule);
    return true;
}

std::optional<std::vector<std::string>> SplitSavedLine(std::string_view line) {
    std::vector<std::string> words;
    bool isQuoted = false;
    bool isInWord = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if ((c == ' ' || c == '\t') && !isQuoted) {
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
    // The tools leave out a table that nobody has touched.
    Filter filter{.family = family,
                  .policies = {{"INPUT", "ACCEPT"}, {"FORWARD", "ACCEPT"}, {"OUTPUT", "ACCEPT"}},
                  .rules = {},
                  .problem = ""};
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

Filter ReadFilter(int family) {
    const CapturedTool tool = CaptureTool({ToolOf(family) + "-save", "-c", "-t", "filter"});
    Filter filter = ParseFilter(tool.text, family);
    filter.problem = tool.problem;
    return filter;
}

std::vector<Filter> ReadFilters(const Options& options) {
    std::vector<Filter> filters;
    for (const int family : FamiliesOf(options))
        filters.push_back(ReadFilter(family));
    return filters;
}

std::string ToolOf(int family) {
    return family == TESSEL_FAMILY_INET6 ? "ip6tables" : "iptables";
}

}  // namespace tessel::ctl
