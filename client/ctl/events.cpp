#include "client/ctl/events.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <span>

#include "client/ctl/addresses.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/record_text.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

ordered_json ConflictFields(std::span<const u8> payload) {
    const auto report = ReadRecord<TNetConflictReport>(payload);
    Mac mac;
    std::copy(std::begin(report.abyMac), std::end(report.abyMac), mac.begin());
    return {{"interface", TextOf(report.achDevName)},
            {"family", FamilyName(report.tAddr.wSinFamily)},
            {"address", HostText(report.tAddr)},
            {"interface_mac", MacText(mac)}};
}

std::string Word(const ordered_json& fields, const char* key) {
    return fields[key].get<std::string>();
}

std::string IpConflictText(const ordered_json& fields) {
    return Word(fields, "address") + " is used by another host (reported again every 5 s while it lasts)";
}

std::string MacConflictText(const ordered_json& fields) {
    return "its hardware address " + Word(fields, "interface_mac") + " is used by another host";
}

// Every kind of event: the record that it carries, and how it reads.
struct EventKind {
    int kind;  // enum tessel_event_kind
    std::size_t payloadBytes;
    ordered_json (*fields)(std::span<const u8> payload);
    std::string_view topic;
    std::string (*text)(const ordered_json& fields);
};

constexpr EventKind kKinds[] = {
    {TESSEL_EVENT_IP_CONFLICT, sizeof(TNetConflictReport), &ConflictFields, "conflict", &IpConflictText},
    {TESSEL_EVENT_MAC_CONFLICT, sizeof(TNetConflictReport), &ConflictFields, "conflict", &MacConflictText},
};

}  // namespace

std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time) {
    const auto* const found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                           [&](const EventKind& kind) { return kind.kind == event.kind; });
    if (found == std::end(kKinds) || event.size != found->payloadBytes) return std::nullopt;
    const ordered_json fields = found->fields({event.payload, event.size});
    ShownEvent shown;
    shown.document = {{"time", JsonTime(time)}, {"event", event.name}, {"source", source}};
    shown.document.update(fields);
    shown.line =
        fmt::format("{}  {}  {}  {}", ClockText(time), found->topic, Word(fields, "interface"), found->text(fields));
    return shown;
}

}  // namespace tessel::ctl
