// From words to commands: patterns, values, options, completion, help; and what every row of the tool has to have.
#include "client/ctl/fields.h"
#include "client/ctl/output.h"
#include "core/startup/command_table.h"
#include "tests/ctl/tool.h"

namespace tessel::test {
namespace {

TEST(Pattern, WordsFindTheirPlaces) {
    const std::tuple<const char*, const char*, std::string> cases[] = {
        // a pattern, and words; "key=value ...", or "!" and a part of what is wrong
        {"[dev IF]", "dev eth0", "dev=eth0"},
        {"[dev IF]", "eth0", "dev=eth0"},
        {"[dev IF]", "dev", "!dev IF is missing"},
        {"[dev IF]", "dev a dev b", "!one word too many"},
        {"IF mtu N:68-65536", "mtu 1400 eth0", "IF=eth0 mtu=1400"},
        {"IF mtu N", "eth0", "!mtu N is missing"},
        {"IF mtu N", "eth0 mtu 4294967296", "!a valid number"},
        {"IF mtu N", "sixteen-letters- mtu 1", "!is not a valid name of an interface"},
        {"A/L via A [dev IF] [table N]", "10.0.0.0/8 table 7 via 10.1.1.1", "A/L=10.0.0.0/8 via=10.1.1.1 table=7"},
        {"X=A/L|A|A-A|M", "10.0.0.0/33", "!not a valid address with its length"},
        {"X=A/L|A|A-A|M", "02:00:00:00:00:zz", "!not a valid hardware address"},
        {"[P=tcp|udp] LIST", "1:2", "LIST=1:2"},
        {"[P=tcp|udp] LIST", "udp 1:2", "LIST=1:2 P=udp"},
        {"[IF]", ")", "IF=)"},
        {"user U [persist] [every S]", "persist user x every 10m", "user=x persist= every=10m"},
    };
    for (const auto& [pattern, words, expected] : cases) {
        SCOPED_TRACE(testing::Message() << pattern << " <- " << words);
        const Match match = MatchWords(pattern, WordsIn(words));
        EXPECT_EQ(match.isComplete, !expected.starts_with('!')) << match.problem;
        if (!match.isComplete) {
            EXPECT_THAT(match.problem, HasSubstr(expected.substr(1)));
            continue;
        }
        for (const std::string& pair : WordsIn(expected)) {
            const std::size_t equals = pair.find('=');
            EXPECT_TRUE(match.words.Has(pair.substr(0, equals)));
            EXPECT_EQ(match.words.Text(pair.substr(0, equals)), pair.substr(equals + 1)) << pair;
        }
    }
    EXPECT_THAT(MatchWords("IF N [IF N]...", WordsIn("eth0 1 eth1 0x10")).words.All<u32>("N"), ElementsAre(1, 16));
    EXPECT_EQ(UsageWords("LIST=on|off|N [P=tcp|udp] mtu N:68-65536 [A]"), "on|off|N [tcp|udp] mtu N [A]");
}

TEST(Grammar, ObjectsAndVerbsMayBeCut) {
    // The command, or "!" and a part of the refusal.
    const std::pair<const char*, std::string> cases[] = {
        {"", "status"},
        {"addr", "addr show"},
        {"ad sh dev eth0", "addr show"},
        {"addr list", "addr show"},
        {"addr dev eth0", "addr show"},
        {"lin se eth0 mtu 1400", "link set"},
        {"li", "link show"},
        {"lo f", "!file or follow"},
        {"l", "!link or log"},
        {"link eth0", "!no such verb"},
        {"service", "!a verb is missing (stop)"},
        {"foo", "!no such object"},
        {"statu eth0", "status"},
        {"link mtu", "!usage: tesselctl link mtu IF"},
        {"route show )", "!one word too many (usage: tesselctl route show)"},
        {"link set eth0 up", "!(usage: tesselctl link set IF mac M, or tesselctl link set IF mtu N)"},
    };
    for (const auto& [words, expected] : cases) {
        try {
            const ParsedCommand parsed = ParseWords(WordsIn(words));
            EXPECT_EQ(TitleOf(*parsed.object, *parsed.command), expected) << words;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.exit, kExitRefused);
            EXPECT_THAT("!" + failure.message, HasSubstr(expected.substr(1))) << words;
        }
    }
}

TEST(Options, AreReadWhereverTheyStand) {
    const Options options = ParseOptions(WordsIn("addr -4j --get a,b --wait 1.5 show -vvt2 --color=never -- -n"));
    EXPECT_THAT(options.words, ElementsAre("addr", "show", "-n"));
    EXPECT_EQ(options.wordsBehindDashes, 1U);
    EXPECT_TRUE(options.inet && options.json && !options.dryRun);
    EXPECT_THAT(options.fields, ElementsAre("a", "b"));
    EXPECT_EQ(options.waitMs, 1500);
    EXPECT_EQ(options.timeoutMs, 2000);
    EXPECT_EQ(options.verbosity, 2);
    EXPECT_EQ(ParseOptions({"--wait", "addr"}).waitMs, 10000);
    EXPECT_EQ(ParseOptions({"--wait", "2m", "-t1h"}).waitMs, 120000);
    EXPECT_EQ(ParseOptions({"--try", "10m", "--wait", "0.5", "addr"}).words.size(), 1U);
    EXPECT_EQ(ParseOptions({"--try", "192.168.1.1", "--wait", "0x115"}).words.size(), 2U);
    for (const char* json : {"-4j", "-qj", "--js"})
        EXPECT_THAT(RunLine(Format("addr --nonsense {}", json)).err, HasSubstr("{\"error\":\"refused\""));
    ExpectAll({{"--nonsense", 2, "--nonsense is unknown"},
               {"--try 86401 addr", 2, "from 1 to 86400"},
               {"addr show -jxy", 2, "-x is unknown"},
               {"addr --get", 2, "--get has no value"},
               {"-t 1e9 addr", 2, "is no time"},
               {"-t nan addr", 2, "is no time"},
               {"--color loud", 2, "not one of auto"},
               {"--protect 300.1.1.1 addr", 2, "is not a valid address"},
               {"link mtu eth0 -4", 2, "mean nothing here"},
               {"addr -V", 0, "tesselctl "}});
    EXPECT_TRUE(DocumentOf("-V").contains("version"));
}

TEST(Commands, EveryServedCodeHasANamedVerbAndEveryRowWhatItNeeds) {
    std::vector<u32> codes;
    for (const Object* object : Objects()) {
        EXPECT_EQ(RunLine(Format("help {}", object->name)).status, 0) << object->name;
        for (const Command& command : object->commands) {
            const std::string title = TitleOf(*object, command);
            codes.insert(codes.end(), command.codes.begin(), command.codes.end());
            EXPECT_FALSE(command.summary.empty()) << title;
            // An example is the command that it stands for.
            const Options options = ParseOptions(WordsIn(std::string(command.example)));
            EXPECT_EQ(ParseWords(options.words).command, &command) << title;
            EXPECT_THAT(HelpText({std::string(object->name), std::string(command.verb)}), HasSubstr(command.summary));
        }
    }
    for (const CommandRow& served : ServedCommands()) {
        EXPECT_NE(FindMessage(served.type), nullptr) << std::hex << served.type;
        EXPECT_NE(std::find(codes.begin(), codes.end(), served.type), codes.end()) << std::hex << served.type;
    }
}

TEST(Commands, TheProtocolsPageHasTheFieldsOfEveryRequest) {
    std::istringstream document(ReadFile(TESSEL_PROTOCOL_PAGE));
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
        for (const std::string& word : WordsIn(line.substr(0, line.rfind('|', line.size() - 2)))) {
            if (!word.starts_with("char[") && word != "u16" && word != "u32" && word != "i32") continue;
            field = std::find_if(field, fields.end(), [&](const Field& one) { return TypeText(one) == word; });
            ASSERT_NE(field++, fields.end()) << word << " in " << line;
        }
    }
    EXPECT_EQ(rows, ServedCommands().size());
}

