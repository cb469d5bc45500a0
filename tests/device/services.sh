#!/bin/sh
# What needs hardware and a kernel of the device's own: clocks, bonding, PPP, crashes; and a web server. To be sourced.
# shellcheck disable=SC2154,SC2317 # the checks' variables; called by name

# Relative to the project.
built=build/arm/tests/device

# --- time ---

# Starts the time server anew, on the far side of eth1.
ServeTime() {
    EndServer
    ip -n far addr replace 192.168.2.1/24 dev far1
    ip -n far addr replace 2001:db8:2::1/64 dev far1 nodad
    ip addr replace 192.168.2.20/24 dev eth1
    ip addr replace 2001:db8:2::20/64 dev eth1 nodad
    ip netns exec far "$built/device_sntp" "$@" &
    echo $! >/tmp/server.pid
}

EndServer() {
    [ ! -e /tmp/server.pid ] || kill "$(cat /tmp/server.pid)" || :
    rm -f /tmp/server.pid
}

# The clock and the hardware clock show the minute $1.
BothShow() {
    hardware=/sys/class/rtc/rtc0
    Same "$(date -u '+%Y-%m-%d %H:%M')" "$1" && Same "$(cat $hardware/date) $(cut -d : -f 1-2 $hardware/time)" "$1"
}

StartTime() {
    tesselctl ntp stop
    tesselctl log level info
    logged=$(wc -l <"$log")
    tesselctl ntp start "$1" every 1
}

# Since the start there is a line $1.
IsLogged() {
    tail -n +$((logged + 1)) "$log" | grep -q "$1"
}

ClockIsSetAndTheHardwareClock() {
    ServeTime "$(date -u -d '2031-05-06 07:08:00' +%s)"
    StartTime 192.168.2.1
    Eventually 30 IsLogged 'sync sys time, nRet = 0'
    BothShow '2031-05-06 07:08'
    Eventually 10 tesselctl ntp check 192.168.2.1
    EndServer
    Eventually 10 Fails tesselctl ntp check 192.168.2.1
}

# What is left of the last round's tenth of a second is seen by the next one.
ClockIsSlewed() {
    ServeTime +100000
    StartTime 192.168.2.1
    Eventually 30 IsLogged 'sync sys clock, nRet = 0'
    Eventually 30 IsLogged 'olddelta.usec = [1-9]'
}

ClockIsSetByIPv6() {
    ServeTime "$(date -u -d '2027-01-02 03:04:00' +%s)"
    StartTime 2001:db8:2::1
    Eventually 30 BothShow '2027-01-02 03:04'
    tesselctl ntp stop
    EndServer
}

# --- web server ---

FetchPage() {
    ip netns exec far timeout 10 wget -q -O - http://192.168.2.20/
}

WebServer() {
    echo 'a page' >/usr/lighttpd/www/index.html
    tesselctl web start
    Fails tesselctl web start # the port is taken
    Same "$(FetchPage)" 'a page'
    tesselctl --yes web stop
    Fails FetchPage
}

# --- bonding ---

bond=/sys/class/net/bond0

IsActive() {
    Same "$(cat $bond/bonding/active_slave)" "$1"
}

PingThroughBond() {
    ip netns exec far ping -c 1 -W 1 192.168.4.2
}

BondFailsOverToTheOtherInterface() {
    ip -n far -batch - <<'BATCH'
link add name switch type bridge
link set far0 master switch
link set far1 master switch
link set switch up
addr add 192.168.4.1/24 dev switch
BATCH
    tesselctl --yes bond start eth0 eth1 active eth1 mode 1
    Same "$(cat $bond/bonding/mode) $(cat $bond/bonding/slaves)" 'active-backup 1 eth1 eth0'
    IsActive eth1
    Same "$(ip -o -4 addr show | grep -e eth0 -e eth1)" ''
    ip addr add 192.168.4.2/24 dev bond0
    Eventually 10 PingThroughBond
    ip -n far link set far1 down # the cable is pulled
    Eventually 10 IsActive eth0
    Eventually 10 PingThroughBond
    ip -n far link set far1 up
    Fails tesselctl --yes bond start eth0 eth1 active eth1 mode 1
    tesselctl --yes bond stop
    Same "$(cat $bond/bonding/slaves)$(ip addr show dev bond0 | grep inet)" ''
    Same "$(cat $bond/operstate)" down
    for interface in eth0 eth1; do
        Eventually 10 grep -qx up /sys/class/net/$interface/operstate
        Same "$(cat /sys/class/net/$interface/address)" 02:00:00:00:00:0${interface#eth}
    done
    ip -n far link del switch
}

# --- PPPoE ---

# An access concentrator on the far side of eth1 with the service "internet". The passwords have what a shell would see.
ServePppoe() {
    mkdir -p /etc/ppp
    printf '%s\n' require-pap 'ms-dns 203.0.113.53' +ipv6 >/etc/ppp/pppoe-server-options
    printf '%s\n' "\"josh@isp\" * \"it's \$HOME\" *" '"user" * "secret" *' >/etc/ppp/pap-secrets
    chmod 600 /etc/ppp/pap-secrets
    while ip route del default; do :; done
    ip netns exec far pppoe-server -F -I far1 -S internet -L 203.0.113.1 -R 203.0.113.10 -N 4 &
    echo $! >/tmp/server.pid
}

# Dials with password $1 as $2...
Dial() {
    echo "$1" >/tmp/password
    shift
    tesselctl pppoe start eth1 user "$@" password-file /tmp/password holdoff 2 echo-interval 10 echo-failure 3 debug
}

# ppp0 has addresses of the families $1.
Has() {
    Same "$(ip -o addr show dev ppp0 | awk '{print $3}' | tr '\n' ' ')" "$1 "
}

# Ends it; the server's own pppd stays until it notices.
HangUp() {
    tesselctl --yes pppoe stop "$@"
    Eventually 10 Fails ip link show dev ppp0
    Eventually 10 Fails pidof pppoe
}

PppoeSessionsWithARealServer() {
    ServePppoe
    Dial "it's \$HOME" josh@isp service internet -4
    Eventually 30 Has inet
    ip addr show dev ppp0 | grep -q 'inet 203.0.113.1[0-3] peer 203.0.113.1/32'
    Same "$(ip route show default | cut -d ' ' -f 1-3)" 'default dev ppp0'
    Eventually 10 grep -qx 'nameserver 203.0.113.53' /etc/resolv.conf
    ping -c 1 -W 5 203.0.113.1
    HangUp -4
    Dial secret user
    Eventually 30 Has 'inet inet6'
    HangUp
    EndServer
}

# --- crashes of the daemon ---

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
