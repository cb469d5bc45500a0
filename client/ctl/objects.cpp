// Everything that the tool can do. A new object is a file with its rows, a line here and one in CMakeLists.txt.
#include "client/ctl/command.h"

namespace tessel::ctl {

// Each is defined in the file of its name.
extern const Object kStatusObject, kAddr, kLink, kGateway, kPriority, kRoute, kTable, kRule, kDhcp, kDhcpd, kNtp,
    kPppoe, kBond, kWeb, kFirewall, kArp, kConflict, kPing, kTraceroute, kRa, kTraffic, kWhy, kMonitor, kWait, kExport,
    kDiff, kApply, kTry, kTrace, kService, kLog, kCrash, kRaw, kHelp;

namespace {

constexpr std::array kObjects = {&kStatusObject, &kAddr,    &kLink,     &kGateway, &kPriority,   &kRoute, &kTable,
                                 &kRule,         &kDhcp,    &kDhcpd,    &kNtp,     &kPppoe,      &kBond,  &kWeb,
                                 &kFirewall,     &kArp,     &kConflict, &kPing,    &kTraceroute, &kRa,    &kTraffic,
                                 &kWhy,          &kMonitor, &kWait,     &kExport,  &kDiff,       &kApply, &kTry,
                                 &kTrace,        &kService, &kLog,      &kCrash,   &kRaw,        &kHelp};

}  // namespace

std::span<const Object* const> Objects() {
    return kObjects;
}

}  // namespace tessel::ctl
