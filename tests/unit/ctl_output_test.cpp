#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "client/ctl/events.h"
#include "client/ctl/failure.h"
#include "client/ctl/output.h"
#include "client/libtessel.h"
#include "tessel/dhcp.h"
#include "tessel/traffic.h"
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
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"pid"}, "7\n"},
        {{"note"}, "\n"},
        {{"interface", "up"}, "a\ttrue\nb\tfalse\n"},
        {{"interface", "address"}, "a\t1.2.3.4\na\t::1\nb\t\n"},
        {{"pid", "address"}, "7\t1.2.3.4\n7\t::1\n7\t\n"},
    };
    for (const auto& [fields, expected] : cases)
        EXPECT_EQ(RenderFields(kDocument, fields), expected) << fields[0];
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

TEST(Events, AreDecodedByTheirRecords) {
    const auto shown = [](int kind, const auto& record) {
        tessel_event event{.kind = kind, .name = "x", .type = 0, .size = sizeof(record), .payload = {}};
        memcpy(event.payload, &record, sizeof(record));
        const std::string text = ShowEvent(event, "s", {})->document.dump();
        return text.substr(text.find(",\"interface"));
    };
    EXPECT_EQ(
        shown(TESSEL_EVENT_DHCP_LEASE,
              TNetDhcpcLease{"eth0", {2, 0, {10, 0, 0, 7}}, {0, 0, {10, 0, 0, 1}}, 24, 9, 1, {{0, 0, {10, 0, 0, 2}}}}),
        R"(,"interface":"eth0","family":"inet","address":"10.0.0.7","prefix_length":24,"gateway":"10.0.0.1",)"
        R"("lease_s":9,"dns":["10.0.0.2"]})");
    EXPECT_EQ(shown(TESSEL_EVENT_TRAFFIC, TNetBandwidthReport{{{8, 16, 1, 0}}}).substr(0, 79),
              R"(,"interfaces":[{"interface":"eth0","send_bps":8,"receive_bps":16,"valid":true},)");
}

TEST(Failure, EveryErrorHasItsExitAndItsWord) {
    constexpr std::tuple<int, Exit, const char*> kCases[] = {
        {TESSEL_E_FAILED, kExitFailed, "failed"},     {TESSEL_E_NOT_RUNNING, kExitNotRunning, "not_running"},
        {TESSEL_E_TIMEOUT, kExitTimeout, "timeout"},  {TESSEL_E_NO_REPLY, kExitFailed, "no_reply"},
        {TESSEL_E_PROTOCOL, kExitFailed, "protocol"}, {TESSEL_E_ARGUMENT, kExitRefused, "refused"},
        {TESSEL_E_SYSTEM, kExitFailed, "system"},     {TESSEL_E_IN_USE, kExitFailed, "system"},
    };
    for (const auto& [error, exit, word] : kCases) {
        const Failure failure = CallFailed("link mtu \"x\"", error);
        EXPECT_EQ(failure.exit, exit) << error;
        EXPECT_EQ(ordered_json::parse(RenderFailure(failure, true)),
                  (ordered_json{{"error", word}, {"message", failure.message}, {"exit", static_cast<int>(exit)}}));
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
