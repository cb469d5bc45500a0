#include "firewall/port_filter.h"

#include <cstring>
#include <optional>
#include <span>

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "firewall/rule.h"

using tessel::CommandLine;
using tessel::FindRow;
using tessel::LogRule;
using tessel::Rule;

namespace {

// What entries match: protocol, multiport option, port option, ports.
constexpr char kPorts[] = " %s %s %s %s";

struct Program {
    char name[10];
    const char* logPrefix;
    bool endsAtPresentRule;
};

constexpr Program kPrograms[] = {
    {"iptables", "--log-prefix \"***PORTFILTER***\"", false},
    // A rule that already exists ends the whole command: an entry for both transports whose TCP rule exists gets no UDP
    // rule. Clients know it that way.
    {"ip6tables", "--log-prefix \"***PORTFILTERV6***\"", true},
};

struct Transport {
    char option[7];
    const char* logFailure;
};

constexpr char kLogFailure[] = "ExecCmd error!port filter rule log record add fail!";

constexpr Transport kTcp[] = {{"-p tcp", kLogFailure}};
constexpr Transport kUdp[] = {{"-p udp", kLogFailure}};
constexpr Transport kBoth[] = {
    {"-p tcp", "ExecCmd error!tcp port filter rule log record add fail!"},
    {"-p udp", "ExecCmd error! udp port filter rule log record add fail!"},
};

struct Action {
    char chain[7];
    char target[7];
};

constexpr char kOperations[][3] = {"-A", "-D"};             // by TESSEL_PORT_ADD ...
constexpr char kPortOptions[][8] = {"--sport", "--dport"};  // by TESSEL_PORT_SOURCE ...
constexpr Action kActions[] = {{"INPUT", "RETURN"}, {"INPUT", "DROP"}, {"OUTPUT", "RETURN"}, {"OUTPUT", "DROP"}};

std::span<const Transport> TransportsOf(u32 protocol) {
    if (protocol == TESSEL_PORT_TCP) return kTcp;
    if (protocol == TESSEL_PORT_UDP) return kUdp;
    return kBoth;
}

}  // namespace

i32 PortFilterManage(u32 operation, const TNetPortFilter& entry) {
    const auto programs = tessel::RowsOf(kPrograms, entry.eInet);
    if (programs.empty()) TESSEL_ERR("eInet %d is not support", static_cast<i32>(entry.eInet));
    const auto* operationWord = FindRow(kOperations, operation);
    if (operationWord == nullptr) {
        TESSEL_ERR("eCmd %d is invalid", static_cast<i32>(operation));
        return -1;
    }
    const auto* portOption = FindRow(kPortOptions, entry.ePortType);
    const Action* action = FindRow(kActions, entry.eAction);
    if (portOption == nullptr || action == nullptr) {
        TESSEL_ERR("ePortType %d is not support", static_cast<i32>(entry.ePortType));
        return -1;
    }
    const tessel::FieldText ports(entry.achPorts);
    if (!tessel::IsLineWord(ports.Get())) return -1;
    const char* multiport = strchr(ports.Get(), ',') != nullptr ? "-m multiport" : "";

    i32 result = programs.empty() ? -1 : 0;
    for (const Program& program : programs) {
        for (const Transport& transport : TransportsOf(entry.eProtocol)) {
            CommandLine match;
            if (!tessel::ComposeCommand(match, kPorts, transport.option, multiport, *portOption, ports.Get()))
                return -1;
            const Rule rule{program.name, *operationWord, action->chain, match.text, action->target};
            const LogRule log{program.logPrefix, transport.logFailure};
            const std::optional<i32> ran = tessel::RunRule(rule, "ExecCmd error! but not care this!", &log);
            if (!ran.has_value() && program.endsAtPresentRule) return result;
            result = ran.value_or(result);
        }
    }
    return result;
}
