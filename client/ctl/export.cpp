// The settings as a file, and back.
#include <unistd.h>

#include "client/ctl/files.h"
#include "client/ctl/kernel.h"
#include "client/ctl/perform.h"
#include "client/ctl/requests.h"
#include "client/ctl/state.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

constexpr int kIndent = 2;

// What a file may hold, by kinds of values (values.h). "?" before a kind: may be missing; "~": may be null.
const Json& Schema() {
    static const Json schema = Json::parse(R"({
        "interfaces": [{"interface": "IF", "mtu": "?N:68-65536", "mac": "?M", "addresses": ["A/L"], "gateways": ["A"]}],
        "priorities": [{"interface": "IF", "metric": "N:0-2147483647"}],
        "routes": [{"destination": "A/L", "gateway": "A", "interface": "IF", "metric": "N:0-2147483647"}],
        "rules": [{"pref": "N:1-2147483647", "from": "A/L", "fwmark": "~N:0-2147483647", "table": "N:1-2147483647"}]
    })");
    return schema;
}

// A value as ReadState writes it.
Json CheckedValue(const std::string& asked, const std::string& place, const Json& value, std::string_view kind) {
    if (kind.starts_with('~') && value.is_null()) return value;
    kind.remove_prefix(kind.find_first_not_of("?~"));
    const bool isNumber = kind.starts_with('N');
    if (isNumber ? !value.is_number_integer() : !value.is_string())
        throw Refused(asked, Format("{}: {} is no {}", place, value.dump(), isNumber ? "number" : "text"));
    const ParsedValue parsed = ParseValue(kind, isNumber ? value.dump() : value.get<std::string>());
    if (!parsed.value) throw Refused(asked, Format("{}: {}", place, parsed.problem));
    const std::string missing = kind == "IF" ? MissingInterface(value) : "";
    if (!missing.empty()) throw Refused(asked, Format("{}: {}", place, missing));
    if (const auto* mac = std::get_if<Mac>(&*parsed.value)) return MacText(*mac);
    const auto* network = std::get_if<Network>(&*parsed.value);
    if (network == nullptr) return value;
    return kind == "A" ? HostText(*network) : NetworkText(*network);
}

// Its values in the schema's order. Keys whose value would be a list may be missing, too.
Json Checked(const std::string& asked, const std::string& place, const Json& value, const Json& schema) {
    if (schema.is_string()) return CheckedValue(asked, place, value, schema.get<std::string>());
    if (value.type() != schema.type())
        throw Refused(asked, Format("{}{} expected", place.empty() ? "" : place + ": ",
                                    schema.is_array() ? "[list]" : "{object}"));
    Json result = schema.is_array() ? Json::array() : Json::object();
    if (schema.is_array()) {
        for (const Json& element : value)
            result.push_back(Checked(asked, Format("{}[{}]", place, result.size()), element, schema[0]));
        return result;
    }
    const std::string inside = place.empty() ? "" : place + ".";
    for (const auto& [key, ignored] : value.items()) {
        if (!schema.contains(key)) throw Refused(asked, Format("there is no setting \"{}{}\"", inside, key));
    }
    for (const auto& [key, inner] : schema.items()) {
        const bool mayMiss = inner.is_array() || inner.get<std::string>().starts_with('?');
        if (!mayMiss && !value.contains(key)) throw Refused(asked, Format("\"{}{}\" is missing", inside, key));
        if (value.contains(key)) result[key] = Checked(asked, inside + key, value.at(key), inner);
    }
    return result;
}

Json WantedOf(const Invocation& invocation) {
    const std::string path = invocation.words.Text("FILE");
    const std::string text = ReadWholeFile(invocation.asked, path);
    try {
        return Checked(invocation.asked, "", Json::parse(text), Schema());
    } catch (const Json::parse_error& error) {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
        const std::string_view what = error.what();
        throw Refused(invocation.asked, what.substr(what.find(']') + 2));
    }
}

