#include "services/ntp_client.h"

#include <poll.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <new>

#include "core/log.h"
#include "core/semaphore.h"
#include "services/ntp_query.h"
#include "services/ntp_worker.h"

using tessel::CallSite;
using tessel::Wait;

TNtpcInfo* g_ptDaeNtpcInfo = nullptr;

namespace {

constexpr std::chrono::seconds kSecond(1);

std::unique_ptr<TNtpcInfo> MakeRecord(u16 family) {
    std::unique_ptr<TNtpcInfo> info(new (std::nothrow) TNtpcInfo);
    if (info != nullptr) info->wSinFamily = family;
    return info;
}

// -1, with a log line, when none can be made.
int MakeStartSemaphore() {
    constexpr key_t kKey = 7783;
    const int semaphore = semget(kKey, 1, 0666 | IPC_CREAT);
    if (semaphore == -1) {
        TESSEL_PERROR("semget error");
    } else {
        (void)set_semvalue(semaphore);  // where that fails, a start does
    }
    return semaphore;
}

bool TakeStartSemaphore(const TNtpcInfo& info) {
    return semaphore_p_within(info.startSemaphore, tessel::g_ntpTimes.handshake) == 0;
}

// Null, with a log line, when there is none or it runs.
TNtpcInfo* IdleRecord(u16 family, CallSite where) {
    TNtpcInfo* const info = DaeFamilyMapNtpcInfo(family);
    if (info == nullptr) {
        TESSEL_ERR_AT(where, "DaeFamilyMapNtpcInfo error!");
        return nullptr;
    }
    if (info->isRunning == 0) return info;
    TESSEL_ERR_AT(where, "ntpc has been startted!");
    return nullptr;
}

// The flag is not left to the worker: a second start may come before the worker has had its turn.
bool StartWorker(TNtpcInfo& info, const TNetGateway& server, u32 interval, const char* name,
                 tessel::Worker::Body body) {
    info.tServer = server;
    info.dwSyncTimeInterval = interval;
    info.isRunning = 1;
    if (info.worker.Start(name, body, &info)) return true;
    info.isRunning = 0;
    return false;
}

void ClearRecord(TNtpcInfo& info) {
    info.tNtpcThreadID = 0;  // also that of a worker that ended without a socket
    info.dwSyncTimeInterval = 0;
    info.tServer = {};
}

// Joins the worker, whatever it does.
void EndWorker(TNtpcInfo& info) {
    info.isRunning = 0;
    info.worker.End();
    ClearRecord(info);
}

i32 StartNtpcV4(const TNetGateway& server, u32 interval) {
    TNtpcInfo* const info = IdleRecord(TESSEL_FAMILY_INET, CallSite::Current());
    if (info == nullptr) return -1;
    // Any process may hold the semaphore.
    if (!TakeStartSemaphore(*info)) {
        TESSEL_ERR("create ntp thread failed!");
        return -1;
    }
    if (!StartWorker(*info, server, interval, "TesselSysNtpcThread", &NtpcThread)) {
        TESSEL_ERR("create ntpc thread failed!");
        (void)semaphore_v(info->startSemaphore);
        return -1;
    }
    if (!TakeStartSemaphore(*info)) {
        TESSEL_ERR("create ntp thread failed!");
        EndWorker(*info);
        return -1;
    }
    (void)semaphore_v(info->startSemaphore);
    return 0;
}

i32 StartNtpcV6(const TNetGateway& server, u32 interval) {
    TNtpcInfo* const info = IdleRecord(TESSEL_FAMILY_INET6, CallSite::Current());
    if (info == nullptr) return -1;
    if (StartWorker(*info, server, interval, "TesselSysNtpcThreadV6", &NtpcThreadV6)) return 0;
    TESSEL_ERR("create ntpc thread failed!");
    return -1;
}

i32 Check(const TNetGateway& server, i32 (*connect)(int, const TNetGateway&, u16), const char* waitError,
          CallSite where) {
    const tessel::UniqueFd socket = CreateSocket(server.wSinFamily);
    if (!socket.IsOpen()) {
        TESSEL_ERR_AT(where, "create_socket error");
        return -1;
    }
    if (connect(socket.Get(), server, tessel::kNtpPort) != 0) return -1;
    (void)SendPacket(socket.Get());  // what was not sent is not answered either
    const Wait wait = WaitReady(socket.Get(), POLLIN, tessel::Deadline(tessel::g_ntpTimes.check));
    if (wait == Wait::kTimeout) {
        TESSEL_ERR_AT(where, "Waiting for the server response timeout , retransmission request");
        return -1;
    }
    if (wait != Wait::kReady) {
        TESSEL_ERR_AT(where, "%s", waitError);
        return -1;
    }
    tessel::NtpQueryResult answer;
    if (GetServerTime(socket.Get(), answer) == 1) return 0;
    TESSEL_ERR_AT(where, "get server time failed");
    return -1;
}

i32 CheckNtpcV4(const TNetGateway& server) {
    return Check(server, &ConnServer, "epoll error", CallSite::Current());
}

i32 CheckNtpcV6(const TNetGateway& server) {
    return Check(server, &ConnServer6, "select error", CallSite::Current());
}

}  // namespace

