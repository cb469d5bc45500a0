/* Loaded in front of the C library, makes the daemon crash in the middle of its work: whoever asks for an interface
 * while /tmp/crash exists writes to address 0. */
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (access("/tmp/crash", F_OK) == 0) *(volatile int*)0 = 1;
    return (int)syscall(SYS_ioctl, fd, request, argument);
}
