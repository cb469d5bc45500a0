// From words to a command: objects and verbs, which may be cut, then the pattern of the command's row.
#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

#include "client/ctl/command.h"

namespace tessel::ctl {

// The rows that object and verb leave, and the words behind them. More than one row: the words decide.
struct Selection {
    std::string_view object;  // empty: no object was named
    bool hasVerb = false;     // a verb was named, or the object has none
    std::vector<const Command*> rows;
    std::vector<std::string> rest;
};

// Without an object: "status"; without a verb: "show".
[[nodiscard]] std::variant<Selection, Failure> SelectCommand(const std::vector<std::string>& words);

struct ParsedCommand {
    const Command* command;
    Arguments arguments;
};
[[nodiscard]] std::variant<ParsedCommand, Failure> ParseWords(const std::vector<std::string>& words);

// "addr show", "status".
[[nodiscard]] std::string TitleOf(const Command& command);

}  // namespace tessel::ctl
