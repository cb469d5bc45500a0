// What a soak does to the daemon: clients with requests of every kind, and listeners.
#pragma once

#include <atomic>

namespace tessel::bench {

struct Counts {
    std::atomic<long> requests{0}, hostile{0};
    std::atomic<long> results[10]{};  // by -TESSEL_E_...
    std::atomic<long> events{0}, deadListeners{0};
};
extern Counts g_counts;

constexpr int kClients = 8;

// The client of that number, from 0: reads, changes, undoes, and one time in four is hostile, until it is over.
void BeClient(int client, const std::atomic<bool>& isOver);

// Listens, each time for a while in a process of its own, which is killed: its socket file stays. Some do not read.
void Listen(unsigned seed, const std::atomic<bool>& isOver);

// Ends every session and takes back every change of every client, while no tool fails.
void UndoEverything();

}  // namespace tessel::bench
