// The options, which may appear anywhere among the words, but not after "--".
#pragma once

#include "client/ctl/text.h"
#include "client/ctl/words.h"

namespace tessel::ctl {

struct Options {
    bool json = false;
    std::vector<std::string> fields;  // --get
    bool inet = false;
    bool inet6 = false;
    int timeoutMs = 60000;
    std::optional<int> waitMs;
    bool dryRun = false;
    int verbosity = 0;
    bool quiet = false;
    bool noHeader = false;
    std::string colour = "auto";
    bool yes = false;
    bool force = false;
    std::optional<Network> protect;
    bool take = false;
    bool kernel = false;
    std::optional<u32> trySeconds;  // --try
    bool help = false;
    bool version = false;
    std::optional<i32> replyBytes;   // of `raw`
    std::string symbols;             // of `crash show`; empty: none
    std::vector<std::string> words;  // everything else, in order; words after "--" are the last ones
    std::size_t wordsBehindDashes = 0;
};

// The arguments without the program's name. Throws a Failure, in the form that WantsJson asks for.
[[nodiscard]] Options ParseOptions(const std::vector<std::string>& arguments);

// What --json says, as far as can be seen when the options themselves are wrong.
[[nodiscard]] bool WantsJson(const std::vector<std::string>& arguments);

// For help and completion.
struct OptionRow {
    std::string_view name;   // "json"; empty: only the letter
    char letter;             // 0: none
    std::string_view value;  // "S"; "[S]": may be left out; empty: takes none
    std::string_view summary;
    bool Options::*flag;                                                  // what it sets
    void (*apply)(Options& options, const std::string& value) = nullptr;  // may throw a Failure
    std::string_view choices = {};                                        // "auto|always|never", for completion
};
[[nodiscard]] std::span<const OptionRow> OptionRows();

// TESSEL_FAMILY_..., both when neither or both are asked for; and each one of those.
[[nodiscard]] int FamilyOf(const Options& options);
[[nodiscard]] std::vector<int> FamiliesOf(const Options& options);
[[nodiscard]] bool HasFamily(const Options& options, int family);

}  // namespace tessel::ctl
