#include "client/ctl/words.h"

namespace tessel::ctl {

namespace {

// Words that come together: a keyword with its values, or a single value.
struct Item {
    std::vector<Token> tokens;
    bool isOptional = false;
    bool repeats = false;
    bool isUsed = false;

    [[nodiscard]] const Token& First() const {
        return tokens.front();
    }
};

std::string_view WithoutBounds(std::string_view kind) {
    return kind.substr(0, kind.find(':'));
}

Token ParseToken(std::string_view word) {
    const std::size_t equals = word.find('=');  // no name: the choices are everything
    Token token{.name = word.substr(0, equals), .isKeyword = false, .choices = Split(word.substr(equals + 1), '|')};
    if (token.choices.size() == 1) token.choices.clear();
    token.isKeyword = token.choices.empty() && !IsKind(word);
    return token;
}

std::vector<Item> ParsePattern(std::string_view pattern) {
    std::vector<Item> items;
    bool inBrackets = false;
    bool joins = false;  // the next value belongs to the item before
    for (std::string_view word : Split(pattern, ' ')) {
        const bool opens = word.starts_with('[');
        const bool repeats = word.ends_with("...");
        word.remove_prefix(opens ? 1 : 0);
        word.remove_suffix(repeats ? 3 : 0);
        const bool closes = word.ends_with(']');
        word.remove_suffix(closes ? 1 : 0);
        const Token token = ParseToken(word);
        if (opens || (!inBrackets && token.isKeyword) || !joins) {
            items.emplace_back().isOptional = opens;
            inBrackets = opens;
        }
        items.back().tokens.push_back(token);
        items.back().repeats = repeats;
        if (closes) inBrackets = false;
        joins = inBrackets || (items.back().First().isKeyword && !closes);
    }
    return items;
}

// How well a wrong word fits a kind: the message names the one that fits best.
int Likeness(std::string_view kind, const std::string& word) {
    const auto has = [&](char c) { return word.find(c) != std::string::npos; };
    const auto colons = std::count(word.begin(), word.end(), ':');
    if (kind == "A/L") return has('/') ? 3 : 0;
    if (kind == "M") return colons == 5 && !has('.') && !has('/') ? 2 : 0;
    if (kind == "A-A") return has('-') && has('.') ? 2 : 0;
    return kind == "A" && (has('.') || colons > 1) ? 1 : 0;
}

ParsedValue ValueOf(const Token& token, const std::string& word) {
    if (token.choices.empty()) return ParseValue(token.name, word);
    std::vector<std::string_view> names = token.choices;
    std::ranges::transform(names, names.begin(), &WithoutBounds);
    ParsedValue wrong{.value = std::nullopt, .problem = Format("\"{}\" is not one of {}", word, Joined(names, ", "))};
    int best = 0;
    for (const std::string_view choice : token.choices) {
        if (!IsKind(choice)) {
            if (choice == word) return {.value = word, .problem = {}};
            continue;
        }
        ParsedValue parsed = ParseValue(choice, word);
        if (parsed.value) return parsed;
        const int likeness = Likeness(choice, word);
        if (likeness <= best) continue;
        best = likeness;
        wrong.problem = std::move(parsed.problem);
    }
    return wrong;
}

std::string Described(const Item& item) {
    return Joined(item.tokens, " ", [](const Token& token) {
        return token.choices.empty() ? std::string(WithoutBounds(token.name)) : Joined(token.choices, "|");
    });
}

class Matcher {
  public:
    Matcher(std::vector<Item> items, const std::vector<std::string>& words) : items_(std::move(items)), words_(words) {}

    Match Run() {
        while (next_ < words_.size()) {
            Item* item = ItemFor(words_[next_]);
            if (problem_.empty()) problem_ = Format("\"{}\" is one word too many", words_[next_]);
            const bool isTaken = item == nullptr ? Stop(problem_) : Take(*item);
            if (!isTaken) return std::move(match_);
        }
        NoteExpected();
        const auto missing = std::ranges::find_if(items_, [](auto& item) { return !item.isUsed && !item.isOptional; });
        match_.isComplete = missing == items_.end();
        if (!match_.isComplete) (void)Stop(Described(*missing) + " is missing");
        return std::move(match_);
    }

