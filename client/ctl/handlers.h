// One function per command. Each asks libtessel or the kernel and returns what there is to show.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

Outcome AddrShow(const Invocation& invocation);
Outcome AddrAdd(const Invocation& invocation);
Outcome AddrDel(const Invocation& invocation);
Outcome AddrSet(const Invocation& invocation);
Outcome AddrFlush(const Invocation& invocation);
Outcome LinkShow(const Invocation& invocation);
Outcome LinkMtu(const Invocation& invocation);
Outcome LinkSetMtu(const Invocation& invocation);
Outcome LinkMac(const Invocation& invocation);
Outcome LinkSetMac(const Invocation& invocation);
Outcome GatewayShow(const Invocation& invocation);
Outcome GatewaySet(const Invocation& invocation);
Outcome GatewayDel(const Invocation& invocation);
Outcome GatewayReplace(const Invocation& invocation);
Outcome PriorityShow(const Invocation& invocation);
Outcome PrioritySet(const Invocation& invocation);
Outcome RouteShow(const Invocation& invocation);
Outcome RouteAdd(const Invocation& invocation);
Outcome RouteDel(const Invocation& invocation);
Outcome RouteMetric(const Invocation& invocation);
Outcome TableAdd(const Invocation& invocation);
Outcome TableDel(const Invocation& invocation);
Outcome RuleShow(const Invocation& invocation);
Outcome RuleAdd(const Invocation& invocation);
Outcome RuleDel(const Invocation& invocation);
Outcome FirewallShow(const Invocation& invocation);
Outcome FirewallEnable(const Invocation& invocation);
Outcome FirewallDisable(const Invocation& invocation);
Outcome FirewallChainAdd(const Invocation& invocation);
Outcome FirewallAllow(const Invocation& invocation);
Outcome FirewallDeny(const Invocation& invocation);
Outcome FirewallDelete(const Invocation& invocation);
Outcome FirewallIcmp(const Invocation& invocation);
Outcome FirewallPort(const Invocation& invocation);
Outcome FirewallSave(const Invocation& invocation);
Outcome FirewallRestore(const Invocation& invocation);
Outcome FirewallExport(const Invocation& invocation);
Outcome FirewallImport(const Invocation& invocation);
Outcome ArpShow(const Invocation& invocation);
Outcome ArpAdd(const Invocation& invocation);
Outcome ArpDel(const Invocation& invocation);
Outcome ServiceStop(const Invocation& invocation);
Outcome LogLevel(const Invocation& invocation);
Outcome LogFile(const Invocation& invocation);
Outcome LogDebug(const Invocation& invocation);
Outcome LogFollow(const Invocation& invocation);
Outcome ConflictOn(const Invocation& invocation);
Outcome ConflictOff(const Invocation& invocation);
Outcome ConflictWatch(const Invocation& invocation);
Outcome CrashList(const Invocation& invocation);
Outcome CrashShow(const Invocation& invocation);
Outcome RawRequest(const Invocation& invocation);
Outcome Status(const Invocation& invocation);
Outcome HelpOn(const Invocation& invocation);
Outcome HelpOnExit(const Invocation& invocation);
Outcome HelpOnProtocol(const Invocation& invocation);

}  // namespace tessel::ctl
