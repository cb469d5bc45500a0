// The options, which may stand anywhere among the words.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "client/ctl/failure.h"
#include "core/types.h"

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
    std::string protect;  // an address, checked
    bool take = false;
    bool kernel = false;
    bool help = false;
    bool version = false;
    std::optional<i32> replyBytes;   // of `raw`
    std::string symbols;             // of `crash show`; empty: none
    std::vector<std::string> words;  // everything else, in order
};

// The arguments without the program's name. A failure keeps to the form that --json asks for: see WantsJson.
[[nodiscard]] std::variant<Options, Failure> ParseOptions(const std::vector<std::string>& arguments);

// What --json says, as far as can be seen when the options themselves are wrong.
[[nodiscard]] bool WantsJson(const std::vector<std::string>& arguments);

// For help and completion.
struct OptionText {
    std::string names;  // "-j, --json"
    std::string value;  // "S"; empty: takes none
    std::string summary;
};
[[nodiscard]] std::vector<OptionText> OptionTexts();

// TESSEL_FAMILY_..., both when neither or both are asked for.
[[nodiscard]] int FamilyOf(const Options& options);

// True when this one is asked for, alone or among both.
[[nodiscard]] bool HasFamily(const Options& options, int family);

}  // namespace tessel::ctl
