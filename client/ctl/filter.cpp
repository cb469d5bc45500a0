#include "client/ctl/filter.h"

#include <iomanip>
#include <sstream>

#include "client/ctl/files.h"

namespace tessel::ctl {

namespace {

// A word as iptables-save prints it, or at least always in the same form.
std::string Canonical(const std::string& word) {
    if (const auto network = ParseNetwork(word)) return NetworkText(Masked(*network));
    if (const auto mac = ParseMac(word)) return MacText(*mac);
    if (word.starts_with("--") && word.ends_with("ports")) return word.substr(0, word.size() - 1);
    if (word == "icmpv6") return "ipv6-icmp";
    return word == "notice" ? "5" : word;
}

// What a rule consists of, in an order and a form that can be compared: those of the tools differ from those typed.
std::vector<std::string> PiecesOf(const FilterRule& rule) {
    std::vector<std::string> pieces;
    for (const std::string& word : rule.words) {
        const bool isOption = word.starts_with('-') || word == "!";
        if (pieces.empty() || (isOption && pieces.back() != " !")) pieces.emplace_back();
        pieces.back() += " " + Canonical(word);
    }
    // A protocol brings its matches along, and every address is one of a network without length.
    std::erase_if(pieces, [](const std::string& piece) {
        return piece.starts_with(" -m ") || piece.ends_with(" 0.0.0.0/0") || piece.ends_with(" ::/0");
    });
    std::sort(pieces.begin(), pieces.end());
    return pieces;
}

auto FindRule(const std::vector<FilterRule>& rules, const FilterRule& wanted) {
    const auto pieces = PiecesOf(wanted);
    return std::ranges::find_if(rules, [&](auto& one) { return one.chain == wanted.chain && PiecesOf(one) == pieces; });
}

}  // namespace

std::optional<FilterRule> ParseRule(const std::string& line) {
    FilterRule rule;
    const bool isCounted = line.starts_with('[');
    if (isCounted) rule.packets = strtoull(line.c_str() + 1, nullptr, 10);
    const auto words = SplitSavedLine(line.substr(isCounted ? line.find(']') + 1 : 0));
    if (!words || words->size() < 2 || words->front() != "-A") return std::nullopt;
    rule.chain = (*words)[1];
    rule.words.assign(words->begin() + 2, words->end());
    return rule;
}

std::string FilterRule::Get(std::string_view option) const {
    const auto found = std::find(words.begin(), words.end(), option);
    return found == words.end() || found + 1 == words.end() ? "" : *(found + 1);
}

std::string FilterRule::Text() const {
    const auto shown = [](auto& word) { return word.find(' ') == word.npos ? word : Format("\"{}\"", word); };
    return Joined(words, " ", shown);
}

bool Filter::Has(const FilterRule& rule) const {
    return FindRule(rules, rule) != rules.end();
}

bool Filter::IsHooked(std::string_view chain) const {
    return std::ranges::any_of(rules, [&](auto& rule) { return rule.chain == "INPUT" && rule.Get("-j") == chain; });
}

std::vector<FilterRule> Filter::Entries(std::string_view list) const {
    const std::string_view target = list == kWhitelist ? "RETURN" : "DROP";
    std::vector<FilterRule> entries = rules;
    std::erase_if(entries, [&](const auto& rule) { return rule.chain != list || rule.Get("-j") != target; });
    return entries;
}

std::string Filter::Apply(const std::string& operation, const FilterRule& rule) {
    if (!problem.empty()) return operation == "-C" ? problem : "";
    if (operation == "-N" && !policies.emplace(rule.chain, "-").second)
        return Format("there is an {} chain already", NameOf(rule.chain));
    const bool isAdded = operation == "-A" || operation == "-I";
    const std::string target = isAdded ? rule.Get("-j") : "";
    // The tools' own targets are written in capitals.
    const bool isOwn = std::all_of(target.begin(), target.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    for (const std::string& chain : {rule.chain, isOwn ? rule.chain : target}) {
        if (!policies.contains(chain))
            return Format("there is no {} chain (tesselctl firewall chain add {})", NameOf(chain), chain);
    }
    const auto found = FindRule(rules, rule);
    if (found == rules.end() && (operation == "-D" || operation == "-C"))
        return Format("the {} chain has no rule \"{}\"", NameOf(rule.chain), rule.Text());
    if (operation == "-F") std::erase_if(rules, [&](const FilterRule& old) { return old.chain == rule.chain; });
    if (operation == "-D") rules.erase(found);
    if (isAdded) rules.insert(operation == "-I" ? rules.begin() : rules.end(), rule);
    return "";
}

std::optional<bool> FilterPlan::Apply(const std::string& line) {
    auto words = WordsIn(line);
    if (words.size() > 2 && words[1] == "-t") words.erase(words.begin() + 1, words.begin() + 3);
    if (words.size() < 3 || (words[0] != "iptables" && words[0] != "ip6tables")) return std::nullopt;
    const int family = words[0] == "iptables" ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
    const std::string& operation = words[1];
    const FilterRule rule{.chain = words[2], .words = {words.begin() + 3, words.end()}};
    if (!now.contains(family)) then[family] = now[family] = ReadFilter(family);
    Filter& filter = then[family];
    const bool isEmptied = operation == "-F" && (rule.chain == kWhitelist || rule.chain == kBlacklist);
    const std::size_t entries = filter.Entries(rule.chain).size();
    const std::string list = filter.NameOf(rule.chain);
    if (isEmptied && entries > 0)
        losses.push_back(Format("{} {} of the {} would be deleted", entries, entries == 1 ? "entry" : "entries", list));
    if (isEmptied && !filter.problem.empty())
        losses.push_back(Format("it is not known which entries of the {} would be deleted ({})", list, filter.problem));
    const std::string refused = filter.Apply(operation, rule);
    if (operation != "-C") refusal = refused;
    return refused.empty();
}

std::optional<std::vector<std::string>> SplitSavedLine(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream stream(line);
    while (!(stream >> std::ws).eof()) {
        const bool isQuoted = stream.peek() == '"';
        std::string& word = words.emplace_back();
        if (!(stream >> std::quoted(word))) return std::nullopt;
        // The tools quote whole words.
        const bool isWhole = stream.peek() == EOF || std::isspace(stream.peek()) != 0;
        if (!isWhole || (!isQuoted && word.find('"') != std::string::npos)) return std::nullopt;
    }
    return words;
}

Filter ParseFilter(std::string_view text, int family) {
    Filter filter{.family = family, .policies = {{"INPUT", "ACCEPT"}, {"FORWARD", "ACCEPT"}, {"OUTPUT", "ACCEPT"}}};
    std::istringstream lines{std::string(text)};
    bool isFilter = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('*')) {
            isFilter = line == "*filter";
        } else if (isFilter && line.starts_with(':')) {
            std::istringstream words(line.substr(1));
            std::string chain;
            words >> chain >> filter.policies[chain];
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

}  // namespace tessel::ctl
