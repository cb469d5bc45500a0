#include "probe/conflict_report.h"

#include <cstring>

#include "core/ipc.h"
#include "core/log.h"

namespace tessel {

void FillReport(TNetConflictReport& report, const TNetdevRecord& record, const TNetIpAddr& entry) {
    memcpy(report.achDevName, record.achDevName, sizeof(report.achDevName));
    report.tAddr.wSinFamily = entry.wSinFamily;
    report.tAddr.wReserved = entry.wReserved;
    memcpy(report.tAddr.abyAddr, entry.abyAddr, sizeof(report.tAddr.abyAddr));
    memcpy(report.abyMac, record.abyMac, sizeof(report.abyMac));
}

void SendReport(const char* socketName, u32 type, const TNetConflictReport& report, CallSite where) {
    if (IpcCallbackSendAndRecv(socketName, type, &report, sizeof(report), nullptr, 0) != 0) {
        TESSEL_ERR_AT(where, "IpcCallbackSendAndRecv error");
    }
}

}  // namespace tessel
