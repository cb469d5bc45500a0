#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

// The option that waits for a value behind this word. Not one whose value may be left out.
const OptionRow* WaitingOption(const std::string& word) {
    const bool isShort = word.size() > 1 && word[0] == '-' && word[1] != '-';
    for (const OptionRow& row : OptionRows()) {
        if (row.value.empty() || row.value[0] == '[') continue;
        if (word == Format("--{}", row.name) || (isShort && word.back() == row.letter)) return &row;
    }
    return nullptr;
}

// The words without options and their values.
std::vector<std::string> PlainWords(const std::vector<std::string>& words) {
    std::vector<std::string> plain;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].starts_with('-') && words[i].size() > 1) {
            if (WaitingOption(words[i]) != nullptr) ++i;
        } else {
            plain.push_back(words[i]);
        }
    }
    return plain;
}

void AddToken(const Token& token, std::vector<std::string>& offers) {
    if (token.isKeyword) offers.emplace_back(token.name);
    for (const std::string_view choice : token.choices) {
        if (!IsKind(choice)) offers.emplace_back(choice);
    }
    const auto known = KnownValues(token.name);
    if (!token.isKeyword) offers.insert(offers.end(), known.begin(), known.end());
}

std::vector<std::string> Offers(const std::vector<std::string>& before) {
    std::vector<std::string> offers;
    if (before.empty()) return KnownValues("OBJECT");
    for (const Object* object : Objects()) {
        const auto verbs = VerbsOf(*object);
        if (before.size() == 1 && object->name == before[0]) offers.assign(verbs.begin(), verbs.end());
    }
    try {
        const Selection selection = SelectCommand(before);
        for (const Command* row : selection.rows) {
            for (const Token& token : MatchWords(row->words, selection.rest).expected) {
                // In place of a verb, "show" is understood by its keywords only.
                if (selection.hasVerb || token.isKeyword) AddToken(token, offers);
            }
        }
    } catch (const Failure&) {  // nothing more to offer
    }
    return offers;
}

std::vector<std::string> OptionNames() {
    std::vector<std::string> names;
    for (const OptionRow& row : OptionRows()) {
        if (row.letter != 0) names.push_back(Format("-{}", row.letter));
        if (!row.name.empty()) names.push_back(Format("--{}", row.name));
    }
    return names;
}

}  // namespace

std::vector<std::string> Complete(const std::vector<std::string>& words) {
    const std::string last = words.empty() ? "" : words.back();
    const std::vector<std::string> before(words.begin(), words.empty() ? words.end() : words.end() - 1);
    const OptionRow* waiting = before.empty() ? nullptr : WaitingOption(before.back());
    std::vector<std::string> offers;
    if (waiting != nullptr) {
        const auto choices = Split(waiting->choices, '|');
        offers.assign(choices.begin(), choices.end());
    } else {
        offers = last.starts_with('-') ? OptionNames() : Offers(PlainWords(before));
    }
    std::ranges::sort(offers);
    offers.erase(std::unique(offers.begin(), offers.end()), offers.end());
    std::erase_if(offers, [&](const std::string& offer) { return !offer.starts_with(last); });
    return offers;
}

}  // namespace tessel::ctl
