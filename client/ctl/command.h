// A command of the tool: its row, and what passes between the row's function and the rest.
#pragma once

#include "client/ctl/options.h"
#include "client/ctl/words.h"

namespace tessel::ctl {

// What a command's function is called with.
struct Invocation {
    const Words& words;
    const Options& options;
    std::string asked;  // "addr add 192.168.1.20/24 dev eth0": begins every message
    std::FILE* out;     // for what runs until interrupted; everything else is returned
    std::FILE* err;
};

// What it returns. A document is shown even beside a failure: it is the part that worked.
struct Outcome {                            // NOLINT(bugprone-exception-escape): moving one throws nothing
    Json document;                          // null: nothing to show
    std::string text = {};                  // for people, instead of the document's columns; with its line ends
    std::string done = {};                  // or one line, left out with --quiet or a failure
    std::vector<std::string> notes = {};    // one line each, on standard error, for people
    std::vector<std::string> planned = {};  // with --dry-run: what this side would do itself
    std::optional<Failure> failure = {};
    int signal = 0;  // what ended a command that runs until interrupted
};

struct Command {
    std::string_view verb;   // empty: the object has no verbs
    std::string_view words;  // see words.h
    Outcome (*run)(const Invocation& invocation);
    std::string_view summary;          // half a line
    std::string_view example;          // runs as typed, without "tesselctl"
    std::array<u32, 4> codes = {};     // what it sends; 0: no more
    std::string_view columns = {};     // the document as a table
    std::string_view background = {};  // for help: what people should know
    bool takesFamily = false;          // -4 and -6 mean something

    template <typename... Codes>
    [[nodiscard]] constexpr Command Sends(Codes... sent) const {
        Command row = *this;
        row.codes = {static_cast<u32>(sent)...};
        return row;
    }
    // "TITLE template" for each column, '|' between them. "{field}" stands for a field of the record or of a record
    // around it; true fields show their name, null and false ones nothing. A template whose fields are all empty is an
    // empty cell. See output.h.
    [[nodiscard]] constexpr Command Columns(std::string_view text) const {
        Command row = *this;
        row.columns = text;
        return row;
    }
    [[nodiscard]] constexpr Command More(std::string_view text) const {
        Command row = *this;
        row.background = text;
        return row;
    }
};

constexpr Command Row(std::string_view verb, std::string_view words, Outcome (*run)(const Invocation&),
                      std::string_view summary, std::string_view example) {
    return {verb, words, run, summary, example};
}

// The same for a command for which -4 and -6 mean something.
template <typename... Parts>
constexpr Command FamilyRow(Parts... parts) {
    Command row = Row(parts...);
    row.takesFamily = true;
    return row;
}

// Everything behind one word; each is in a file of its own, listed in grammar.cpp.
struct Object {
    std::string_view name;
    std::string_view summary = {};  // half a line
    std::span<const Command> commands;
};

// In the order of help.
[[nodiscard]] std::span<const Object* const> Objects();

}  // namespace tessel::ctl
