// Word patterns: what follows an object and a verb, written as help shows it.
//
//   dev IF           a keyword and its values: in any order among the keywords. The word "dev" may be left out where
//                    a name can stand for nothing else
//   A/L  NAME        capitals are values, in this order (kinds: values.cpp); N:1-100 is a number within bounds
//   [table N]        may be left out
//   on|off|N         a choice; SWITCH=on|off gives it a name
//   IF...            once or more
//   [IF N]...        any number of these, together
#pragma once

#include "client/ctl/values.h"

namespace tessel::ctl {

// One word of a pattern.
struct Token {
    std::string_view name;                  // the keyword itself, the value's kind, or the choice's name
    bool isKeyword = false;                 // typed as it stands
    std::vector<std::string_view> choices;  // for a choice: typed words and kinds
};

// Values by the keyword, kind (without its bounds) or choice that they belong to: "dev", "A/L", "LIST". Of a repeated
// group each word belongs to its own kind.
class Words {
  public:
    void Add(std::string_view key, std::string word, Value value) {
        entries_.push_back({std::string(key), std::move(word), std::move(value)});
    }
    [[nodiscard]] bool Has(std::string_view key) const {
        return Find(key) != nullptr;
    }
    // As typed; empty when it is missing.
    [[nodiscard]] std::string Text(std::string_view key) const {
        const Entry* entry = Find(key);
        return entry == nullptr ? "" : entry->word;
    }
    // The first one. It has to be there, and of this type.
    template <typename T>
    [[nodiscard]] const T& Get(std::string_view key) const {
        return std::get<T>(Find(key)->value);
    }
    template <typename T>
    [[nodiscard]] T Get(std::string_view key, T otherwise) const {
        const Entry* entry = Find(key);
        return entry == nullptr ? otherwise : std::get<T>(entry->value);
    }
    // For choices between kinds: null when it is missing or of another type.
    template <typename T>
    [[nodiscard]] const T* If(std::string_view key) const {
        const Entry* entry = Find(key);
        return entry == nullptr ? nullptr : std::get_if<T>(&entry->value);
    }
    // Every one, in the order typed.
    template <typename T>
    [[nodiscard]] std::vector<T> All(std::string_view key) const {
        std::vector<T> all;
        for (const Entry& entry : entries_) {
            if (entry.key == key) all.push_back(std::get<T>(entry.value));
        }
        return all;
    }

  private:
    struct Entry {
        std::string key;
        std::string word;
        Value value;
    };
    [[nodiscard]] const Entry* Find(std::string_view key) const;

    std::vector<Entry> entries_;
};

struct Match {
    bool isComplete = false;
    Words words;
    std::size_t matchedWords = 0;
    std::string problem;          // when not complete: what is wrong or missing
    std::vector<Token> expected;  // what may come next
};

// Whether a word of a pattern, or one of its choices, stands for values; others are typed as they are.
[[nodiscard]] bool IsKind(std::string_view word);

// The pattern as people read it: choices without their names, numbers without their bounds.
[[nodiscard]] std::string UsageWords(std::string_view pattern);

[[nodiscard]] Match MatchWords(std::string_view pattern, const std::vector<std::string>& words);

}  // namespace tessel::ctl
