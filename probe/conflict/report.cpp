#include "probe/conflict/report.h"

#include <cstdio>
#include <cstring>

#include "core/log.h"
#include "core/notify.h"

namespace tessel {

void FillReport(TNetConflictReport& report, const TNetdevRecord& record, const TNetIpAddr& entry) {
    memcpy(report.achDevName, record.achDevName, sizeof(report.achDevName));
    report.tAddr.wSinFamily = entry.wSinFamily;
    report.tAddr.wReserved = entry.wReserved;
    memcpy(report.tAddr.abyAddr, entry.abyAddr, sizeof(report.tAddr.abyAddr));
    memcpy(report.abyMac, record.abyMac, sizeof(report.abyMac));
}

void SendReport(const char* socketName, u32 type, const TNetConflictReport& report, CallSite where) {
    if (Notify(NoticeSocket("%s", socketName), type, report) != TESSEL_IPC_OK) {
        TESSEL_ERR_AT(where, "IpcCallbackSendAndRecv error");
    }
}

MacText::MacText(const u8* mac) {
    (void)snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

}  // namespace tessel
