// The device's own kernel module, which reports events over netlink.
#pragma once

// Body of the thread that listens to it. Ends when there is no such module: it exists only on the device.
void NetlinkInitThread(void* unused);