  private:
    // A keyword where one is open, else the next value that fits (optional ones need not), else a name without "dev".
    Item* ItemFor(const std::string& word) {
        for (Item& item : items_)
            if ((!item.isUsed || item.repeats) && item.First().isKeyword && item.First().name == word) return &item;
        for (Item& item : items_) {
            if (item.First().isKeyword || (item.isUsed && !item.repeats)) continue;
            const ParsedValue value = ValueOf(item.First(), word);
            if (value.value || (!item.isUsed && !item.isOptional)) return &item;
            if (problem_.empty()) problem_ = value.problem;
        }
        for (Item& item : items_) {
            const bool isInterface = item.tokens.size() == 2 && item.First().name == "dev";
            if (isInterface && !item.isUsed && ParseValue(item.tokens[1].name, word).value) return &item;
        }
        return nullptr;
    }

    // All words of the item. False when one is missing or wrong.
    bool Take(Item& item) {
        const Token& first = item.First();
        item.isUsed = true;
        problem_.clear();
        if (first.isKeyword && words_[next_] == first.name) {
            ++next_;
            if (item.tokens.size() == 1) match_.words.Add(first.name, "", std::string());
        }
        for (const Token& token : item.tokens) {
            if (token.isKeyword) continue;
            if (next_ == words_.size()) {
                match_.expected.push_back(token);
                return Stop(Described(item) + " is missing");
            }
            ParsedValue parsed = ValueOf(token, words_[next_]);
            if (!parsed.value) return Stop(std::move(parsed.problem));
            const bool isOwn = first.isKeyword && &token == &item.tokens[1];
            match_.words.Add(isOwn ? first.name : WithoutBounds(token.name), words_[next_], std::move(*parsed.value));
            ++next_;
        }
        return true;
    }

    void NoteExpected() {
        bool waitsForValue = false;  // the ones after it cannot come before it
        for (const Item& item : items_) {
            const bool isValue = !item.First().isKeyword;
            const bool isOpen = !item.isUsed || item.repeats;
            if (isOpen && !(isValue && waitsForValue)) match_.expected.push_back(item.First());
            if (isValue && !item.isUsed && !item.isOptional) waitsForValue = true;
        }
    }

    bool Stop(std::string problem) {
        match_.problem = std::move(problem);
        match_.matchedWords = next_;
        return false;
    }

    std::vector<Item> items_;
    const std::vector<std::string>& words_;
    std::size_t next_ = 0;
    std::string problem_;  // of an optional value that was passed over
    Match match_;
};

}  // namespace

const Words::Entry* Words::Find(std::string_view key) const {
    const auto found = std::ranges::find(entries_, key, &Entry::key);
    return found == entries_.end() ? nullptr : &*found;
}

bool IsKind(std::string_view word) {
    return std::ranges::any_of(word, [](unsigned char c) { return std::isupper(c) != 0; });
}

std::string UsageWords(std::string_view pattern) {
    std::vector<std::string> words;
    for (const std::string_view piece : Split(pattern, ' ')) {
        std::string& word = words.emplace_back(piece);
        const std::size_t equals = word.find('=');
        const std::size_t name = word.starts_with('[') ? 1 : 0;
        if (equals != std::string::npos) word.erase(name, equals + 1 - name);
        const std::size_t colon = word.find(':');
        if (colon != std::string::npos) word.erase(colon, word.find_first_not_of(":0123456789-", colon) - colon);
    }
    return Joined(words, " ");
}

Match MatchWords(std::string_view pattern, const std::vector<std::string>& words) {
    return Matcher(ParsePattern(pattern), words).Run();
}

}  // namespace tessel::ctl