TEST(Complete, OffersWhatMayComeNext) {
    EXPECT_THAT(Complete({"pri"}), ElementsAre("priority"));
    EXPECT_THAT(Complete({"link", "set", "e"}), ElementsAre("eth0", "eth1", "eth2"));
    EXPECT_THAT(Complete({"firewall", "enable", ""}), ElementsAre("blacklist", "whitelist"));
    EXPECT_THAT(Complete({"--color", "a"}), ElementsAre("always", "auto"));
    EXPECT_THAT(Complete({"-t", ""}), IsEmpty());
    EXPECT_THAT(Complete({"--dry"}), ElementsAre("--dry-run"));
    EXPECT_THAT(Complete({"raw", "addr_f"}), ElementsAre("addr_flush"));
    EXPECT_THAT(Complete({"nonsense", ""}), IsEmpty());
}

TEST(Output, TablesAndFieldsComeFromTheDocument) {
    const Json document = Json::parse(R"([{"interface":"eth0","up":true,"inner":{"pid":7,"name":"x"},"list":[
        {"address":"10.0.0.1","prefix_length":8,"dynamic":true,"tentative":false},
        {"address":"fe80::1","prefix_length":64,"dynamic":false,"tentative":true}]},
        {"interface":"ünï","up":false,"inner":{"pid":null,"name":null},"list":[]}])");
    EXPECT_EQ(RenderTable(document, "NAME {interface}|ADDRESS {address}/{prefix_length}|MARKS {dynamic} {tentative}",
                          true, false),
              "NAME  ADDRESS     MARKS\neth0  10.0.0.1/8  dynamic\neth0  fe80::1/64  tentative\nünï\n");
    EXPECT_EQ(RenderTable(document, "{interface}|{up}", true, true), "eth0  \x1b[32mup\x1b[0m\nünï\n");
    EXPECT_EQ(RenderFields(document, {"interface", "inner.pid", "name"}), "eth0\t7\tx\nünï\t\t\n");
    EXPECT_EQ(RenderFields(document, {"address", "interface"}).value(), "10.0.0.1\teth0\nfe80::1\teth0\n\tünï\n");
    EXPECT_EQ(RenderFields(Json::array(), {"interface"}), "");
    EXPECT_EQ(Wrapped("name  one two three\n  ünï \x1b[32mup\x1b[0m and a-long-word\nfits\n", 13),
              "name  one two\n      three\n  ünï \x1b[32mup\x1b[0m and\n  a-long-word\nfits\n");
    EXPECT_EQ(HumanKib(2150), "2.1 MiB");
}

}  // namespace
}  // namespace tessel::test
