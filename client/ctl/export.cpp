// The settings as a file, and back.
#include <sys/stat.h>

#include "client/ctl/files.h"
#include "client/ctl/perform.h"
#include "client/ctl/state.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

// A value as ReadState writes it.
Json CheckedValue(const std::string& where, const Json& value, std::string_view kind) {
    if (kind.starts_with('~') && value.is_null()) return value;
    const bool isNetwork = kind.starts_with('=');
    kind.remove_prefix(kind.find_first_not_of("?~="));
    const bool isNumber = kind.starts_with('N');
    if (isNumber ? !value.is_number_integer() : !value.is_string())
        throw Refused(where, Format("{} is no {}", value.dump(), isNumber ? "number" : "text"));
    const ParsedValue parsed = ParseValue(kind, isNumber ? value.dump() : value.get<std::string>());
    if (!parsed.problem.empty()) throw Refused(where, parsed.problem);
    if (const auto* mac = std::get_if<Mac>(&*parsed.value)) return MacText(*mac);
    const auto* network = std::get_if<Network>(&*parsed.value);
    if (network == nullptr) return value;
    if (isNetwork && *network != Masked(*network)) throw Refused(where, "network is " + NetworkText(Masked(*network)));
    if (kind == "A/L" && !isNetwork && Covers(*ParseNetwork("fe80::/10"), *network))
        throw Refused(where, "link-local addresses are left alone");
    return kind == "A" ? HostText(*network) : NetworkText(*network);
}

// Its values in the schema's order. Keys whose value would be a list may be missing, too.
Json Checked(const std::string& where, const Json& value, const Json& schema) {
    if (schema.is_string()) return CheckedValue(where, value, schema.get<std::string>());
    if (value.type() != schema.type()) throw Refused(where, schema.is_array() ? "list expected" : "{object} expected");
    Json result(schema.type());
    if (schema.is_array()) {
        for (std::size_t i = 0; i < value.size(); ++i)
            result.push_back(Checked(Format("{}[{}]", where, i), value[i], schema[0]));
        return result;
    }
    for (const auto& [key, ignored] : value.items())
        if (!schema.contains(key)) throw Refused(where, Format("there is no setting \"{}\"", key));
    for (const auto& [key, inner] : schema.items()) {
        const bool mayMiss = inner.is_array() || inner.get<std::string>().starts_with('?');
        if (!mayMiss && !value.contains(key)) throw Refused(where, Format("\"{}\" is missing", key));
        if (value.contains(key)) result[key] = Checked(Format("{}: {}", where, key), value.at(key), inner);
    }
    return result;
}

Json WantedOf(const Invocation& invocation) {
    // By kinds of values (values.cpp). Before a kind, "?": may be missing; "~": may be null; "=": a network.
    const Json schema = Json::parse(R"({
        "interfaces": [{"interface": "IF", "mtu": "?N:68-65536", "mac": "?M", "addresses": ["A/L"], "gateways": ["A"]}],
        "priorities": [{"interface": "IF", "metric": "N:0-2147483647"}],
        "routes": [{"destination": "=A/L", "gateway": "A", "interface": "IF", "metric": "N:0-2147483647"}],
        "rules": [{"pref": "N:1-2147483647", "from": "=A/L", "fwmark": "~N:0-2147483647", "table": "N:1-2147483647"}]
    })");
    const std::string text = ReadWholeFile(invocation.asked, invocation.words.Text("FILE"));
    try {
        return Checked(invocation.asked, Json::parse(text), schema);
    } catch (const Json::parse_error& error) {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
        const std::string_view what = error.what();
        throw Refused(invocation.asked, what.substr(what.find(']') + 2));
    }
}

Outcome Export(const Invocation& invocation) {
    Json state = ReadState(invocation.asked);
    // A file is for other devices too, and two with the same hardware address disturb each other.
    for (Json& link : state["interfaces"])
        link.erase("mac");
    const std::string summary = Format("interfaces: {}, routes: {}, rules: {}", state["interfaces"].size(),
                                       state["routes"].size(), state["rules"].size());
    return ExportText(invocation, state.dump(2) + "\n", summary, state);
}

