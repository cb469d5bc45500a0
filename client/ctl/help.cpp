#include "client/ctl/fields.h"
#include "client/ctl/output.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

constexpr char kExitTexts[] =
    "exit status\n"
    "  0  done, and read back where possible      4  no answer in time\n"
    "  1  the daemon answered failure, or \"no\"    5  answered success, but it did not happen\n"
    "  2  wrong words, or refused before sending  6  undone, as nobody confirmed it (try)\n"
    "  3  no daemon to talk to\n"
    "  128+n  ended by signal n, after what it had switched on was switched off\n";

std::string Indented(Rows rows) {
    for (auto& row : rows)
        row.front().insert(0, "  ");
    return RenderRows(rows);
}

std::string UsageOf(const Object& object, const Command& command) {
    return TitleOf(object, command) + (command.words.empty() ? "" : " ") + UsageWords(command.words);
}

std::string KindsOf(std::string_view patterns) {
    const Rows rows = KindsIn(patterns);
    return rows.empty() ? "" : "\nwords\n" + Indented(rows);
}

std::string HelpOnEverything() {
    Rows objects;
    for (const Object* object : Objects())
        objects.push_back({std::string(object->name), std::string(object->summary)});
    Rows options;
    for (const OptionRow& row : OptionRows()) {
        std::string names = row.letter == 0 ? "" : Format("-{}", row.letter);
        if (!row.name.empty()) names += Format("{}--{}", names.empty() ? "" : ", ", row.name);
        options.push_back({Format("{} {}", names, row.value), std::string(row.summary)});
    }
    return Format(
        "usage: tesselctl [OPTIONS] OBJECT [VERB] [WORDS...]\n\n"
        "Talks to tessel_daemon. Objects and verbs may be cut; options may stand anywhere. No verb means \"show\", no\n"
        "object \"status\". More: tesselctl OBJECT -h, tesselctl OBJECT VERB -h.\n\nobjects\n{}\noptions\n{}\n{}",
        Indented(std::move(objects)), Indented(std::move(options)), kExitTexts);
}

std::string HelpOnObject(const Object& object) {
    Rows verbs;
    std::string examples;
    std::string patterns;
    for (const Command& command : object.commands) {
        if (command.isHidden) continue;
        verbs.push_back({"tesselctl " + UsageOf(object, command), std::string(command.summary)});
        examples += Format("  tesselctl {}\n", command.example);
        patterns += Format(" {}", command.words);
    }
    return Format("{}: {}\n\n{}{}\nexamples\n{}", object.name, object.summary, Indented(std::move(verbs)),
                  KindsOf(patterns), examples);
}

void AddMessage(const Message& message, Rows& rows) {
    rows.push_back({Format("0x{:X} {}", message.code, message.name),
                    Format("{} ({} bytes) -> {} ({} bytes)", message.request.name, message.request.bytes,
                           message.reply.name, message.reply.bytes)});
    AddFields(message.request, "   ", rows);
    if (message.reply.bytes > sizeof(TNetStatusReply)) AddFields(message.reply, "-> ", rows);
}

std::string HelpOnCommand(const Object& object, const Command& command) {
    std::string text = Format("usage: tesselctl {}{}\n\n{}\n", UsageOf(object, command),
                              command.takesFamily ? " [-4|-6]" : "", command.summary);
    if (!command.background.empty()) text += Format("{}\n", command.background);
    Rows messages;
    for (const u32 code : command.codes) {
        if (const Message* message = FindMessage(code)) AddMessage(*message, messages);
    }
    if (!messages.empty()) text += "\nrequests\n" + Indented(std::move(messages));
    return text + KindsOf(command.words) + Format("\nexample\n  tesselctl {}\n", command.example);
}

Outcome TextHelp(const std::string& text) {
    return {.document = text, .text = text};
}

Outcome HelpOn(const Invocation& invocation) {
    if (!invocation.words.Has("OBJECT")) return TextHelp(HelpOnEverything());
    const Object* object = SelectCommand({invocation.words.Text("OBJECT"), "show"}).object;
    return TextHelp(HelpText({std::string(object->name)}));
}

Outcome HelpOnExit(const Invocation&) {
    return TextHelp(kExitTexts);
}

Outcome HelpOnProtocol(const Invocation& invocation) {
    Rows rows;
    const u32* code = invocation.words.If<u32>("CODE");
    for (const Message& message : Messages()) {
        if (code == nullptr || *code == message.code) AddMessage(message, rows);
    }
    if (rows.empty()) throw Refused(invocation.asked, "no request with a name has this code");
    return TextHelp(RenderRows(rows));
}

constexpr Command kHelpCommands[] = {
    Row("", "[OBJECT]", &HelpOn, "help on an object", "help gateway"),
    Row("exit", "", &HelpOnExit, "what the exit status means", "help exit"),
    Row("protocol", "[CODE]", &HelpOnProtocol, "requests and replies, field by field", "help protocol 0x10F"),
};

}  // namespace

extern const Object kHelp = {.name = "help", .summary = "help on an object", .commands = kHelpCommands};

std::string HelpText(const std::vector<std::string>& words) {
    if (words.empty()) return HelpOnEverything();
    try {
        const Selection selection = SelectCommand(words);
        if (!selection.hasVerb) return HelpOnObject(*selection.object);
        std::string text;
        for (const Command* row : selection.rows)
            text += (text.empty() ? "" : "\n") + HelpOnCommand(*selection.object, *row);
        return text;
    } catch (const Failure&) {
        // A wrong or missing verb still names its object.
        const auto all = Objects();
        const auto found = std::ranges::find(all, words[0], &Object::name);
        return found == all.end() ? HelpOnEverything() : HelpOnObject(**found);
    }
}

}  // namespace tessel::ctl
