#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/ctl/commands.h"
#include "client/ctl/complete.h"
#include "client/ctl/grammar.h"
#include "client/ctl/help.h"
#include "client/ctl/messages.h"
#include "core/startup/command_table.h"
#include "tessel/ipc.h"
#include "tests/unit/ctl_run.h"

namespace {

using namespace tessel::ctl;
using tessel::test::Words;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Pattern, WordsFindTheirPlaces) {
    const struct {
        const char* pattern;
        const char* words;
        std::string expected;  // "key=value ..." in order of keys asked, or "!" and a part of what is wrong
    } cases[] = {
        {"[dev IF]", "", ""},
        {"[dev IF]", "dev eth0", "dev=eth0"},
        {"[dev IF]", "dev", "!dev IF is missing"},
        {"[dev IF]", "eth0", "!one word too many"},
        {"[dev IF]", "dev a dev b", "!one word too many"},
        {"IF mtu N", "eth0 mtu 1400", "IF=eth0 mtu=1400"},
        {"IF mtu N", "mtu 1400 eth0", "IF=eth0 mtu=1400"},
        {"IF mtu N", "eth0", "!mtu N is missing"},
        {"IF mtu N", "eth0 mtu x", "!no number"},
        {"IF mtu N", "eth0 mtu 4294967296", "!no number"},
        {"IF mtu N", "sixteen-letters- mtu 1", "!longer than 15"},
        {"A/L via A [dev IF] [table N]", "10.0.0.0/8 table 7 via 10.1.1.1", "A/L=10.0.0.0/8 via=10.1.1.1 table=7"},
        {"L=on|off|N", "off", "L=off"},
        {"L=on|off|N", "12", "L=12"},
        {"L=on|off|N", "loud", "!no number"},
        {"L=on|off", "loud", "!none of on, off"},
        {"[P=tcp|udp] LIST", "1:2", "LIST=1:2"},
        {"[P=tcp|udp] LIST", "udp 1:2", "LIST=1:2 P=udp"},
        {"user U [persist] [holdoff S]", "persist user x", "user=x persist="},
        {"IF... active IF", "eth0 eth1 active eth0", "IF=eth0 active=eth0"},
    };
    for (const auto& [pattern, words, expected] : cases) {
        SCOPED_TRACE(testing::Message() << pattern << " <- " << words);
        const Match match = MatchWords(pattern, Words(words));
        EXPECT_EQ(match.isComplete, !expected.starts_with('!'));
        if (!match.isComplete) {
            EXPECT_THAT(match.problem, HasSubstr(expected.substr(1)));
            continue;
        }
        for (const std::string& pair : Words(expected)) {
            const std::size_t equals = pair.find('=');
            EXPECT_EQ(match.arguments.Find(pair.substr(0, equals)), pair.substr(equals + 1)) << pair;
        }
    }
}

TEST(Grammar, ObjectsAndVerbsMayBeCut) {
    // The command, or "!" and a part of the refusal.
    const std::pair<const char*, std::string> cases[] = {
        {"", "status"},
        {"addr", "addr show"},
        {"ad sh dev eth0", "addr show"},
        {"addr list", "addr show"},
        {"addr dev eth0", "addr show"},
        {"li se eth0 mtu 1400", "link set"},
        {"link mt eth0", "link mtu"},
        {"l", "!link or log"},
        {"link eth0", "!no such verb"},
        {"lo f", "!file or follow"},
        {"service", "!what of it"},
        {"foo", "!no such object"},
        {"st eth0", "status"},
        {"link mtu", "!usage: tesselctl link mtu IF"},
        {"log level loud", "!usage: tesselctl log level off|error|info|debug|N"},
    };
    for (const auto& [words, expected] : cases) {
        const auto parsed = ParseWords(Words(words));
        if (const auto* command = std::get_if<ParsedCommand>(&parsed)) {
            EXPECT_EQ(TitleOf(*command->command), expected) << words;
        } else {
            const auto& failure = std::get<Failure>(parsed);
            EXPECT_EQ(failure.exit, kExitRefused);
            EXPECT_THAT(failure.message, HasSubstr(expected.substr(1))) << words;
        }
    }
}

// What has words as yet: modules 0x1, 0x7 and 0x10, but for routers and traffic statistics. `raw` reaches all.
bool HasWords(u32 code) {
    const u32 module = code >> 8;
    const bool isWatch = code == 0x117 || code == 0x118 || code == 0x703 || code == 0x704;
    return (module == 0x1 || module == 0x7 || module == 0x10) && !isWatch;
}

TEST(Commands, EveryServedCodeHasANamedCommandAndAName) {
    for (const tessel::CommandRow& served : tessel::ServedCommands()) {
        EXPECT_NE(FindMessage(served.type), nullptr) << std::hex << served.type;
        if (!HasWords(served.type)) continue;
        const auto commands = Commands();
        EXPECT_TRUE(std::any_of(commands.begin(), commands.end(),
                                [&](const Command& command) {
                                    return std::find(command.codes.begin(), command.codes.end(), served.type) !=
                                           command.codes.end();
                                }))
            << std::hex << served.type;
    }
}

