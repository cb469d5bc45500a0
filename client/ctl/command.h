// A command of the tool: its row in the table, and what passes between the row's handler and the rest.
#pragma once

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/failure.h"
#include "client/ctl/options.h"
#include "client/ctl/output.h"
#include "client/ctl/pattern.h"
#include "core/types.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

// What a handler is called with.
struct Invocation {
    const Arguments& words;
    const Options& options;
    std::FILE* out;  // for what goes on until interrupted; everything else is returned
    std::FILE* err;
};

// What a handler returns. A document with a failure beside it is shown as well: it is the part that worked.
struct Outcome {
    nlohmann::ordered_json document;   // null: nothing to show
    Table table;                       // the document for people
    std::string done;                  // or one line instead of a table
    std::vector<std::string> notes;    // one line each, on standard error, for people
    std::vector<std::string> planned;  // with --dry-run: what this side would do itself
    std::optional<Failure> failure;
    int signal = 0;  // what ended a command that goes on until interrupted: the exit status tells it

    Outcome() = default;  // NOLINT(bugprone-exception-escape): a promise of the JSON library, kept by it
    // Handlers return failures as they are.
    Outcome(Failure what) : failure(std::move(what)) {}  // NOLINT(google-explicit-constructor)
};

struct Command {
    std::string_view object;
    std::string_view verb;        // empty: the object has no verbs
    std::string_view words;       // see pattern.h
    std::array<u32, 3> codes;     // what it sends; 0: no more
    bool takesFamily;             // -4 and -6 mean something
    std::string_view summary;     // half a line
    std::string_view example;     // runs as typed, without "tesselctl"
    std::string_view background;  // for help: what people should know; may be empty
    Outcome (*run)(const Invocation& invocation);
};

}  // namespace tessel::ctl
