#include "client/ctl/options.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <sstream>

// Takes seconds to compile: included here only.
#include <fmt/format.h>

#include "client/ctl/next_hop.h"
#include "tessel/ipc.h"
#include <CLI/CLI.hpp>

namespace tessel::ctl {

namespace {

constexpr int kMillisecondsPerSecond = 1000;
constexpr double kSecondsMax = 86400;
constexpr char kDefaultWait[] = "10";

// What CLI11 stores before it becomes Options.
struct Raw {
    Options options;
    std::string fields;
    double timeoutSeconds = 60;
    double waitSeconds = -1;
    i32 replyBytes = -1;
};

void Declare(CLI::App& app, Raw& raw) {
    Options& options = raw.options;
    app.set_help_flag();  // help depends on the words
    app.add_flag("-j,--json", options.json, "one JSON document, errors as well");
    app.add_option("-g,--get", raw.fields, "only these fields, separated by tabs, no header")->type_name("F,F");
    app.add_flag("-4", options.inet, "IPv4 only");
    app.add_flag("-6", options.inet6, "IPv6 only");
    app.add_option("-t,--timeout", raw.timeoutSeconds, "seconds to wait for the answer (60)")
        ->check(CLI::Range(0.001, kSecondsMax))
        ->type_name("S");
    app.add_option("--wait", raw.waitSeconds, "wait for a daemon that is starting (10 s)")
        ->check(CLI::Range(0.0, kSecondsMax))
        ->type_name("[S]");
    app.add_flag("-n,--dry-run", options.dryRun, "show the request and what the daemon would run; send nothing");
    app.add_flag("-v,--verbose", options.verbosity, "show request and reply; -vv with their bytes");
    app.add_flag("-q,--quiet", options.quiet, "no words when it worked");
    app.add_flag("--no-header", options.noHeader, "no line with the names of the columns");
    app.add_option("--color", options.colour, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    app.add_flag("-y,--yes", options.yes, "do not ask");
    app.add_flag("--force", options.force, "do it even if it ends the session it is typed in");
    app.add_option("--protect", options.protect, "firewall: do not shut out this host, instead of the SSH client")
        ->check([](const std::string& word) { return ParseHost(word) ? "" : word + " is no address"; })
        ->type_name("A");
    app.add_flag("--take", options.take, "listen in the place of a program that does already");
    app.add_flag("--kernel", options.kernel, "add what the kernel knows and the daemon does not tell");
    app.add_option("--reply", raw.replyBytes, "bytes of the reply to \"raw\"; 0: wait for none")
        ->check(CLI::Range(0, 1 << 20))
        ->type_name("N");
    app.add_option("--symbols", options.symbols, "unstripped files that \"crash show\" takes names of functions from")
        ->type_name("DIR");
    app.add_flag("-h,--help", options.help, "help on the words before it");
    app.add_flag("-V,--version", options.version, "the version");
    app.add_option("words", options.words);
}

// "S" of "S:FLOAT in [0 - 5]", which CLI11 makes of it.
std::string TypeWord(const CLI::Option& option) {
    const std::string name = option.get_type_name();
    return name.substr(0, name.find(':'));
}

bool IsNumber(const std::string& text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0 || c == '.'; });
}

// --wait has a value only when a number follows; CLI11 would take the next word.
std::vector<std::string> WithWaitValue(const std::vector<std::string>& arguments) {
    std::vector<std::string> result;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] != "--wait") {
            result.push_back(arguments[i]);
            continue;
        }
        const bool hasValue = i + 1 < arguments.size() && IsNumber(arguments[i + 1]);
        result.push_back("--wait=" + (hasValue ? arguments[++i] : kDefaultWait));
    }
    return result;
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, ',');)
        pieces.push_back(piece);
    return pieces;
}

int ToMilliseconds(double seconds) {
    return static_cast<int>(std::lround(seconds * kMillisecondsPerSecond));
}

}  // namespace

std::variant<Options, Failure> ParseOptions(const std::vector<std::string>& arguments) {
    CLI::App app;
    Raw raw;
    Declare(app, raw);
    try {
        std::vector<std::string> reversed = WithWaitValue(arguments);
        std::reverse(reversed.begin(), reversed.end());
        app.parse(std::move(reversed));
    } catch (const CLI::Error& error) {
        return Refused("options", fmt::format("{} (see tesselctl -h)", error.what()));
    }
    raw.options.fields = SplitAtCommas(raw.fields);
    raw.options.timeoutMs = ToMilliseconds(raw.timeoutSeconds);
    if (raw.waitSeconds >= 0) raw.options.waitMs = ToMilliseconds(raw.waitSeconds);
    if (raw.replyBytes >= 0) raw.options.replyBytes = raw.replyBytes;
    return raw.options;
}

bool WantsJson(const std::vector<std::string>& arguments) {
    return std::any_of(arguments.begin(), arguments.end(),
                       [](const std::string& argument) { return argument == "-j" || argument == "--json"; });
}

std::vector<OptionText> OptionTexts() {
    CLI::App app;
    Raw raw;
    Declare(app, raw);
    std::vector<OptionText> texts;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) continue;
        std::string names;
        for (const std::string& name : option->get_snames())
            names += "-" + name;
        for (const std::string& name : option->get_lnames())
            names += (names.empty() ? "--" : ", --") + name;
        const bool takesValue = option->get_items_expected_max() > 0;
        texts.push_back({names, takesValue ? TypeWord(*option) : "", option->get_description()});
    }
    return texts;
}

int FamilyOf(const Options& options) {
    if (options.inet == options.inet6) return TESSEL_FAMILY_BOTH;
    return options.inet ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
}

bool HasFamily(const Options& options, int family) {
    const int asked = FamilyOf(options);
    return asked == TESSEL_FAMILY_BOTH || asked == family;
}

}  // namespace tessel::ctl
