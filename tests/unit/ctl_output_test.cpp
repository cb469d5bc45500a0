#include <gtest/gtest.h>

#include <cerrno>

#include "client/ctl/failure.h"
#include "client/ctl/output.h"
#include "client/libtessel.h"
#include <nlohmann/json.hpp>

namespace {

using namespace tessel::ctl;
using nlohmann::ordered_json;

const ordered_json kDocument = ordered_json::parse(R"({"daemon":{"pid":7,"note":null},"interfaces":[
    {"interface":"a","up":true,"addresses":[{"address":"1.2.3.4"},{"address":"::1"}]},
    {"interface":"b","up":false,"addresses":[]}]})");

TEST(Table, ColumnsAreAlignedAndNotPadded) {
    const Table table{.preamble = {},
                      .header = {"NAME", "N", "TEXT"},
                      .rows = {{{"é"}, {"1"}, {""}}, {{"longer"}, {""}, {"x", Style::kGood}}}};
    EXPECT_EQ(RenderTable(table, true, false), "NAME    N  TEXT\né       1\nlonger     x\n");
    EXPECT_EQ(RenderTable(table, false, true), "é       1\nlonger     \x1b[32mx\x1b[0m\n");
}

TEST(Fields, ComeFromEveryDepth) {
    struct Case {
        std::vector<std::string> fields;
        const char* expected;
    };
    const Case cases[] = {
        {{"pid"}, "7\n"},
        {{"note"}, "\n"},
        {{"interface", "up"}, "a\ttrue\nb\tfalse\n"},
        {{"interface", "address"}, "a\t1.2.3.4\na\t::1\nb\t\n"},
        {{"pid", "address"}, "7\t1.2.3.4\n7\t::1\n7\t\n"},
    };
    for (const Case& one : cases)
        EXPECT_EQ(RenderFields(kDocument, one.fields), one.expected) << one.fields[0];
    EXPECT_EQ(RenderFields(kDocument, {"nonsense"}), std::nullopt);
    EXPECT_EQ(RenderFields(ordered_json::array(), {"address"}), "") << "no record is no mistake";
}

TEST(Json, IsStrictWhateverTheTextsHold) {
    EXPECT_EQ(ordered_json::parse(RenderJson(kDocument)), kDocument);
    const ordered_json odd{{"text", "quote \" line\n"}, {"broken", "\xff\xfe"}, {"list", ordered_json::array()}};
    EXPECT_EQ(ordered_json::parse(RenderJson(odd))["text"], "quote \" line\n");
    EXPECT_EQ(RenderJson(ordered_json::parse(R"([{"a":[{"b":1},{"b":2}]}])")),
              "[{\"a\":[\n {\"b\":1},\n {\"b\":2}]}]\n");
}

TEST(Failure, EveryErrorHasItsExitAndItsWord) {
    struct Case {
        int error;
        Exit exit;
        const char* word;
    };
    constexpr Case kCases[] = {
        {TESSEL_E_FAILED, kExitFailed, "failed"},     {TESSEL_E_NOT_RUNNING, kExitNotRunning, "not_running"},
        {TESSEL_E_TIMEOUT, kExitTimeout, "timeout"},  {TESSEL_E_NO_REPLY, kExitFailed, "no_reply"},
        {TESSEL_E_PROTOCOL, kExitFailed, "protocol"}, {TESSEL_E_ARGUMENT, kExitRefused, "refused"},
        {TESSEL_E_SYSTEM, kExitFailed, "system"},     {TESSEL_E_IN_USE, kExitFailed, "system"},
    };
    for (const Case& one : kCases) {
        const Failure failure = CallFailed("link mtu \"x\"", one.error);
        EXPECT_EQ(failure.exit, one.exit) << one.error;
        const auto json = ordered_json::parse(RenderFailure(failure, true));
        EXPECT_EQ(json["error"], one.word);
        EXPECT_EQ(json["exit"], static_cast<int>(one.exit));
        EXPECT_EQ(json["message"], failure.message);
    }
    EXPECT_EQ(RenderFailure(CallFailed("link mtu eth9", TESSEL_E_FAILED, "there is no interface eth9"), false),
              "tesselctl: link mtu eth9: the daemon answered -1. Probable cause: there is no interface eth9.\n");
    errno = EACCES;
    EXPECT_EQ(CallFailed("x", TESSEL_E_SYSTEM).message, "x: Permission denied");
}

TEST(Human, UnitsFitTheSize) {
    EXPECT_EQ(HumanKib(900), "900 KiB");
    EXPECT_EQ(HumanKib(2150), "2.1 MiB");
    EXPECT_EQ(HumanDuration(59), "59s");
    EXPECT_EQ(HumanDuration(7380), "2h 3m");
    EXPECT_EQ(HumanDuration(93600), "1d 2h");
}

}  // namespace
