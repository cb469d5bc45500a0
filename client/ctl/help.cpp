#include "client/ctl/help.h"

#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/commands.h"
#include "client/ctl/grammar.h"
#include "client/ctl/handlers.h"
#include "client/ctl/messages.h"
#include "client/ctl/values.h"
#include "tessel/ipc.h"

namespace tessel::ctl {

namespace {

constexpr char kExitTexts[] =
    "exit status\n"
    "  0  done, and read back where possible      3  no daemon to talk to\n"
    "  1  the daemon answered failure, or \"no\"    4  no answer in time\n"
    "  2  wrong words, or refused before sending  5  answered success, but it did not happen\n"
    "  128+n  ended by signal n, after what it had switched on was switched off\n";

std::string Indented(const Table& table) {
    std::string text = RenderTable(table, false, false);
    std::string result = "  ";
    for (std::size_t i = 0; i < text.size(); ++i) {
        result += text[i];
        if (text[i] == '\n' && i + 1 < text.size()) result += "  ";
    }
    return result;
}

std::string UsageOf(const Command& command) {
    return fmt::format("{}{}{}", TitleOf(command), command.words.empty() ? "" : " ", UsageWords(command.words));
}

std::string HelpOnEverything() {
    Table objects;
    for (const std::string& object : ObjectNames())
        objects.rows.push_back({{object}, {std::string(ObjectSummary(object))}});
    Table options;
    for (const OptionText& option : OptionTexts())
        options.rows.push_back({{fmt::format("{} {}", option.names, option.value)}, {option.summary}});
    return fmt::format(
        "usage: tesselctl [OPTIONS] OBJECT [VERB] [WORDS...]\n\n"
        "Talks to tessel_daemon. Objects and verbs may be cut; options may stand anywhere. No verb means \"show\", no\n"
        "object \"status\". More: tesselctl OBJECT -h, tesselctl OBJECT VERB -h.\n\nobjects\n{}\noptions\n{}\n{}",
        Indented(objects), Indented(options), kExitTexts);
}

std::string HelpOnObject(std::string_view object) {
    Table verbs;
    std::string examples;
    for (const Command& command : Commands()) {
        if (command.object != object) continue;
        verbs.rows.push_back({{"tesselctl " + UsageOf(command)}, {std::string(command.summary)}});
        examples += fmt::format("  tesselctl {}\n", command.example);
    }
    return fmt::format("{}: {}\n\n{}\nexamples\n{}", object, ObjectSummary(object), Indented(verbs), examples);
}

void AddMessage(const Message& message, Table& table) {
    table.rows.push_back({{fmt::format("0x{:X} {}", message.code, message.name)},
                          {fmt::format("{} ({} bytes) -> {} ({} bytes)", message.request.name, message.request.bytes,
                                       message.reply.name, message.reply.bytes)}});
    AddFields(message.request, "   ", table);
    if (message.reply.bytes > sizeof(TNetStatusReply)) AddFields(message.reply, "-> ", table);
}

std::string MessagesOf(const Command& command) {
    Table table;
    for (const u32 code : command.codes) {
        const Message* message = FindMessage(code);
        if (message != nullptr) AddMessage(*message, table);
    }
    return table.rows.empty() ? "" : fmt::format("\nrequests\n{}", Indented(table));
}

Outcome Text(std::string text) {
    Outcome outcome;
    outcome.done = std::move(text);
    outcome.document = outcome.done;
    return outcome;
}

std::string HelpOnCommand(const Command& command) {
    std::string text = fmt::format("usage: tesselctl {}{}\n\n{}\n", UsageOf(command),
                                   command.takesFamily ? " [-4|-6]" : "", command.summary);
    if (!command.background.empty()) text += fmt::format("{}\n", command.background);
    return text + MessagesOf(command) + fmt::format("\nexample\n  tesselctl {}\n", command.example);
}

}  // namespace

std::string HelpText(const std::vector<std::string>& words) {
    const auto selected = SelectCommand(words);
    const auto* selection = std::get_if<Selection>(&selected);
    if (selection == nullptr || selection->object.empty()) {
        // A wrong verb still names its object.
        if (words.size() > 1) return HelpText({words.front()});
        const auto objects = ObjectNames();
        const bool isObject = !words.empty() && std::find(objects.begin(), objects.end(), words[0]) != objects.end();
        return isObject ? HelpOnObject(words[0]) : HelpOnEverything();
    }
    if (!selection->hasVerb) return HelpOnObject(selection->object);
    std::string text;
    for (const Command* row : selection->rows)
        text += (text.empty() ? "" : "\n") + HelpOnCommand(*row);
    return text;
}

Outcome HelpOn(const Invocation& invocation) {
    const auto object = invocation.words.Find("OBJECT");
    if (object) {
        const auto selected = SelectCommand({*object});
        const auto objects = ObjectNames();
        const auto isMeant = [&](const std::string& name) { return name.starts_with(*object); };
        if (std::none_of(objects.begin(), objects.end(), isMeant)) return std::get<Failure>(selected);
    }
    return Text(HelpText(object ? std::vector<std::string>{*object} : std::vector<std::string>{}));
}

Outcome HelpOnExit(const Invocation&) {
    return Text(kExitTexts);
}

Outcome HelpOnProtocol(const Invocation& invocation) {
    Table table;
    if (const auto word = invocation.words.Find("CODE")) {
        const Message* named = FindMessage(*word);
        const Message* message = named != nullptr ? named : FindMessage(ParseNumber(*word).value_or(0));
        if (message == nullptr) return Refused("help protocol " + *word, "no request with a name has this code");
        AddMessage(*message, table);
    } else {
        for (const Message& message : Messages())
            AddMessage(message, table);
    }
    return Text(RenderTable(table, false, false));
}

}  // namespace tessel::ctl