TEST(Commands, TheProtocolsPageHasTheFieldsOfEveryRequest) {
    std::istringstream document(tessel::test::ReadFile(TESSEL_PROTOCOL_PAGE));
    std::size_t rows = 0;
    for (std::string line; std::getline(document, line);) {
        if (!line.starts_with("| 0x")) continue;
        const Message* message = FindMessage(static_cast<u32>(std::stoul(line.substr(2), nullptr, 16)));
        ASSERT_NE(message, nullptr) << line;
        ++rows;
        std::vector<Field> fields(message->request.fields.begin(), message->request.fields.end());
        std::stable_sort(fields.begin(), fields.end(), [](auto& a, auto& b) { return a.offset < b.offset; });
        auto field = fields.begin();
        std::replace(line.begin(), line.end(), ';', ' ');
        for (const std::string& word : Words(line.substr(0, line.rfind('|', line.size() - 2)))) {
            if (!word.starts_with("char[") && word != "u16" && word != "u32" && word != "i32") continue;
            field = std::find_if(field, fields.end(), [&](const Field& one) { return TypeText(one) == word; });
            ASSERT_NE(field++, fields.end()) << word << " in " << line;
        }
    }
    EXPECT_EQ(rows, Messages().size());
}

TEST(Commands, ExamplesRunAsTypedAndHelpShowsThem) {
    const auto objects = ObjectNames();
    for (const Command& command : Commands()) {
        EXPECT_THAT(objects, testing::Contains(command.object));
        EXPECT_FALSE(ObjectSummary(command.object).empty()) << command.object;
        auto options = ParseOptions(Words(command.example));
        ASSERT_TRUE(std::holds_alternative<Options>(options)) << command.example;
        const auto parsed = ParseWords(std::get<Options>(options).words);
        ASSERT_TRUE(std::holds_alternative<ParsedCommand>(parsed)) << command.example;
        EXPECT_EQ(std::get<ParsedCommand>(parsed).command, &command) << command.example;
        EXPECT_THAT(HelpText(Words(TitleOf(command))), HasSubstr(std::string(command.example)));
    }
    EXPECT_THAT(HelpText({}), HasSubstr("--dry-run"));
    EXPECT_THAT(HelpText({"link"}), HasSubstr("link set IF mtu N"));
    EXPECT_THAT(HelpText({"link", "set"}), HasSubstr("0x111 mtu_set  TNetMtuSetReq (20 bytes)"));
}

TEST(Complete, OffersWhatMayComeNext) {
    EXPECT_THAT(Complete({"l"}), ElementsAre("link", "log"));
    EXPECT_THAT(Complete({"link", ""}), ElementsAre("mac", "mtu", "set", "show"));
    EXPECT_THAT(Complete({"-j", "-t", "5", "link", "s"}), ElementsAre("set", "show"));
    EXPECT_THAT(Complete({"log", "level", ""}), ElementsAre("debug", "error", "info", "off"));
    EXPECT_THAT(Complete({"link", "set", "eth0", ""}), ElementsAre("mac", "mtu"));
    EXPECT_THAT(Complete({"addr", "show", ""}), ElementsAre("dev"));
    EXPECT_THAT(Complete({"addr", "show", "dev", "l"}), ElementsAre("lo"));
    EXPECT_THAT(Complete({"raw", "mtu_g"}), ElementsAre("mtu_get"));
    EXPECT_THAT(Complete({"addr", "--tim"}), ElementsAre("--timeout"));
    EXPECT_THAT(Complete({"-g", ""}), IsEmpty());
    EXPECT_THAT(Complete({"foo", ""}), IsEmpty());
}

TEST(Options, StandAnywhereAndAreChecked) {
    const auto parse = [](const std::string& line) { return ParseOptions(Words(line)); };
    const auto options = std::get<Options>(parse("addr -vv show --wait dev -g a,b eth0 -t 0.5 -4"));
    EXPECT_THAT(options.words, ElementsAre("addr", "show", "dev", "eth0"));
    EXPECT_THAT(options.fields, ElementsAre("a", "b"));
    EXPECT_EQ(options.verbosity, 2);
    EXPECT_EQ(options.waitMs, 10000) << "the word behind --wait is no number";
    EXPECT_EQ(options.timeoutMs, 500);
    EXPECT_EQ(FamilyOf(options), TESSEL_FAMILY_INET);
    EXPECT_EQ(std::get<Options>(parse("--wait 2 addr")).waitMs, 2000);
    EXPECT_EQ(FamilyOf(std::get<Options>(parse("-4 -6"))), TESSEL_FAMILY_BOTH);
    EXPECT_EQ(FamilyOf({}), TESSEL_FAMILY_BOTH);
    for (const char* wrong : {"--foo", "-t x", "-t 0", "-t", "--color pink", "--reply -1"})
        EXPECT_EQ(std::get<Failure>(parse(wrong)).exit, kExitRefused) << wrong;
}

}  // namespace
