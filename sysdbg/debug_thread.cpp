#include "sysdbg/debug_thread.h"

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "sysdbg/file.h"
#include "sysdbg/format.h"

namespace sysdbg {

namespace {

constexpr int kOwnerOnly = 0600;
constexpr long kRequestType = 1;

struct Request {
    long type;
    void (*function)();
};
constexpr std::size_t kRequestBytes = sizeof(Request::function);

// A hash (FNV-1a) of the name of the process group's leader: every start of a program finds the same queue, instead of
// leaving one more behind.
key_t QueueKey() {
    char path[64];
    FormatText(path, sizeof(path), "/proc/%d/stat", getpgrp());
    const File file(path, O_RDONLY);
    char stat[256];
    stat[file.Read(stat, sizeof(stat) - 1)] = '\0';
    std::uint32_t hash = 2166136261;
    for (const char* c = NameInStat(stat); *c != '\0'; ++c)
        hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619;
    return static_cast<key_t>(hash | 1);  // 0 (IPC_PRIVATE) would be a new queue each time
}

// -1 when there is none, or when it is somebody else's or others may use it.
int OpenQueue() {
    const int queue = msgget(QueueKey(), IPC_CREAT | kOwnerOnly);
    msqid_ds state{};
    if (queue < 0 || msgctl(queue, IPC_STAT, &state) != 0) return -1;
    const ipc_perm& owner = state.msg_perm;
    const bool isPrivate = owner.uid == geteuid() && owner.cuid == geteuid() && (owner.mode & 077) == 0;
    return isPrivate ? queue : -1;
}

struct DebugThread {
    int queue;
    sem_t isReady;  // posted when only the wait for requests is left
};

void Drain(int queue) {
    Request request{};
    while (msgrcv(queue, &request, kRequestBytes, 0, IPC_NOWAIT | MSG_NOERROR) >= 0) {
    }
}

void* Serve(void* argument) {
    auto* const self = static_cast<DebugThread*>(argument);
    const int queue = self->queue;
    sem_post(&self->isReady);
    while (true) {
        Request request{};
        const ssize_t count = msgrcv(queue, &request, kRequestBytes, kRequestType, 0);
        if (count < 0 && errno == EINTR) continue;
        if (count != static_cast<ssize_t>(kRequestBytes)) {
            puts("in debug thread loop,msgrcv is -1");
            return nullptr;  // the queue was removed: another try would fail as fast
        }
        puts("\nrun function start======>");
        request.function();
        puts("run function end======<");
    }
}

}  // namespace

void StartDebugThread() {
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static bool isStarted = false;
    static DebugThread self;
    pthread_mutex_lock(&mutex);
    if (!isStarted) {
        self.queue = OpenQueue();
        Drain(self.queue);
        sem_init(&self.isReady, 0, 0);
        pthread_t thread{};
        isStarted = self.queue >= 0 && pthread_create(&thread, nullptr, &Serve, &self) == 0;
        if (isStarted) {
            pthread_detach(thread);
            // A thread that is starting holds locks of the C library. If the program forks then, they stay locked in
            // its child for ever, whose own threads hang.
            while (sem_wait(&self.isReady) != 0) {
            }
        }
    }
    pthread_mutex_unlock(&mutex);
}

bool SendToDebugThread(void (*function)()) {
    const Request request{.type = kRequestType, .function = function};
    const int queue = OpenQueue();
    if (queue < 0 || msgsnd(queue, &request, kRequestBytes, IPC_NOWAIT) != 0) return false;
    printf("Send message success , addr is : %p\n", reinterpret_cast<void*>(function));
    return true;
}

}  // namespace sysdbg
