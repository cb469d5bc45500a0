// The tool from its arguments to its exit status: finding the command that words mean, help, completion, running it.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// `arguments` without the program's name.
[[nodiscard]] int RunTool(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err);

// A command from within another (apply, try, trace): its words and options as typed. The outer options for output and
// time stay as they are. A failure is in the outcome, and so is a table that it would show, as text.
[[nodiscard]] Outcome RunInner(const std::vector<std::string>& arguments, const Invocation& outer);

// The rows that words may mean, before their values are looked at.
struct Selection {
    const Object* object = nullptr;
    bool hasVerb = false;  // false: the verb was left out, or the object has none
    std::vector<const Command*> rows;
    std::vector<std::string> rest;
};

// Objects and verbs may be abbreviated where that is unambiguous. Both throw a Failure.
[[nodiscard]] const Object& FindObject(std::string_view word);
[[nodiscard]] Selection SelectCommand(const std::vector<std::string>& words);

struct ParsedCommand {
    const Object* object;
    const Command* command;
    Words words;
    std::string asked;  // "addr add 192.168.1.20/24 dev eth0"
};

// Throws a Failure that says what is wrong with the row that fits best.
[[nodiscard]] ParsedCommand ParseWords(const std::vector<std::string>& words);

// "addr add", "status".
[[nodiscard]] std::string TitleOf(const Object& object, const Command& command);

// The verbs of an object, each once, in the order of its rows.
[[nodiscard]] std::vector<std::string_view> VerbsOf(const Object& object);

// On what the words name: everything, an object, or one command.
[[nodiscard]] std::string HelpText(const std::vector<std::string>& words);

// `words` are those after "tesselctl", the last one being typed, perhaps empty. Nothing: let the shell offer files.
[[nodiscard]] std::vector<std::string> Complete(const std::vector<std::string>& words);

// Runs a command (its arguments as typed, without "tesselctl") and undoes it after `seconds` unless it is confirmed.
[[nodiscard]] Outcome TryCommand(const Invocation& outer, u32 seconds, const std::vector<std::string>& arguments);

}  // namespace tessel::ctl
