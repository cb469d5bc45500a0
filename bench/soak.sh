#!/bin/sh
# Makes the tools that go wrong, and what else bench_soak needs, and runs it: on a device, or in a sandbox, which scripts/soak
# does.
#
#     bench/soak.sh SECONDS BENCH_SOAK DAEMON

directory=/tmp/soak
mkdir -p $directory/bin $directory/stand-ins /etc/scripts

# What starts something that lasts does not hang, as nobody would end that.
cat >$directory/bin/tool <<TOOL
#!/bin/sh
name=\${0##*/}
if [ -e $directory/faults ]; then
    case \$name in
        udhcp* | pppd | lighttpd) ;;
        *) [ -e $directory/hang ] && rm $directory/hang && echo hung >>$directory/outcomes && exec sleep 100 ;;
    esac
    case \$((\$\$ % 10)) in
        0) echo failed >>$directory/outcomes; echo "no such luck" >&2; exit 1 ;;
        1) echo 'hung for a moment' >>$directory/outcomes; sleep 0.3 ;;
        *) echo right >>$directory/outcomes ;;
    esac
fi
PATH=$PATH:$directory/stand-ins
exec "\$name" "\$@"
TOOL
chmod +x $directory/bin/tool
for name in ip iptables ip6tables iptables-save iptables-restore arp ifconfig ifenslave ping ping6 killall kill \
    udhcpc udhcpd pppd lighttpd; do
    ln -s tool "$directory/bin/$name"
done

# Where there are no such programs, something runs under their names.
printf '#!/usr/bin/perl\nsleep;\n' >$directory/stand-ins/pppd
printf '#!/usr/bin/perl\nfork or sleep;\n' >$directory/stand-ins/lighttpd
printf '#!/bin/sh\n' | tee /etc/scripts/udhcpc.script /etc/scripts/udhcpc6.script >$directory/stand-ins/ifenslave
chmod +x $directory/stand-ins/* /etc/scripts/*

ip addr add 10.50.0.1/24 dev eth0
ip link add name slave0 type veth peer name slave1
[ -e /sys/class/net/bond0 ] || ip link add name bond0 type veth peer name bond1
for name in slave0 slave1 bond0; do
    ip link set dev "$name" addrgenmode none
done
cd /tmp || exit
PATH=$directory/bin:$PATH "$2" "$1" "$directory" "$3"
status=$?
sort $directory/outcomes | uniq -c
exit $status
