// Everything that the tool can do, and which of it a line asks for. A new object is a file with its rows, and a name in
// the two lists here.
#include "client/ctl/command.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

// Each is defined in the file of its name.
extern const Object kStatusObject, kAddr, kLink, kGateway, kPriority, kRoute, kTable, kRule, kDhcp, kDhcpd, kNtp,
    kPppoe, kBond, kWeb, kFirewall, kArp, kConflict, kPing, kTraceroute, kRa, kTraffic, kWhy, kMonitor, kWait, kExport,
    kDiff, kApply, kTry, kTrace, kService, kLog, kCrash, kRaw, kHelp;

namespace {

// The names that `word` may stand for: the one that it is, else all that begin with it.
std::vector<std::string_view> NamesFor(std::string_view word, const std::vector<std::string_view>& names) {
    std::vector<std::string_view> found;
    for (const std::string_view name : names) {
        if (name == word) return {name};
        if (!word.empty() && name.starts_with(word)) found.push_back(name);
    }
    return found;
}

std::vector<const Command*> RowsOf(const Object& object, std::string_view verb) {
    std::vector<const Command*> rows;
    for (const Command& command : object.commands)
        if (command.verb == verb) rows.push_back(&command);
    return rows;
}

Failure NotOne(std::string_view word, std::string_view what, const std::vector<std::string_view>& found,
               const std::vector<std::string_view>& all) {
    if (found.empty()) return Refused(word, Format("no such {} (known: {})", what, Joined(all, ", ")));
    return Refused(word, "may be " + Joined(found, " or "));
}

bool IsKeywordOf(const std::vector<const Command*>& rows, const std::string& word) {
    return std::ranges::any_of(rows, [&](const Command* row) {
        const auto expected = MatchWords(row->words, {}).expected;
        return std::ranges::any_of(expected, [&](const Token& token) { return token.isKeyword && token.name == word; });
    });
}

Selection SelectVerb(const Object& object, const std::vector<std::string>& words) {
    const auto verbs = VerbsOf(object);
    const auto verbless = RowsOf(object, "");
    const auto shown = RowsOf(object, "show");
    const auto selected = [&](bool hasVerb, const std::vector<const Command*>& rows, int used) {
        return Selection{&object, hasVerb, rows, {words.begin() + used, words.end()}};
    };
    if (words.size() == 1 && !verbs.empty() && verbless.empty()) {
        if (shown.empty()) throw Refused(object.name, Format("a verb is missing ({})", Joined(verbs, ", ")));
        return selected(false, shown, 1);
    }
    if (verbs.empty() || words.size() == 1) return selected(true, verbless, 1);
    const std::string& word = words[1];
    const auto found = NamesFor(word, verbs);
    if (found.size() == 1) return selected(true, RowsOf(object, found[0]), 2);
    const bool isSameAsShow = word == "list" || word == "status";
    if (isSameAsShow && !shown.empty()) return selected(true, shown, 2);
    if (IsKeywordOf(shown, word)) return selected(false, shown, 1);
    if (found.empty() && !verbless.empty()) return selected(true, verbless, 1);
    throw NotOne(Format("{} {}", object.name, word), "verb", found, verbs);
}

constexpr std::array kObjects = {&kStatusObject, &kAddr,    &kLink,     &kGateway, &kPriority,   &kRoute, &kTable,
                                 &kRule,         &kDhcp,    &kDhcpd,    &kNtp,     &kPppoe,      &kBond,  &kWeb,
                                 &kFirewall,     &kArp,     &kConflict, &kPing,    &kTraceroute, &kRa,    &kTraffic,
                                 &kWhy,          &kMonitor, &kWait,     &kExport,  &kDiff,       &kApply, &kTry,
                                 &kTrace,        &kService, &kLog,      &kCrash,   &kRaw,        &kHelp};

}  // namespace

const Object& FindObject(std::string_view word) {
    std::vector<std::string_view> objects;
    for (const Object* object : Objects())
        objects.push_back(object->name);
    const auto found = NamesFor(word, objects);
    if (found.size() != 1) throw NotOne(word, "object", found, objects);
    return **std::ranges::find(Objects(), found[0], &Object::name);
}

Selection SelectCommand(const std::vector<std::string>& words) {
    if (words.empty()) return SelectCommand({"status"});
    return SelectVerb(FindObject(words[0]), words);
}

ParsedCommand ParseWords(const std::vector<std::string>& words) {
    const Selection selection = SelectCommand(words);
    // Rows of one verb differ in their words; the one that gets furthest says what is wrong.
    const Command* nearest = nullptr;
    Match nearestMatch;
    for (const Command* row : selection.rows) {
        Match match = MatchWords(row->words, selection.rest);
        if (match.isComplete) {
            const std::string line = Joined(selection.rest, " ");
            return {selection.object, row, std::move(match.words),
                    TitleOf(*selection.object, *row) + (line.empty() ? "" : " ") + line};
        }
        if (nearest == nullptr || match.matchedWords > nearestMatch.matchedWords) {
            nearest = row;
            nearestMatch = std::move(match);
        }
    }
    const std::string title = TitleOf(*selection.object, *nearest);
    const std::string usages = Joined(selection.rows, ", or ", [&](const Command* row) {
        return Format("tesselctl {}{}{}", title, row->words.empty() ? "" : " ", UsageWords(row->words));
    });
    throw Refused(title, Format("{} (usage: {})", nearestMatch.problem, usages));
}

std::string TitleOf(const Object& object, const Command& command) {
    return command.verb.empty() ? std::string(object.name) : Format("{} {}", object.name, command.verb);
}

std::vector<std::string_view> VerbsOf(const Object& object) {
    std::vector<std::string_view> verbs;
    for (const Command& command : object.commands)
        if (!command.verb.empty() && std::ranges::count(verbs, command.verb) == 0) verbs.push_back(command.verb);
    return verbs;
}

std::span<const Object* const> Objects() {
    return kObjects;
}

}  // namespace tessel::ctl
