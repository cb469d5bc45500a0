#!/bin/sh
# Ping and traces; to be sourced.
# shellcheck disable=SC2154,SC2317 # the checks' variables; called by name

# The addresses 10.$1.0.$2 and fd00:$1::$2, of one digit each, as records.
Record4() {
    printf '020000000a%02d00%02d%024d' "$1" "$2" 0
}

Record6() {
    printf '0a000000fd00000%d%023d%d' "$1" 0 "$2"
}

# eth2 -1- far -2- beyond: 10.N.0.1 and fd00:N::1 are the near ends, .2 and ::2 the far ones. "far" knows that nobody is
# behind 10.6 and fd00:6.
JoinNetworks() {
    ip netns add beyond
    for namespace in far beyond; do
        ip netns exec $namespace sh -c 'echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad'
    done
    ip netns exec far sh -c 'cd /proc/sys/net && echo 1 >ipv4/ip_forward && echo 1 >ipv6/conf/all/forwarding &&
        echo 0 >ipv4/icmp_ratelimit && echo 0 >ipv6/icmp/ratelimit'
    ip addr add 10.1.0.1/24 dev eth2
    ip addr add fd00:1::1/64 dev eth2 nodad
    for network in 2 6; do
        ip route add 10.$network.0.0/24 via 10.1.0.2
        ip route add fd00:$network::/64 via fd00:1::2
    done
    ip route add throw 10.8.0.0/24
    ip -n far -batch - <<'BATCH'
link add name to2 type veth peer name from2 netns beyond
link set to2 up
addr add 10.1.0.2/24 dev far2
addr add fd00:1::2/64 dev far2 nodad
addr add 10.2.0.1/24 dev to2
addr add fd00:2::1/64 dev to2 nodad
route add unreachable 10.6.0.0/24
route add unreachable fd00:6::/64
BATCH
    ip -n beyond -batch - <<'BATCH'
link set from2 up
addr add 10.2.0.2/24 dev from2
addr add fd00:2::2/64 dev from2 nodad
route add default via 10.2.0.1
route add default via fd00:2::1
BATCH
}

HasEvents() {
    Same "$(wc -l </tmp/events)" "$1"
}

# Two pings of the record $1 give the events $2; with the TTL $3 when there are answers.
Pings() {
    Listen ipc_ping_7
    Answers 0 0xC01 "$1$(Word 0)$(Word 5)$(Word 64)$(Word 2)$(Word 7)"
    Eventually 30 HasEvents 2
    EndListener
    # Without the time.
    Same "$(sed 's/\( .\{16\}\).\{8\}/\1/' /tmp/events)" "$2 07000000$3$(Word 0)$(Word 0)
$2 07000000$3$(Word 1)$(Word 1)"
}

PingReports() {
    Pings "$(Record4 1 2)" ping_reply "$(Word 64)"
    Fails grep -q ' .\{16\}00000000' /tmp/events
    Pings "$(Record6 1 2)" ping_reply "$(Word 64)"
    Pings "$(Record4 8 1)" ping_unreachable "$(Word 0)"
}

PingIsStopped() {
    Answers 0 0xC01 "$(Record4 1 9)$(Word 0)$(Word 5)$(Word 64)$(Word -1)$(Word 7)"
    Eventually 10 pidof ping
    Answers 0 0xC02 "$(Word 7)"
    Fails pidof ping
}

# An event $1 of the hop $2 with its number $3; $4 says whether it is the last.
Hop() {
    echo "$1 $2$(Word "$3")$(Word 8)$(printf %024d 0)$(Word "$4")"
}

# A trace to the record $1 gives the events $2.
Traces() {
    Listen ipc_traceroute_8
    Answers 0 0xD01 "$1$(Word 5)$(Word 8)"
    Eventually 60 HasEvents "$(echo "$2" | wc -l)"
    Answers 0 0xD02 "$(Word 8)"
    EndListener
    Same "$(sed 's/\( .\{56\}\).\{8\}/\1/' /tmp/events)" "$2"
}

Traceroute() {
    for record in Record4 Record6; do
        # First: for a second after another ICMP error the kernel keeps this one back, whatever icmp_ratelimit says.
        Traces "$($record 6 1)" "$(Hop trace_refused "$($record 1 2)" 1 1)"
        near=$(Hop trace_hop "$($record 1 2)" 1 0)
        Traces "$($record 2 2)" "$near
$near
$near
$(Hop trace_reached "$($record 2 2)" 2 1)"
    done
}
