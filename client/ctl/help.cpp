// What can be typed: for people, and for the shell that completes it.
#include "client/ctl/fields.h"
#include "client/ctl/output.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

constexpr char kExitTexts[] =
    "exit status\n"
    "  0  done, and read back where possible\n"
    "  1  the daemon answered failure, or \"no\"\n"
    "  2  wrong words, or refused before sending\n"
    "  3  no daemon to talk to\n  4  no answer in time\n"
    "  5  answered success, but it did not happen\n  6  undone, because nobody confirmed it (try)\n"
    "  128+n  ended by signal n, after switching off what it had switched on\n";

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
        "Talks to tessel_daemon. Objects and verbs may be shortened, options may appear\n"
        "anywhere, \"show\" and \"status\" may be left out. See also: tesselctl OBJECT "
        "-h.\n\nobjects\n{}\noptions\n{}\n{}",
        Indented(std::move(objects)), Indented(std::move(options)), kExitTexts);
}

std::string HelpOnObject(const Object& object) {
    std::string verbs;
    std::string examples;
    std::string patterns;
    for (const Command& command : object.commands) {
        verbs += Format("  tesselctl {}\n      {}\n", UsageOf(object, command), command.summary);
        examples += Format("  tesselctl {}\n", command.example);
        patterns += Format(" {}", command.words);
    }
    return Format("{}: {}\n\n{}{}\nexamples\n{}", object.name, object.summary, verbs, KindsOf(patterns), examples);
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
    std::string requests;
    for (const u32 code : command.codes)
        if (const Message* message = FindMessage(code)) requests += Format("  0x{:X} {}\n", code, message->name);
    if (!requests.empty()) text += "\nrequests (their bytes: tesselctl help protocol CODE)\n" + requests;
    return text + KindsOf(command.words) + Format("\nexample\n  tesselctl {}\n", command.example);
}

Outcome TextHelp(const std::string& text) {
    return {.document = text, .text = text};
}

Outcome HelpOn(const Invocation& invocation) {
    if (!invocation.words.Has("OBJECT")) return TextHelp(HelpOnEverything());
    return TextHelp(HelpText({std::string(FindObject(invocation.words.Text("OBJECT")).name)}));
}

Outcome HelpOnExit(const Invocation&) {
    return TextHelp(kExitTexts);
}

Outcome HelpOnProtocol(const Invocation& invocation) {
    Rows rows;
    const u32* code = invocation.words.If<u32>("CODE");
    for (const Message& message : Messages())
        if (code == nullptr || *code == message.code) AddMessage(message, rows);
    if (rows.empty()) throw Refused(invocation.asked, "no request with a name has this code");
    return TextHelp(RenderRows(rows));
}

constexpr Command kHelpCommands[] = {
    Row("", "[OBJECT]", &HelpOn, "help on an object", "help gateway"),
    Row("exit", "", &HelpOnExit, "what the exit status means", "help exit"),
    Row("protocol", "[CODE]", &HelpOnProtocol, "requests and replies, field by field", "help protocol 0x10F"),
};

// The option that waits for a value after this word. Not one whose value may be left out.
const OptionRow* WaitingOption(const std::string& word) {
    const bool isShort = word.size() > 1 && word[0] == '-' && word[1] != '-';
    for (const OptionRow& row : OptionRows()) {
        if (row.value.empty() || row.value[0] == '[') continue;
        if (word == Format("--{}", row.name) || (isShort && word.back() == row.letter)) return &row;
    }
    return nullptr;
}

// The words without options and their values.
std::vector<std::string> PlainWords(const std::vector<std::string>& words) {
    std::vector<std::string> plain;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool isOption = words[i].starts_with('-') && words[i].size() > 1;
        if (!isOption) plain.push_back(words[i]);
        if (isOption && WaitingOption(words[i]) != nullptr) ++i;
    }
    return plain;
}

void AddToken(const Token& token, std::vector<std::string>& offers) {
    if (token.isKeyword) offers.emplace_back(token.name);
    for (const std::string_view choice : token.choices)
        if (!IsKind(choice)) offers.emplace_back(choice);
    const auto known = KnownValues(token.name);
    if (!token.isKeyword) offers.insert(offers.end(), known.begin(), known.end());
}

std::vector<std::string> Offers(const std::vector<std::string>& before) {
    std::vector<std::string> offers;
    if (before.empty()) return KnownValues("OBJECT");
    for (const Object* object : Objects()) {
        const auto verbs = VerbsOf(*object);
        if (before.size() == 1 && object->name == before[0]) offers.assign(verbs.begin(), verbs.end());
    }
    try {
        const Selection selection = SelectCommand(before);
        for (const Command* row : selection.rows) {
            for (const Token& token : MatchWords(row->words, selection.rest).expected) {
                // In place of a verb, "show" is understood by its keywords only.
                if (selection.hasVerb || token.isKeyword) AddToken(token, offers);
            }
        }
    } catch (const Failure&) {  // nothing more to offer
    }
    return offers;
}

std::vector<std::string> OptionNames() {
    std::vector<std::string> names;
    for (const OptionRow& row : OptionRows()) {
        if (row.letter != 0) names.push_back(Format("-{}", row.letter));
        if (!row.name.empty()) names.push_back(Format("--{}", row.name));
    }
    return names;
}

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

std::vector<std::string> Complete(const std::vector<std::string>& words) {
    const std::string last = words.empty() ? "" : words.back();
    const std::vector<std::string> before(words.begin(), words.empty() ? words.end() : words.end() - 1);
    const OptionRow* waiting = before.empty() ? nullptr : WaitingOption(before.back());
    std::vector<std::string> offers = last.starts_with('-') ? OptionNames() : Offers(PlainWords(before));
    if (waiting != nullptr) {
        const auto choices = Split(waiting->choices, '|');
        offers.assign(choices.begin(), choices.end());
    }
    std::ranges::sort(offers);
    offers.erase(std::unique(offers.begin(), offers.end()), offers.end());
    std::erase_if(offers, [&](const std::string& offer) { return !offer.starts_with(last); });
    return offers;
}

}  // namespace tessel::ctl
