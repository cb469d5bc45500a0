/* Every header that applications include, in C11. */
#include "client/libtessel.h"

uint32_t FirstCommand(void);

uint32_t FirstCommand(void) {
    const IpcMsgHead head = {.type = TESSEL_CMD_IPADDR_ADD, .size = TESSEL_PAYLOAD_MAX, .flag = 0};
    return head.type;
}
