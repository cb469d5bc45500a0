#include "client/ctl/events.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "client/ctl/records.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

std::string TextOf(const ordered_json& fields, const char* key) {
    return fields[key].is_string() ? fields[key].get<std::string>() : "-";
}

std::string IpConflictText(const ordered_json& fields) {
    return TextOf(fields, "address") + " is used by another host (reported again every 5 s while it lasts)";
}

std::string MacConflictText(const ordered_json& fields) {
    return "its hardware address " + TextOf(fields, "interface_mac") + " is used by another host";
}

std::string LeaseText(const ordered_json& fields) {
    ordered_json lease = fields;
    lease.erase("interface");
    return "lease   " + DescriptionText(lease);
}

std::string FailedText(const ordered_json& /*fields*/) {
    return "no lease, or it was refused";
}

std::string GoneText(const ordered_json& /*fields*/) {
    return "the lease has gone";
}

// Every kind of event: the record that it carries, and how it reads.
struct EventKind {
    int kind;  // enum tessel_event_kind
    Record record;
    std::string_view topic;
    std::string (*text)(const ordered_json& fields);
};

constexpr EventKind kKinds[] = {
    {TESSEL_EVENT_IP_CONFLICT, kConflictReport, "conflict", &IpConflictText},
    {TESSEL_EVENT_MAC_CONFLICT, kConflictReport, "conflict", &MacConflictText},
    {TESSEL_EVENT_DHCP_LEASE, kLease, "dhcp", &LeaseText},
    {TESSEL_EVENT_DHCP_FAILED, kLease, "dhcp", &FailedText},
    {TESSEL_EVENT_DHCP_DECONFIGURED, kLease, "dhcp", &GoneText},
    {TESSEL_EVENT_TRAFFIC, kBandwidthReport, "traffic", &DescriptionText},
};

}  // namespace

std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time) {
    const auto* const found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                           [&](const EventKind& kind) { return kind.kind == event.kind; });
    if (found == std::end(kKinds) || event.size != found->record.bytes) return std::nullopt;
    const ordered_json fields = Decode(found->record, {event.payload, event.size});
    ShownEvent shown;
    shown.document = {{"time", JsonTime(time)}, {"event", event.name}, {"source", source}};
    shown.document.update(fields);
    const std::string owner = fields.contains("interface") ? TextOf(fields, "interface") + "  " : "";
    shown.line = fmt::format("{}  {}  {}{}", ClockText(time), found->topic, owner, found->text(fields));
    return shown;
}

}  // namespace tessel::ctl
