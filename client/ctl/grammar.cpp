#include "client/ctl/grammar.h"

#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/commands.h"

namespace tessel::ctl {

namespace {

constexpr std::string_view kDefaultObject = "status";
constexpr std::string_view kDefaultVerb = "show";
constexpr std::string_view kSameAsShow[] = {"list", "status"};

// The names that `word` may stand for: the one that it is, else all that begin with it.
std::vector<std::string_view> NamesFor(std::string_view word, const std::vector<std::string_view>& names) {
    std::vector<std::string_view> found;
    for (const std::string_view name : names) {
        if (name == word) return {name};
        if (!word.empty() && name.starts_with(word)) found.push_back(name);
    }
    return found;
}

std::vector<std::string_view> AllObjects() {
    std::vector<std::string_view> objects;
    for (const Command& command : Commands()) {
        if (objects.empty() || objects.back() != command.object) objects.push_back(command.object);
    }
    return objects;
}

std::vector<std::string_view> VerbsOf(std::string_view object) {
    std::vector<std::string_view> verbs;
    for (const Command& command : Commands()) {
        const bool isNew = std::find(verbs.begin(), verbs.end(), command.verb) == verbs.end();
        if (command.object == object && !command.verb.empty() && isNew) verbs.push_back(command.verb);
    }
    return verbs;
}

std::vector<const Command*> RowsOf(std::string_view object, std::string_view verb) {
    std::vector<const Command*> rows;
    for (const Command& command : Commands()) {
        if (command.object == object && command.verb == verb) rows.push_back(&command);
    }
    return rows;
}

Failure NotOne(std::string_view word, std::string_view what, const std::vector<std::string_view>& found,
               const std::vector<std::string_view>& all) {
    if (found.empty()) return Refused(word, fmt::format("no such {} (known: {})", what, fmt::join(all, ", ")));
    return Refused(word, fmt::format("may be {}", fmt::join(found, " or ")));
}

std::vector<std::string> From(const std::vector<std::string>& words, std::size_t first) {
    return {words.begin() + static_cast<std::ptrdiff_t>(std::min(first, words.size())), words.end()};
}

bool IsKeywordOf(const std::vector<const Command*>& rows, const std::string& word) {
    return std::any_of(rows.begin(), rows.end(), [&](const Command* row) {
        const Match match = MatchWords(row->words, {});
        return std::any_of(match.expected.begin(), match.expected.end(),
                           [&](const Token& token) { return token.isKeyword && token.name == word; });
    });
}

std::variant<Selection, Failure> SelectVerb(std::string_view object, const std::vector<std::string>& words) {
    const auto verbs = VerbsOf(object);
    const auto verbless = RowsOf(object, "");
    const auto shown = RowsOf(object, kDefaultVerb);
    if (words.size() == 1 && !verbs.empty() && verbless.empty()) {
        if (shown.empty()) return Refused(object, fmt::format("what of it? ({})", fmt::join(verbs, ", ")));
        return Selection{.object = object, .hasVerb = false, .rows = shown, .rest = {}};
    }
    if (verbs.empty() || words.size() == 1) {
        return Selection{.object = object, .hasVerb = true, .rows = verbless, .rest = From(words, 1)};
    }
    const std::string& word = words[1];
    const auto found = NamesFor(word, verbs);
    if (found.size() == 1) {
        return Selection{.object = object, .hasVerb = true, .rows = RowsOf(object, found[0]), .rest = From(words, 2)};
    }
    if (!shown.empty()) {
        const bool isAlias = std::find(std::begin(kSameAsShow), std::end(kSameAsShow), word) != std::end(kSameAsShow);
        if (isAlias) return Selection{.object = object, .hasVerb = true, .rows = shown, .rest = From(words, 2)};
        if (IsKeywordOf(shown, word)) {
            return Selection{.object = object, .hasVerb = false, .rows = shown, .rest = From(words, 1)};
        }
    }
    if (found.empty() && !verbless.empty()) {
        return Selection{.object = object, .hasVerb = true, .rows = verbless, .rest = From(words, 1)};
    }
    return NotOne(fmt::format("{} {}", object, word), "verb", found, verbs);
}

}  // namespace

std::variant<Selection, Failure> SelectCommand(const std::vector<std::string>& words) {
    if (words.empty()) {
        return Selection{.object = {}, .hasVerb = false, .rows = RowsOf(kDefaultObject, ""), .rest = {}};
    }
    const auto objects = AllObjects();
    const auto found = NamesFor(words[0], objects);
    if (found.size() != 1) return NotOne(words[0], "object", found, objects);
    return SelectVerb(found[0], words);
}

std::variant<ParsedCommand, Failure> ParseWords(const std::vector<std::string>& words) {
    auto selected = SelectCommand(words);
    if (auto* failure = std::get_if<Failure>(&selected)) return std::move(*failure);
    const auto& selection = std::get<Selection>(selected);
    // Rows of one verb differ in their words; the one that gets furthest says what is wrong.
    const Command* nearest = nullptr;
    Match nearestMatch;
    for (const Command* row : selection.rows) {
        Match match = MatchWords(row->words, selection.rest);
        if (match.isComplete) return ParsedCommand{row, std::move(match.arguments)};
        if (nearest == nullptr || match.matchedWords > nearestMatch.matchedWords) {
            nearest = row;
            nearestMatch = std::move(match);
        }
    }
    return Refused(TitleOf(*nearest), fmt::format("{} (usage: tesselctl {} {})", nearestMatch.problem,
                                                  TitleOf(*nearest), UsageWords(nearest->words)));
}

std::string TitleOf(const Command& command) {
    if (command.verb.empty()) return std::string(command.object);
    return fmt::format("{} {}", command.object, command.verb);
}

}  // namespace tessel::ctl
