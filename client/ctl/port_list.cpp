#include "client/ctl/port_list.h"

#include <algorithm>

#include "client/ctl/values.h"

namespace tessel::ctl {

namespace {

constexpr u32 kPortMax = 65535;

// Decimal: the tools take a leading 0 for an octal number.
std::optional<u32> ParsePort(std::string_view text) {
    const bool isPlain = !text.empty() && (text[0] != '0' || text.size() == 1);
    const auto port = isPlain ? ParseNumber(text) : std::nullopt;
    return port && *port <= kPortMax ? port : std::nullopt;
}

}  // namespace

std::optional<PortList> ParsePorts(std::string_view text) {
    PortList ports;
    for (bool isLast = false; !isLast;) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const std::string_view item = text.substr(0, comma);
        isLast = comma == text.size();
        text.remove_prefix(isLast ? comma : comma + 1);
        const std::size_t colon = item.find(':');
        const bool isRange = colon != std::string_view::npos;
        const std::string_view firstText = item.substr(0, colon);
        const std::string_view lastText = isRange ? item.substr(colon + 1) : firstText;
        const auto first = isRange && firstText.empty() ? 0 : ParsePort(firstText);
        const auto last = isRange && lastText.empty() ? kPortMax : ParsePort(lastText);
        if (!first || !last || *first > *last) return std::nullopt;
        ports.emplace_back(*first, *last);
    }
    if (ports.size() == 1 && ports[0] == std::pair(0U, kPortMax)) ports.clear();
    return ports;
}

bool HasPort(const PortList& ports, u32 port) {
    return ports.empty() || std::any_of(ports.begin(), ports.end(),
                                        [&](const auto& range) { return range.first <= port && port <= range.second; });
}

}  // namespace tessel::ctl
