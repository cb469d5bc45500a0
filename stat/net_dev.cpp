#include "stat/net_dev.h"

#include <cstdlib>
#include <cstring>

#include "core/netif.h"

namespace tessel {

namespace {

constexpr int kLineBytes = 512;
constexpr std::size_t kNameMax = 15;
constexpr std::size_t kComparedBytes = 4;

// The columns after the colon in which bytes are counted; -1: they are not.
struct Format {
    int received;
    int sent;
};

Format FormatOf(const char* header) {
    // After the received bytes: packets, errs, drop, fifo, frame, and in the newest form compressed and multicast.
    if (strstr(header, "compressed") != nullptr) return {.received = 0, .sent = 8};
    if (strstr(header, "bytes") != nullptr) return {.received = 0, .sent = 6};
    return {.received = -1, .sent = -1};
}

u64 Column(const char* columns, int wanted) {
    if (wanted < 0) return 0;
    for (int column = 0;; ++column) {
        char* end = nullptr;
        const u64 value = strtoull(columns, &end, 10);
        if (end == columns) return 0;
        if (column == wanted) return value;
        columns = end;
    }
}

void TakeLine(const char* line, const Format& format, CounterSample& sample) {
    const char* const name = line + strspn(line, " ");
    const char* const colon = strchr(name, ':');
    if (colon == nullptr || static_cast<std::size_t>(colon - name) > kNameMax || strncmp(name, "lo", 2) == 0) return;
    for (i32 index = 0; index < TESSEL_TRAFFIC_INTERFACES; ++index) {
        char wanted[16] = {};
        (void)interface_name(index, wanted, sizeof(wanted));
        if (strncmp(name, wanted, kComparedBytes) != 0) continue;
        sample.interfaces[index] = {
            .received = Column(colon + 1, format.received), .sent = Column(colon + 1, format.sent), .isThere = true};
    }
}

}  // namespace

CounterSample ReadCounters(std::FILE* file) {
    CounterSample sample{};
    char line[kLineBytes];
    if (fgets(line, sizeof(line), file) == nullptr || fgets(line, sizeof(line), file) == nullptr) return sample;
    const Format format = FormatOf(line);
    while (fgets(line, sizeof(line), file) != nullptr)
        TakeLine(line, format, sample);
    return sample;
}

}  // namespace tessel
