#include <fmt/format.h>

#include "client/ctl/addresses.h"
#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

constexpr u8 kUnreadableFirstByte = 0x22;

// Empty: not known.
std::string WhyUnreadable(const std::string& name) {
    const auto link = FindKernelLink(name);
    if (!link) return MissingInterface(name);
    if (link->mac.empty()) return name + " has no Ethernet address";
    if (link->mac.starts_with("22:")) return "the daemon reads no address whose first byte is 22; it is " + link->mac;
    return "";
}

}  // namespace

Outcome LinkMac(const Invocation& invocation) {
    const std::string name = invocation.words.Get("IF");
    Mac mac{};
    const int error = tessel_mac_get(name.c_str(), mac.data());
    if (error != TESSEL_OK) return CallFailed("link mac " + name, error, WhyUnreadable(name));
    Outcome outcome;
    outcome.document = {{"interface", name}, {"mac", MacText(mac)}};
    outcome.table.rows.push_back({{MacText(mac)}});
    return outcome;
}

Outcome LinkSetMac(const Invocation& invocation) {
    const std::string name = invocation.words.Get("IF");
    const Mac wanted = *ParseMac(invocation.words.Get("mac"));
    const std::string asked = fmt::format("link set {} mac {}", name, MacText(wanted));
    if (CarriesSession(name) && !MayCutSession(invocation.options)) return Refused(asked, kCutsSession);
    const int error = tessel_mac_set(name.c_str(), wanted.data());
    if (error != TESSEL_OK) {
        const std::string missing = MissingInterface(name);
        return CallFailed(asked, error,
                          missing.empty() ? name + " does not take this address while it is up" : missing);
    }
    Outcome outcome;
    outcome.document = {{"interface", name}, {"mac", MacText(wanted)}};
    outcome.done = fmt::format("{}   mac {}", name, MacText(wanted));
    Mac mac{};
    const int readError = tessel_mac_get(name.c_str(), mac.data());
    if (readError == TESSEL_E_FAILED && wanted[0] == kUnreadableFirstByte) {
        outcome.notes.emplace_back("not read back: the daemon reads no address whose first byte is 22");
        return outcome;
    }
    if (readError != TESSEL_OK) return CallFailed(asked + ", read back", readError);
    if (mac != wanted) outcome.failure = NotApplied(asked, "answered success, but the address is " + MacText(mac));
    return outcome;
}

}  // namespace tessel::ctl
