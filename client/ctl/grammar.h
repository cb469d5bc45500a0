// From words to a command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/command.h"

namespace tessel::ctl {

// The rows that words may mean, before their values are looked at.
struct Selection {
    const Object* object = nullptr;
    bool hasVerb = false;  // false: the verb was left out, or the object has none
    std::vector<const Command*> rows;
    std::vector<std::string> rest;
};

// The object of this name, which may be cut where that is unambiguous. Throws a Failure.
[[nodiscard]] const Object& FindObject(std::string_view word);

// Objects and verbs may be cut where that is unambiguous. Throws a Failure.
[[nodiscard]] Selection SelectCommand(const std::vector<std::string>& words);

struct ParsedCommand {
    const Object* object;
    const Command* command;
    Words words;
};

// Throws a Failure that says what is wrong with the row that fits best.
[[nodiscard]] ParsedCommand ParseWords(const std::vector<std::string>& words);

// "addr add", "status".
[[nodiscard]] std::string TitleOf(const Object& object, const Command& command);

// The verbs of an object, each once, in the order of its rows.
[[nodiscard]] std::vector<std::string_view> VerbsOf(const Object& object);

}  // namespace tessel::ctl