i32 DaemonNtpcInit() {
    std::unique_ptr<TNtpcInfo> first = MakeRecord(TESSEL_FAMILY_INET);
    std::unique_ptr<TNtpcInfo> second = MakeRecord(TESSEL_FAMILY_INET6);
    if (first == nullptr || second == nullptr) {
        TESSEL_PERROR("malloc error");
        return -1;
    }
    first->startSemaphore = MakeStartSemaphore();
    first->next = second.release();
    g_ptDaeNtpcInfo = first.release();
    return 0;
}

TNtpcInfo* DaeFamilyMapNtpcInfo(u16 family) {
    if (g_ptDaeNtpcInfo == nullptr) {
        TESSEL_ERR("the tessel is not init!");
        return nullptr;
    }
    for (TNtpcInfo* info = g_ptDaeNtpcInfo; info != nullptr; info = info->next) {
        if (info->wSinFamily == family) return info;
    }
    TESSEL_ERR("the sinfamily %d is invalid!", family);
    return nullptr;
}

i32 NtpcStart(const TNetGateway& server, u32 interval) {
    if (server.wSinFamily == TESSEL_FAMILY_INET) return StartNtpcV4(server, interval);
    if (server.wSinFamily == TESSEL_FAMILY_INET6) return StartNtpcV6(server, interval);
    TESSEL_ERR("the wSinFamily %d is invalid!", server.wSinFamily);
    return -1;
}

i32 NtpcStop(u16 family) {
    TNtpcInfo* const info = DaeFamilyMapNtpcInfo(family);
    if (info == nullptr) {
        TESSEL_ERR("DaeFamilyMapNtpcInfo error!");
        return -1;
    }
    if (info->isRunning.exchange(0) == 0) {
        TESSEL_PRT("the %lu ntp has been stopped!", info->tNtpcThreadID.load());
        return 0;
    }
    for (int secondsLeft = 10;; --secondsLeft) {
        const pthread_t thread = info->tNtpcThreadID;  // read once: the worker clears it
        if (thread == 0) break;
        // The handle of a worker that is not joined yet is valid, even if the worker has ended.
        if (!info->worker.IsRunning() || pthread_kill(thread, SIGUSR1) == ESRCH) {
            TESSEL_PRT("thread %lu, no such thread.", thread);
            break;
        }
        TESSEL_PRT("send SIGUSR1 to wake up thread %lu success. nWaitTime = %d", thread, secondsLeft);
        if (secondsLeft < 0) {
            TESSEL_ERR("thread can't exit normal,so kill it %lu", thread);
            break;
        }
        TESSEL_PRT("wait %lu exit, sleep a while", thread);
        info->worker.AskToEnd();
        (void)info->worker.AwaitEnd(kSecond);
        TESSEL_PRT("ptNtpcInfo->tNtpcThreadID = %lu", info->tNtpcThreadID.load());
    }
    EndWorker(*info);
    return 0;
}

i32 NtpcCheck(const TNetGateway& server) {
    if (server.wSinFamily == TESSEL_FAMILY_INET) return CheckNtpcV4(server);
    if (server.wSinFamily == TESSEL_FAMILY_INET6) return CheckNtpcV6(server);
    TESSEL_ERR("the wSinFamily %d is invalid!", server.wSinFamily);
    return -1;
}
