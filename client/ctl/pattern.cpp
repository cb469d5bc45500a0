#include "client/ctl/pattern.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "client/ctl/values.h"

namespace tessel::ctl {

namespace {

// Words that come together: a keyword with its values, or a single value.
struct Item {
    std::vector<Token> tokens;
    bool isOptional = false;
    bool repeats = false;
    bool isUsed = false;
};

bool IsValueWord(std::string_view word) {
    return std::any_of(word.begin(), word.end(), [](unsigned char c) { return std::isupper(c) != 0; });
}

Token ParseToken(std::string_view word) {
    Token token{.name = word, .isKeyword = false, .choices = {}};
    const std::size_t equals = word.find('=');
    std::string_view choices = word;
    if (equals != std::string_view::npos) {
        token.name = word.substr(0, equals);
        choices = word.substr(equals + 1);
    }
    if (choices.find('|') != std::string_view::npos) {
        while (!choices.empty()) {
            const std::size_t bar = std::min(choices.find('|'), choices.size());
            token.choices.push_back(choices.substr(0, bar));
            choices.remove_prefix(std::min(bar + 1, choices.size()));
        }
    }
    token.isKeyword = token.choices.empty() && !IsValueWord(word);
    return token;
}

// Cuts brackets and dots off a word of the pattern.
struct Marks {
    bool opens = false;
    bool closes = false;
    bool repeats = false;
};

Marks TakeMarks(std::string_view& word) {
    Marks marks;
    if (word.starts_with('[')) {
        marks.opens = true;
        word.remove_prefix(1);
    }
    if (word.ends_with("...")) {
        marks.repeats = true;
        word.remove_suffix(3);
    }
    if (word.ends_with(']')) {
        marks.closes = true;
        word.remove_suffix(1);
    }
    return marks;
}

std::vector<Item> ParsePattern(std::string_view pattern) {
    std::vector<Item> items;
    bool inBrackets = false;
    bool joins = false;  // the next value belongs to the item before
    while (!pattern.empty()) {
        const std::size_t blank = std::min(pattern.find(' '), pattern.size());
        std::string_view word = pattern.substr(0, blank);
        pattern.remove_prefix(std::min(blank + 1, pattern.size()));
        const Marks marks = TakeMarks(word);
        const Token token = ParseToken(word);
        if (marks.opens || (!inBrackets && token.isKeyword) || !joins) {
            items.emplace_back().isOptional = marks.opens;
            inBrackets = marks.opens;
        }
        items.back().tokens.push_back(token);
        items.back().repeats = marks.repeats;
        if (marks.closes) inBrackets = false;
        joins = inBrackets || (items.back().tokens.front().isKeyword && !marks.closes);
    }
    return items;
}

std::optional<std::string> ProblemOf(const Token& token, const std::string& word) {
    if (token.choices.empty()) return CheckValue(token.name, word);
    std::optional<std::string> problem;
    for (const std::string_view choice : token.choices) {
        if (!IsValueWord(choice)) {
            if (choice == word) return std::nullopt;
        } else {
            problem = CheckValue(choice, word);
            if (!problem) return std::nullopt;
        }
    }
    return problem ? problem : fmt::format("\"{}\" is none of {}", word, fmt::join(token.choices, ", "));
}

std::string Described(const Item& item) {
    std::string text;
    for (const Token& token : item.tokens) {
        if (!text.empty()) text += ' ';
        text += token.choices.empty() ? std::string(token.name) : fmt::format("{}", fmt::join(token.choices, "|"));
    }
    return text;
}

class Matcher {
  public:
    Matcher(std::vector<Item> items, const std::vector<std::string>& words) : items_(std::move(items)), words_(words) {}

    Match Run() {
        while (next_ < words_.size()) {
            Item* item = ItemFor(words_[next_]);
            if (item == nullptr) return Stop(fmt::format("\"{}\" is one word too many", words_[next_]));
            if (!Take(*item)) return std::move(match_);
        }
        bool waitsForValue = false;  // the ones behind it cannot come before it
        for (const Item& item : items_) {
            const bool isValue = !item.tokens.front().isKeyword;
            const bool isOpen = !item.isUsed || (item.repeats && isValue);
            if (isOpen && !(isValue && waitsForValue)) match_.expected.push_back(item.tokens.front());
            if (isValue && !item.isUsed && !item.isOptional) waitsForValue = true;
        }
        const auto missing = std::find_if(items_.begin(), items_.end(),
                                          [](const Item& item) { return !item.isUsed && !item.isOptional; });
        if (missing != items_.end()) return Stop(fmt::format("{} is missing", Described(*missing)));
        match_.isComplete = true;
        return std::move(match_);
    }

  private:
    Match Stop(std::string problem) {
        (void)StopAt(std::move(problem));
        return std::move(match_);
    }

    // A keyword where one is open, else the next value in order; an optional choice that does not fit is passed over.
    Item* ItemFor(const std::string& word) {
        for (Item& item : items_) {
            if (!item.isUsed && item.tokens.front().isKeyword && item.tokens.front().name == word) return &item;
        }
        for (Item& item : items_) {
            if (item.tokens.front().isKeyword || (item.isUsed && !item.repeats)) continue;
            const bool fits = !ProblemOf(item.tokens.front(), word).has_value();
            if (item.isUsed && !fits) continue;
            if (item.isOptional && !item.tokens.front().choices.empty() && !fits) continue;
            return &item;
        }
        return nullptr;
    }

    // All words of the item. False when one is missing or wrong.
    bool Take(Item& item) {
        const std::string_view key = item.tokens.front().name;
        item.isUsed = true;
        if (item.tokens.front().isKeyword) {
            ++next_;
            if (item.tokens.size() == 1) match_.arguments.Add(key, "");
        }
        for (const Token& token : item.tokens) {
            if (token.isKeyword) continue;
            if (next_ == words_.size()) {
                match_.expected.push_back(token);
                return StopAt(fmt::format("{} is missing", Described(item)));
            }
            if (const auto problem = ProblemOf(token, words_[next_])) return StopAt(*problem);
            match_.arguments.Add(item.tokens.front().isKeyword ? key : token.name, words_[next_++]);
        }
        return true;
    }

    bool StopAt(std::string problem) {
        match_.problem = std::move(problem);
        match_.matchedWords = next_;
        return false;
    }

    std::vector<Item> items_;
    const std::vector<std::string>& words_;
    std::size_t next_ = 0;
    Match match_;
};

}  // namespace

std::optional<std::string> Arguments::Find(std::string_view key) const {
    const auto found =
        std::find_if(values_.begin(), values_.end(), [&](const auto& value) { return value.first == key; });
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

std::vector<std::string> Arguments::All(std::string_view key) const {
    std::vector<std::string> all;
    for (const auto& [name, value] : values_) {
        if (name == key) all.push_back(value);
    }
    return all;
}

std::string UsageWords(std::string_view pattern) {
    std::string text(pattern);
    for (std::size_t equals = text.find('='); equals != std::string::npos; equals = text.find('=')) {
        const std::size_t start = text.find_last_of(" [", equals);
        const std::size_t first = start == std::string::npos ? 0 : start + 1;
        text.erase(first, equals + 1 - first);
    }
    return text;
}

Match MatchWords(std::string_view pattern, const std::vector<std::string>& words) {
    return Matcher(ParsePattern(pattern), words).Run();
}

}  // namespace tessel::ctl
