/* Prints the events that come under a name until it is ended: device_listen NAME. A line has the event's name and its
 * payload in hexadecimal digits. */
#include <stdio.h>

#include "client/libtessel.h"

int main(int count, char** words) {
    tessel_listener* listener = NULL;
    if (count != 2 || tessel_listener_open(words[1], 0, &listener) != TESSEL_OK) return 1;
    for (tessel_event event; tessel_listener_next(listener, &event, -1) == TESSEL_OK;) {
        printf("%s ", event.name);
        for (uint32_t i = 0; i < event.size; ++i)
            printf("%02x", event.payload[i]);
        puts("");
        fflush(stdout);
    }
    return 1;
}
