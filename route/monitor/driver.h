// The device's own kernel module, which reports events over netlink.
#pragma once

// Body of the thread that listens to it. Ends when there is no such module: it exists on the device alone.
void NetlinkInitThread(void* unused);
