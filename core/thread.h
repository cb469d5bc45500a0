// Threads: named, with signals left to the main thread, with a raised priority.
//
// Nothing is ever cancelled. Threads that are stopped are Workers (core/worker.h); those that live as long as the
// daemon are detached from the start.
#pragma once

#include <pthread.h>

#include "core/types.h"

using ThreadFunction = void (*)(void* arg);

// What every worker of the daemon is started with.
constexpr u32 kThreadStackBytes = 0x200000;
constexpr i32 kThreadPolicy = 0;
constexpr i32 kThreadPriorityStep = 5;

// Starts a joinable thread that runs fn(arg). `name` outlives the thread (callers pass literals); the kernel keeps its
// first 15 characters. Unless `policy` is SCHED_RR the thread's nice value is lowered by `prio`; with SCHED_RR its
// real-time priority is. Returns the thread, or 0 with a log line.
pthread_t ThreadSpawn(const char* name, ThreadFunction fn, void* arg, u32 stackSize, i32 policy, i32 prio);

// The same, detached from the start: the returned id only says that it was started.
pthread_t ThreadSpawnDeatched(const char* name, ThreadFunction fn, void* arg, u32 stackSize, i32 policy, i32 prio);

void ThreadYield();
// The thread's exit value; PTHREAD_CANCELED when it was cancelled.
void* ThreadJoin(pthread_t thread);
// 0 or -1.
i32 ThreadCancel(pthread_t thread);
i32 ThreadDetach(pthread_t thread);
[[noreturn]] void ThreadExit(void* value);
