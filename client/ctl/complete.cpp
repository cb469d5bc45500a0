#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

// The option that waits for a value behind this word. Not one whose value may be left out.
const OptionRow* WaitingOption(const std::string& word) {
    const auto rows = OptionRows();
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const OptionRow& row) {
        const bool isLong = !row.name.empty() && word == Format("--{}", row.name);
        const bool isShort =
            row.letter != 0 && word.size() > 1 && word[0] == '-' && word[1] != '-' && word.back() == row.letter;
        return !row.value.empty() && row.value[0] != '[' && (isLong || isShort);
    });
    return found == rows.end() ? nullptr : &*found;
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
    if (before.size() == 1) {
        for (const Object* object : Objects()) {
            if (object->name != before[0]) continue;
            for (const std::string_view verb : VerbsOf(*object))
                offers.emplace_back(verb);
        }
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
    std::sort(offers.begin(), offers.end());
    offers.erase(std::unique(offers.begin(), offers.end()), offers.end());
    std::erase_if(offers, [&](const std::string& offer) { return !offer.starts_with(last); });
    return offers;
}

}  // namespace tessel::ctl
