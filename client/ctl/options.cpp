#include "client/ctl/options.h"

#include <getopt.h>

#include <charconv>
#include <cmath>

namespace tessel::ctl {

namespace {

// "90", "0.5", "10m": up to a day.
int Milliseconds(const std::string& word) {
    constexpr double kDay = 86400;
    double seconds = -1;
    const char* const end = word.data() + word.size();
    if (std::from_chars(word.data(), end, seconds, std::chars_format::fixed).ptr != end)
        seconds = ParseSeconds(word).value_or(~u32{0});
    if (!(seconds >= 0 && seconds <= kDay))  // "nan" is no number
        throw Refused("options", Format("\"{}\" is no time from 0 to 86400 seconds", word));
    return static_cast<int>(std::lround(seconds * 1000));
}

void SetFields(Options& options, const std::string& word) {
    const auto fields = Split(word, ',');
    options.fields.assign(fields.begin(), fields.end());
    std::erase(options.fields, "");
}

// The value of a kind (values.cpp).
template <typename T>
T ValueOf(const char* option, std::string_view kind, const std::string& word) {
    const ParsedValue parsed = ParseValue(kind, word);
    if (!parsed.value) throw Refused(option, parsed.problem);
    return std::get<T>(*parsed.value);
}

constexpr OptionRow kRows[] = {
    {"json", 'j', "", "one JSON document, errors as well", &Options::json},
    {"get", 'g', "F[,F]", "only these fields, separated by tabs, no header", nullptr, &SetFields},
    {"", '4', "", "IPv4 only", &Options::inet},
    {"", '6', "", "IPv6 only", &Options::inet6},
    {"timeout", 't', "S", "how long to wait for the answer: 90, 10m or 1h (60)", nullptr,
     [](auto& o, auto& word) { o.timeoutMs = std::max(Milliseconds(word), 1); }},
    {"wait", 0, "[S]", "wait for a daemon that is starting (10 s)", nullptr,
     [](auto& o, auto& word) { o.waitMs = Milliseconds(word.empty() ? "10" : word); }},
    {"dry-run", 'n', "", "show the request and what the daemon would run; change nothing", &Options::dryRun},
    {"verbose", 'v', "", "show request and reply; -vv with their bytes", nullptr,
     [](auto& o, auto&) { ++o.verbosity; }},
    {"quiet", 'q', "", "no words when it worked", &Options::quiet},
    {"no-header", 0, "", "no header line", &Options::noHeader},
    {"color", 0, "WHEN", "always, never, or auto: by NO_COLOR, CLICOLOR_FORCE and the terminal", nullptr,
     [](auto& o, auto& word) { o.colour = word; }, "auto|always|never"},
    {"yes", 'y', "", "do not ask", &Options::yes},
    {"force", 0, "", "do it even if it cuts off this session", &Options::force},
    {"protect", 0, "A", "do not shut out this host (instead of the SSH client)", nullptr,
     [](auto& o, auto& word) { o.protect = ValueOf<Network>("--protect", "A", word); }},
    {"try", 0, "[S]", "undo it after S seconds (60) unless it is confirmed", nullptr,
     [](auto& o, auto& word) { o.trySeconds = ValueOf<u32>("--try", "S:1-86400", word.empty() ? "60" : word); }},
    {"take", 0, "", "take over from a program that is already listening", &Options::take},
    {"kernel", 0, "", "add what the kernel knows and the daemon does not report", &Options::kernel},
    {"reply", 0, "N", "bytes of the reply to \"raw\"; 0: wait for none", nullptr,
     [](auto& o, auto& word) { o.replyBytes = static_cast<i32>(ValueOf<u32>("--reply", "N:0-1048576", word)); }},
    {"symbols", 0, "DIR", "unstripped files from which \"crash show\" names functions", nullptr,
     [](auto& o, auto& word) { o.symbols = word; }},
    {"help", 'h', "", "help on the words before it", &Options::help},
    {"version", 'V', "", "the version", &Options::version},
};

int ArgumentOf(const OptionRow& row) {
    if (row.value.empty()) return no_argument;
    return row.value.starts_with('[') ? optional_argument : required_argument;
}

// "90", "0.5", "10m"; neither an address nor "0x107".
bool IsTime(std::string word) {
    word.erase(std::min(word.find('.'), word.size()), 1);
    return ParseSeconds(word) && word.find('x') == std::string::npos;
}

void SetOption(Options& options, const OptionRow& row, const std::string& value) {
    const auto choices = Split(row.choices, '|');
    if (!choices.empty() && std::find(choices.begin(), choices.end(), value) == choices.end())
        throw Refused(Format("--{}", row.name), Format("{} is not one of {}", value, Joined(choices, ", ")));
    if (row.flag != nullptr) options.*row.flag = true;
    if (row.apply != nullptr) row.apply(options, value);
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
    std::vector<std::string> copies = {"tesselctl"};
    copies.insert(copies.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv(copies.size() + 1);  // a null pointer is the last one
    std::ranges::transform(copies, argv.begin(), [](std::string& copy) { return copy.data(); });
    const int argc = static_cast<int>(copies.size());

    std::vector<option> longs;
    std::string letters = "-:";  // words in their order, and errors are ours to word
    for (const OptionRow& row : kRows) {
        if (!row.name.empty()) longs.push_back({row.name.data(), ArgumentOf(row), nullptr, 0});
        if (row.letter != 0) letters += row.letter + std::string(row.value.empty() ? "" : ":");
    }
    longs.push_back({});

    Options options;
    optind = 0;  // starts over: a command may run another one
    int place = -1;
    for (int found = 0; (found = getopt_long(argc, argv.data(), letters.c_str(), longs.data(), &place)) != -1;) {
        if (found == 1) {
            options.words.emplace_back(optarg);
            continue;
        }
        if (found == '?' || found == ':') {
            const auto letter = static_cast<char>(optopt);  // of a cluster: 0 for a long option
            const std::string word = letter == 0 ? argv[static_cast<std::size_t>(optind) - 1] : Format("-{}", letter);
            throw Refused("options", Format("{} {} (see tesselctl -h)", word,
                                            found == ':' ? "has no value" : "is unknown, or has one value too many"));
        }
        const auto* const row = std::find_if(std::begin(kRows), std::end(kRows), [&](const OptionRow& one) {
            return found == 0 ? one.name == longs[static_cast<std::size_t>(place)].name : one.letter == found;
        });
        std::string value = optarg == nullptr ? "" : optarg;
        // The value of "--wait 5" is a word of its own; in "--wait addr" it is left out.
        if (optarg == nullptr && ArgumentOf(*row) == optional_argument && optind < argc &&
            IsTime(argv[static_cast<std::size_t>(optind)]))
            value = argv[static_cast<std::size_t>(optind++)];
        SetOption(options, *row, value);
    }
    options.wordsBehindDashes = static_cast<std::size_t>(argc - optind);
    options.words.insert(options.words.end(), argv.begin() + optind, argv.end() - 1);
    return options;
}

bool WantsJson(const std::vector<std::string>& arguments) {
    std::string lettersWithValue;
    for (const OptionRow& row : kRows)
        if (row.letter != 0 && !row.value.empty()) lettersWithValue += row.letter;
    const auto end = std::find(arguments.begin(), arguments.end(), "--");
    return std::any_of(arguments.begin(), end, [&](const std::string& argument) {
        if (argument.starts_with("--")) return argument.size() > 2 && std::string_view("--json").starts_with(argument);
        // "-4j", but not "-gj": behind those letters a value begins.
        return argument.starts_with('-') && argument.find('j') < argument.find_first_of(lettersWithValue);
    });
}

std::span<const OptionRow> OptionRows() {
    return kRows;
}

int FamilyOf(const Options& options) {
    if (options.inet == options.inet6) return TESSEL_FAMILY_BOTH;
    return options.inet ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
}

std::vector<int> FamiliesOf(const Options& options) {
    if (options.inet == options.inet6) return {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6};
    return {FamilyOf(options)};
}

bool HasFamily(const Options& options, int family) {
    return options.inet == options.inet6 || family == FamilyOf(options);
}

}  // namespace tessel::ctl
