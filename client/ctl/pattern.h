// Word patterns: what follows an object and a verb, written as help shows it.
//
//   dev IF          a keyword and its values: in any order among the keywords
//   A/L  NAME       capitals are values, in this order
//   [table N]       may be left out
//   on|off|N        a choice; SWITCH=on|off gives it a name
//   IF...           once or more
//   [IF N]...       any number of these, together
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel::ctl {

// One word of a pattern.
struct Token {
    std::string_view name;                  // the keyword itself, the value's word, or the choice's name
    bool isKeyword = false;                 // typed as it stands
    std::vector<std::string_view> choices;  // for a choice: typed words and value words
};

// Words by the keyword or value word that they belong to.
class Arguments {
  public:
    void Add(std::string_view key, std::string value) {
        values_.emplace_back(key, std::move(value));
    }
    [[nodiscard]] bool Has(std::string_view key) const {
        return Find(key).has_value();
    }
    // The first one; empty when there is none.
    [[nodiscard]] std::string Get(std::string_view key) const {
        return Find(key).value_or("");
    }
    [[nodiscard]] std::optional<std::string> Find(std::string_view key) const;
    // Every one, in the order typed.
    [[nodiscard]] std::vector<std::string> All(std::string_view key) const;

  private:
    std::vector<std::pair<std::string, std::string>> values_;
};

struct Match {
    bool isComplete = false;
    Arguments arguments;
    std::size_t matchedWords = 0;
    std::string problem;          // when not complete: what is wrong or missing
    std::vector<Token> expected;  // what may come next
};

// The pattern as people read it: choices without the names that handlers know them by.
[[nodiscard]] std::string UsageWords(std::string_view pattern);

[[nodiscard]] Match MatchWords(std::string_view pattern, const std::vector<std::string>& words);

}  // namespace tessel::ctl
