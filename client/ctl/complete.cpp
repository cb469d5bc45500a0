#include "client/ctl/complete.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "client/ctl/commands.h"
#include "client/ctl/grammar.h"
#include "client/ctl/values.h"

namespace tessel::ctl {

namespace {

// "-j, --json" as two words.
std::vector<std::string> NamesOf(const OptionText& option) {
    std::vector<std::string> names;
    std::istringstream words(option.names);
    for (std::string word; words >> word;) {
        if (word.ends_with(',')) word.pop_back();
        names.push_back(word);
    }
    return names;
}

std::vector<std::string> AllOptionNames() {
    std::vector<std::string> all;
    for (const OptionText& option : OptionTexts()) {
        const auto names = NamesOf(option);
        all.insert(all.end(), names.begin(), names.end());
    }
    return all;
}

bool TakesValue(const std::string& word) {
    const auto texts = OptionTexts();
    return std::any_of(texts.begin(), texts.end(), [&](const OptionText& option) {
        const auto names = NamesOf(option);
        // An optional value, in brackets, is not waited for.
        return !option.value.empty() && option.value[0] != '[' &&
               std::find(names.begin(), names.end(), word) != names.end();
    });
}

// The words without options and their values.
std::vector<std::string> PlainWords(const std::vector<std::string>& words) {
    std::vector<std::string> plain;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].starts_with('-') && words[i].size() > 1) {
            if (TakesValue(words[i])) ++i;
        } else {
            plain.push_back(words[i]);
        }
    }
    return plain;
}

void AddToken(const Token& token, std::vector<std::string>& offers) {
    if (token.isKeyword) offers.emplace_back(token.name);
    for (const std::string_view choice : token.choices) {
        const bool isTyped =
            std::none_of(choice.begin(), choice.end(), [](unsigned char c) { return isupper(c) != 0; });
        if (isTyped) offers.emplace_back(choice);
    }
    const auto known = KnownValues(token.name);
    if (!token.isKeyword) offers.insert(offers.end(), known.begin(), known.end());
}

std::vector<std::string> Offers(const std::vector<std::string>& before) {
    if (before.empty()) return ObjectNames();
    std::vector<std::string> offers;
    const auto selected = SelectCommand(before);
    const auto* selection = std::get_if<Selection>(&selected);
    if (before.size() == 1) {
        const auto meant = selection != nullptr ? std::string(selection->object) : before[0];
        for (const Command& command : Commands()) {
            if (command.object == meant && !command.verb.empty()) offers.emplace_back(command.verb);
        }
    }
    if (selection == nullptr) return offers;
    for (const Command* row : selection->rows) {
        for (const Token& token : MatchWords(row->words, selection->rest).expected) {
            // In place of a verb, "show" is understood by its keywords only.
            if (selection->hasVerb || token.isKeyword) AddToken(token, offers);
        }
    }
    return offers;
}

}  // namespace

std::vector<std::string> Complete(const std::vector<std::string>& words) {
    const std::string last = words.empty() ? "" : words.back();
    std::vector<std::string> before(words.begin(), words.empty() ? words.end() : words.end() - 1);
    std::vector<std::string> offers;
    if (last.starts_with('-')) {
        offers = AllOptionNames();
    } else if (before.empty() || !TakesValue(before.back())) {
        offers = Offers(PlainWords(before));
    }
    std::sort(offers.begin(), offers.end());
    offers.erase(std::unique(offers.begin(), offers.end()), offers.end());
    std::erase_if(offers, [&](const std::string& offer) { return !offer.starts_with(last); });
    return offers;
}

}  // namespace tessel::ctl
