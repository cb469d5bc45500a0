#include "client/ctl/firewall_readback.h"

#include "client/ctl/kernel.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

std::string FirstFault(const std::vector<Filter>& filters, const FindFault& find) {
    for (const Filter& filter : filters) {
        if (!filter.problem.empty()) continue;
        std::string fault = find(filter);
        if (!fault.empty()) return fault;
    }
    return "";
}

}  // namespace

Outcome ReadBack(const std::string& asked, int error, const Options& options, const FindFault& fault,
                 const FindFault& cause) {
    const bool isAnswered = error == TESSEL_OK || error == TESSEL_E_FAILED;
    const std::string foreign = isAnswered ? ForeignKernel() : "";
    const auto filters = isAnswered && foreign.empty() ? ReadFilters(options) : std::vector<Filter>();
    if (error != TESSEL_OK) return CallFailed(asked, error, FirstFault(filters, cause));
    const std::string found = FirstFault(filters, fault);
    if (!found.empty()) return NotApplied(asked, "answered success, but " + found);
    Outcome outcome;
    if (!foreign.empty()) outcome.notes.push_back("not read back: " + foreign);
    for (const Filter& filter : filters) {
        if (!filter.problem.empty()) outcome.notes.push_back("not read back: " + filter.problem);
    }
    outcome.document = {{"done", asked},
                        {"family", FamilyName(static_cast<u32>(FamilyOf(options)))},
                        {"read_back", outcome.notes.empty()}};
    outcome.done = asked + "   done";
    return outcome;
}

int ProtocolsOf(const Options& options) {
    switch (FamilyOf(options)) {
        case TESSEL_FAMILY_INET:
            return TESSEL_PROTOCOL_IPV4;
        case TESSEL_FAMILY_INET6:
            return TESSEL_PROTOCOL_IPV6;
        default:
            return TESSEL_PROTOCOL_BOTH;
    }
}

}  // namespace tessel::ctl
