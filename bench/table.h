// The table that bench_ipc prints: what is compared, and how a line of it looks.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench/daemon.h"

namespace tessel::bench {

constexpr char kEchoSocket[] = "bench_echo";
constexpr int kRounds = 15;  // all sides take turns, so that a machine that changes its speed changes all of them

inline std::vector<std::string> g_daemons;  // the programs that are compared
inline std::string g_only;
inline std::string g_mtuRequest;

inline bool IsWanted(const char* name) {
    return strstr(name, g_only.c_str()) != nullptr;
}

// A line of the table: a name, a column for each daemon, the aim.
template <typename Column>
void PrintRow(const char* name, Column column, const char* aim) {
    printf("  %-46s", name);
    for (std::size_t i = 0; i < g_daemons.size(); ++i)
        printf(" %9s", column(i).c_str());
    printf("   %s\n", aim);
}

inline std::string Text(double value, int decimals) {
    char text[32];
    snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline StartedDaemon Start(std::size_t daemon) {
    return StartDaemon(g_mtuRequest, g_daemons[daemon].c_str());
}

inline void Echo(const std::string& message) {
    (void)BareExchange(kEchoSocket, message);
}

inline void Ask(const std::string& message) {
    (void)BareExchange(TESSEL_SOCKET_API, message);
}

// Start, memory, wake-ups.
void PrintStartTimes();
void PrintIdleCosts();

// What a request costs beside others, and beside sessions.
void CompareManyClients();
void CompareUnderSessions();

}  // namespace tessel::bench
