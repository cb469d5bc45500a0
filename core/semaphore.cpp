#include "core/semaphore.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>
#include <ctime>

#include "core/log.h"
#include "core/wait.h"

namespace {

// semctl(2): the caller declares it.
union SemaphoreArgument {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

i32 Report(bool succeeded, const char* failure, int semid, tessel::CallSite where = tessel::CallSite::Current()) {
    if (succeeded) return 0;
    TESSEL_ERR_AT(where, "%s", failure);
    TESSEL_ERR_AT(where, "sem_id:%d", semid);
    return -1;
}

bool Operate(int semid, short step) {
    sembuf operation{.sem_num = 0, .sem_op = step, .sem_flg = SEM_UNDO};
    return semop(semid, &operation, 1) != -1;
}

}  // namespace

i32 set_semvalue(int semid) {
    constexpr SemaphoreArgument kOne{.val = 1};
    return Report(semctl(semid, 0, SETVAL, kOne) != -1, "set_semvalue error", semid);
}

i32 del_semvalue(int semid) {
    return Report(semctl(semid, 0, IPC_RMID) != -1, "del_semvalue error", semid);
}

i32 semaphore_p(int semid) {
    return Report(Operate(semid, -1), "semaphore_p error", semid);
}

i32 semaphore_p_within(int semid, std::chrono::milliseconds time) {
    const tessel::Deadline deadline(time);
    sembuf take{.sem_num = 0, .sem_op = -1, .sem_flg = SEM_UNDO};
    int result = 0;
    do {
        const int leftMs = deadline.LeftMs();
        const timespec left{.tv_sec = leftMs / 1000, .tv_nsec = (leftMs % 1000) * 1000000L};
        result = semtimedop(semid, &take, 1, &left);
    } while (result != 0 && errno == EINTR);
    return Report(result == 0, "semaphore_p error", semid);
}

i32 semaphore_v(int semid) {
    return Report(Operate(semid, 1), "semaphore_v error", semid);
}
