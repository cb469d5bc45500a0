/* Every header that applications include, in C11. */
#include "client/libtessel.h"
#include "tessel/address.h"
#include "tessel/bond.h"
#include "tessel/command.h"
#include "tessel/conflict.h"
#include "tessel/firewall.h"
#include "tessel/gateway.h"
#include "tessel/ipc.h"
#include "tessel/log.h"
#include "tessel/mtu.h"
#include "tessel/ntp.h"
#include "tessel/ping.h"
#include "tessel/pppoe.h"
#include "tessel/priority.h"
#include "tessel/route.h"
#include "tessel/router.h"
#include "tessel/service.h"
#include "tessel/traceroute.h"
#include "tessel/web.h"

uint32_t FirstCommand(void);

uint32_t FirstCommand(void) {
    const IpcMsgHead head = {.type = TESSEL_CMD_IPADDR_ADD, .size = TESSEL_PAYLOAD_MAX, .flag = 0};
    return head.type;
}
