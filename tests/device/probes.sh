#!/bin/sh
# Ping, traces and the watch over routers; to be sourced.
# shellcheck disable=SC2154,SC2317 # the checks' variables; called by name

# The addresses 10.$1.0.$2 and fd00:$1::$2, of one digit each, as records.
Record4() {
    printf '020000000a%02d00%02d%024d' "$1" "$2" 0
}

Record6() {
    printf '0a000000fd00000%d%023d%d' "$1" 0 "$2"
}

# Puts the ends of network $1 on the devices $3 of the namespace $2 and $5 of $4.
Link() {
    for prefix in 10.$1.0. fd00:$1::; do
        bits=$([ "${prefix#fd}" = "$prefix" ] && echo 24 || echo 64)
        ip -n "$2" addr add "${prefix}1/$bits" dev "$3"
        ip -n "$4" addr add "${prefix}2/$bits" dev "$5"
    done
    ip -n "$2" link set "$3" up
    ip -n "$4" link set "$5" up
}

# eth2 -1- far -2- mute -3- third -4- beyond: 10.N.0.1 and fd00:N::1 are the near ends, .2 and ::2 the far ones. "mute"
# forwards and says nothing; "far" knows that nobody is behind 10.6 and fd00:6.
JoinNetworks() {
    ip netns exec far sh -c 'echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad'
    ip addr add 10.1.0.1/24 dev eth2
    ip addr add fd00:1::1/64 dev eth2 nodad
    ip -n far addr add 10.1.0.2/24 dev far2
    ip -n far addr add fd00:1::2/64 dev far2 nodad
    for network in 2 3 4 6; do
        ip route add 10.$network.0.0/24 via 10.1.0.2
        ip route add fd00:$network::/64 via fd00:1::2
    done
    ip route add throw 10.8.0.0/24
    ip -n far route add unreachable 10.6.0.0/24
    ip -n far route add unreachable fd00:6::/64
    near=far
    network=2
    for namespace in mute third beyond; do
        ip netns add $namespace
        ip netns exec $namespace sh -c 'echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad'
        ip -n $near link add name to$network type veth peer name from$network netns $namespace
        Link $network $near to$network $namespace from$network
        ip -n $near route add default via "10.$network.0.2"
        ip -n $near route add default via "fd00:$network::2"
        ip -n $namespace route add 10.1.0.0/24 via "10.$network.0.1"
        ip -n $namespace route add fd00:1::/64 via "fd00:$network::1"
        near=$namespace
        network=$((network + 1))
    done
    for namespace in far mute third beyond; do
        ip netns exec $namespace sh -c 'cd /proc/sys/net && echo 1 >ipv4/ip_forward && echo 1 >ipv6/conf/all/forwarding &&
            echo 0 >ipv4/icmp_ratelimit && echo 0 >ipv6/icmp/ratelimit'
    done
    ip netns exec mute iptables -A OUTPUT -p icmp --icmp-type time-exceeded -j DROP
    ip netns exec mute ip6tables -A OUTPUT -p icmpv6 --icmpv6-type time-exceeded -j DROP
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
        near=$(Hop trace_hop "$($record 1 2)" 1 0)
        mute=$(Hop trace_no_reply "$($record 0 0 | cut -c 1-8)$(printf %032d 0)" 2 0)
        third=$(Hop trace_hop "$($record 3 2)" 3 0)
        Traces "$($record 4 2)" "$near
$near
$near
$mute
$mute
$mute
$third
$third
$third
$(Hop trace_reached "$($record 4 2)" 4 1)"
        Traces "$($record 6 1)" "$(Hop trace_refused "$($record 1 2)" 1 1)"
    done
}

# Over IPv6 a trace that waits for the mute router takes what answers another one.
AnswerToAnotherTrace() {
    Listen ipc_traceroute_8
    Answers 0 0xD01 "$(Record6 4 2)$(Word 5)$(Word 8)"
    Eventually 30 HasEvents 3
    Answers 0 0xD01 "$(Record6 1 2)$(Word 5)$(Word 9)"
    Eventually 30 grep -q "^trace_reached $(Record6 1 2)$(Word 2)" /tmp/events
    Answers 0 0xD02 "$(Word 8)"
    Answers 0 0xD02 "$(Word 9)"
    EndListener
}

# The last report has the addresses whose numbers of the network are $1, and the gateway $2.
IsReported() {
    tail -n 1 /tmp/events >/tmp/report
    Same "$(grep -o '20010db800[0-9]*0000' /tmp/report | cut -c 11-12 | sort | tr -d '\n')" "$1" &&
        Same "$(tail -c 41 /tmp/report)" "0a000000$2"
}

Advertise() {
    ip netns exec far "$built/device_advertise" far0 "$@"
}

RouterWatch() {
    none=$(printf %032d 0)
    router=fe80000000000000000000fffe000100
    echo 2 >/proc/sys/net/ipv6/conf/eth0/accept_ra
    ip link set eth0 down # brings the link-local address back
    ip link set eth0 up
    Listen ipc_router_notify_eth0_9_77
    Answers 0 0x117 "$(Padded 16 eth0)$(Word 9)$(Word 77)"
    Advertise 2001:db8:77:: 1800 86400
    Eventually 30 IsReported 77 $router
    Advertise 2001:db8:77:: 0 86400
    Advertise 2001:db8:78:: 0 20
    Eventually 30 IsReported 7778 "$none"
    Eventually 60 IsReported 77 "$none" # the second has come to its end
    Advertise 2001:db8:77:: 1800 86400
    Eventually 30 IsReported 77 $router
    Answers 0 0x118 "$(Padded 16 eth0)"
    EndListener
}