Outcome Diff(const Invocation& invocation) {
    Outcome outcome{.document = Json::array()};
    const Json wanted = WantedOf(invocation);
    for (const Step& step : StepsBetween(ReadState(invocation.asked), wanted))
        outcome.document.push_back({{"command", Joined(step, " ")}});
    if (outcome.document.empty()) outcome.done = "no difference";
    if (!outcome.document.empty())
        outcome.failure = Failed(invocation.asked, "these commands would get there (\"apply\" runs them)");
    return outcome;
}

Outcome Apply(const Invocation& invocation) {
    const Options& options = invocation.options;
    const Json wanted = WantedOf(invocation);
    const auto steps = StepsBetween(ReadState(invocation.asked), wanted);
    if (steps.empty()) return {.document = Json::array(), .done = "everything is as wanted already"};
    Outcome outcome{.document = Json::array()};
    if (options.dryRun) UseRequests(0, true, invocation.err);  // forgets what was asked so far
    for (const Step& step : steps) {
        if (options.dryRun) {
            outcome.planned.push_back("tesselctl " + Joined(step, " "));
            (void)RunInner(step, invocation);  // what it would send is noted
        } else if (!options.json && !options.quiet) {
            fputs(Format("{}\n", Joined(step, " ")).c_str(), invocation.err);
        }
    }
    if (options.dryRun) return outcome;
    Agree(invocation, "Run these commands", "these commands would be run");
    return BringTo(wanted, invocation, "wanted");
}

constexpr Command kExportCommands[] = {
    Row("", "[FILE]", &Export, "write the settings that can be read back, or show them", "export /etc/tessel.json")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .More("Addresses, MTU, gateways, routes through gateways, IPv4 rules and priorities. Leaves out what appears "
              "by itself: link-local and learnt addresses, learnt gateways and routes, ppp."),
};

constexpr Command kDiffCommands[] = {
    Row("", "FILE", &Diff, "the commands that \"apply\" would run; exit status 1 if any", "diff /etc/tessel.json")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .Columns(" {command}")
        .More("Settings and interfaces that the file does not mention are left alone."),
};

constexpr Command kApplyCommands[] = {
    Row("", "FILE", &Apply, "show the commands that lead to the settings of a file, ask, run them, and read back",
        "apply /etc/tessel.json --yes")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .Columns("SETTING {setting}|NOW {now}|RESULT {result}")
        .More("Settings that the file does not mention are left alone. Exit status 5 if something is not as the file "
              "says. In a boot script: tesselctl --wait 30 apply /etc/tessel.json --yes"),
};

}  // namespace

Outcome ExportText(const Invocation& invocation, const std::string& text, const std::string& what, const Json& json) {
    const std::string path = invocation.words.Text("FILE");
    if (path.empty() || path == "-") return {.document = json, .text = text};
    if (invocation.options.dryRun)
        return {.document = json, .planned = {Format("writes {} ({} bytes)", path, text.size())}};
    struct stat there {};
    if (stat(path.c_str(), &there) == 0 && S_ISREG(there.st_mode) && there.st_size > 0)
        Agree(invocation, Format("Replace {} ({} bytes)", path, there.st_size),
              Format("{} would be replaced: it has {} bytes", path, there.st_size));
    ReplaceFile(invocation.asked, path, text);
    return {.document = json, .done = Format("{}   {}", path, what)};
}

extern const Object kExport = {.name = "export", .summary = "the settings as one file", .commands = kExportCommands};
extern const Object kDiff = {.name = "diff", .summary = "how a file differs from settings", .commands = kDiffCommands};
extern const Object kApply = {.name = "apply", .summary = "settings from a file", .commands = kApplyCommands};

}  // namespace tessel::ctl