Outcome Export(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = ReadState(invocation.asked);
    // A file is for other devices, too, and two of one hardware address disturb each other.
    for (Json& link : outcome.document["interfaces"])
        link.erase("mac");
    const std::string text = outcome.document.dump(kIndent) + "\n";
    const std::string path = invocation.words.Text("FILE");
    if (path.empty() || path == "-") {
        outcome.text = text;
    } else if (invocation.options.dryRun) {
        outcome.planned = {Format("writes {} ({} bytes)", path, text.size())};
    } else {
        if (access(path.c_str(), F_OK) == 0)
            Agree(invocation, "Replace " + path, path + " is there and would be replaced");
        ReplaceFile(invocation.asked, path, text);
        outcome.done = Format("{}   {} interfaces, {} routes, {} rules", path, outcome.document["interfaces"].size(),
                              outcome.document["routes"].size(), outcome.document["rules"].size());
    }
    return outcome;
}

std::string CommandsText(std::size_t steps) {
    return Format("{} command{}", steps, steps == 1 ? "" : "s");
}

Outcome Diff(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = Json::array();
    const Json wanted = WantedOf(invocation);
    for (const Step& step : StepsBetween(ReadState(invocation.asked), wanted))
        outcome.document.push_back({{"command", Joined(step, " ")}});
    const std::size_t count = outcome.document.size();
    if (count == 0) outcome.done = "no difference";
    if (count != 0) outcome.failure = Failed(invocation.asked, CommandsText(count) + " to run (\"apply\" does)");
    return outcome;
}

Outcome Apply(const Invocation& invocation) {
    const Options& options = invocation.options;
    const Json wanted = WantedOf(invocation);
    const auto steps = StepsBetween(ReadState(invocation.asked), wanted);
    Outcome outcome;
    outcome.document = Json::array();
    outcome.done = "everything is as wanted already";
    if (steps.empty()) return outcome;
    outcome.done.clear();
    Step further{"--yes"};
    if (options.force) further.emplace_back("--force");
    if (options.dryRun) {
        UseRequests(0, true, invocation.err);  // forgets what was asked until here
        for (Step step : steps) {
            outcome.planned.push_back("tesselctl " + Joined(step, " "));
            step.insert(step.end(), further.begin(), further.end());
            (void)RunInner(step, invocation);  // what it would send is noted
        }
        return outcome;
    }
    for (const Step& step : steps) {
        if (!options.json && !options.quiet) fputs(Format("{}\n", Joined(step, " ")).c_str(), invocation.err);
    }
    Agree(invocation, "Run " + CommandsText(steps.size()), CommandsText(steps.size()) + " would be run");
    outcome.document = BringTo(wanted, invocation, further, "wanted", outcome.notes);
    if (!IsAllAs(outcome.document)) outcome.failure = NotApplied(invocation.asked, "not everything is as wanted");
    return outcome;
}

constexpr char kWhatIsKept[] =
    "Addresses, MTU, gateways, routes through gateways, IPv4 rules and priorities. Without what "
    "comes by itself: link-local and learnt addresses, learnt gateways and routes, ppp.";

constexpr Command kExportCommands[] = {
    Row("", "[FILE]", &Export, "write what can be read back of the settings; without a file: show it",
        "export /etc/tessel.json")
        .Sends(TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET)
        .More(kWhatIsKept),
};

constexpr Command kDiffCommands[] = {
    Row("", "FILE", &Diff, "the commands that \"apply\" would run; exit status 1 when there are some",
        "diff /etc/tessel.json")
        .Sends(TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET)
        .Columns(" {command}")
        .More("What the file does not name is left alone, as are interfaces that it leaves out."),
};

constexpr Command kApplyCommands[] = {
    Row("", "FILE", &Apply, "show the commands that lead to a file's settings, ask, run them, read back",
        "apply /etc/tessel.json --yes")
        .Sends(TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET)
        .Columns("SETTING {setting}|NOW {now}|RESULT {result}")
        .More("What the file does not name is left alone. Exit status 5 when something is not as wanted. In a boot "
              "script: tesselctl --wait 30 apply /etc/tessel.json --yes"),
};

}  // namespace

extern const Object kExport = {.name = "export", .summary = "the settings as one file", .commands = kExportCommands};
extern const Object kDiff = {
    .name = "diff", .summary = "how a file differs from the settings", .commands = kDiffCommands};
extern const Object kApply = {.name = "apply", .summary = "settings from a file", .commands = kApplyCommands};

}  // namespace tessel::ctl
