#!/bin/sh
# The daemon crashes, in ways of its own making; to be sourced.
# shellcheck disable=SC2317 # called by name

# Relative to the project.
built=build/arm/tests/device
crashFile=/usr/tessel_crash.log.0

# The functions in the trace of method $1, from the one that crashed.
FunctionsOf() {
    sed -n "/Call Trace($1)/,/^\$/s/^<\(.*\)> (<\(.*\)> + 0x.*/\1 \2/p" "$crashFile" | sed -n '/libdevice_crash/,$p' |
        sed 's/.*libdevice_crash.so /crash:/; s/.*tessel_daemon /daemon:/; s/.*libc.so.6 .*/libc/'
}

# True when the words $2... follow one another in the text $1.
HasInOrder() {
    text=$1
    shift
    for word; do
        case $text in *"$word"*) ;; *)
            printf '%s is not where it belongs in\n%s\n' "$word" "$text"
            return 1
            ;;
        esac
        text=${text#*"$word"}
    done
}

# The stripped daemon, in its main thread.
CrashOfTheRelease() {
    killall -9 tessel_daemon
    Eventually 30 Fails pidof tessel_daemon
    # An ioctl that crashes while /tmp/crash exists.
    LD_PRELOAD=$PWD/$built/libdevice_crash.so tessel_daemon </dev/null >/dev/null 2>&1
    Eventually 30 tesselctl link mtu eth0
    # So that the kernel tells which signal ended a process.
    echo 1 >/proc/sys/kernel/print-fatal-signals
    dmesg -c >/dev/null
    : >/tmp/crash
    daemon=$(pidof tessel_daemon)
    mapped=$(cut -d ' ' -f 1 "/proc/$daemon/maps" | head -n 1)
    Fails tesselctl link mtu eth0
    Eventually 30 Fails pidof tessel_daemon
    Same "$(dmesg | sed -n 's/.*unexpected fatal signal //p')" 11.
    HasInOrder "$(cat "$crashFile")" 'Exception Occur' 'Version: 1.0.2.4a14bb47' "Thread id: $daemon" \
        'Thread name:tessel_daemon' 'Signal num: 11' "Exception time: $(date +%Y-%m-%d)" 'CPU registers' 'PC:0x' 'R4:' \
        'Call Trace(extbl)' 'Call Trace(unwind)' "Process [$daemon] Maps" "$mapped" '[stack]'
    for method in extbl unwind; do
        HasInOrder "$(FunctionsOf "$method")" crash:ioctl "daemon:
daemon:
daemon:" libc
    done
    # The unstripped file has the same addresses.
    HasInOrder "$(tesselctl crash show --symbols build/arm/symbols)" ioctl 'ApidMtuGet(' 'TesselDaemonMain()'
    Same "$(tesselctl -g signal crash list)" 11
}
