#!/bin/sh
# The init script and the real daemon, in namespaces of their own:
#   init_test.sh SCRIPT DAEMON
# It never lets go of a daemon that runs, and never makes two.
set -u
if [ -z "${TIDEWELL_INSIDE:-}" ]; then
    [ "$(id -u)" = 0 ] || as_root=-r
    export TIDEWELL_INSIDE=1
    # A session of its own: one that loses its parent hangs up where a process is stopped.
    exec setsid -w unshare ${as_root:-} -mnpf --mount-proc "$0" "$@"
fi

mount -t tmpfs none /run
cp "$1" /run/init
cp "$2" /run/tidewell
mount -t tmpfs none /tmp
mount -t tmpfs none /etc/default

settings() { printf '%s\n' PIDFILE=/run/pid LOG=/run/log PROXY_CFG=/run/proxy.cfg "$@" >/etc/default/tidewell; }
init() { said=$(/run/init "$1" 2>&1); status=$?; }
pid() { cat /run/pid; }
daemons() { ls -l /proc/[0-9]*/exe 2>/dev/null | grep -c ' /run/tidewell\( (deleted)\)\?$'; }
is_told_to_end() { grep -q '^ShdPnd:.*[4-7c-f]...$' "/proc/$1/status"; }
expect() {
    what=$1; shift
    "$@" || { echo "FAILED: $what; status $status, said '$said', $(daemons) daemons"; failed=1; }
}
failed=0 status= said=
settings DAEMON=/run/tidewell STOP_SECONDS=2

echo 1 >/run/pid
for _ in 1 2 3; do /run/init start & done
wait
expect "three starts at once and the pid of another program make one daemon" [ "$(daemons)" = 1 ]

cp "$2" /run/new && mv /run/new /run/tidewell
init start
expect "a daemon whose program was replaced runs on" [ "$(daemons)" = 1 ]
first=$(pid)
init restart
expect "a restart leaves one" [ "$(daemons)" = 1 ]
expect "... another one" [ "$(pid)" != "$first" ]

deaf=$(pid)
kill -STOP "$deaf"
init restart
expect "a restart kills a deaf daemon" [ "$(daemons) $status" = "1 0" ]
expect "... and says so" [ "$said" = "tidewell: process $deaf still runs after 2 seconds, killing it" ]

settings DAEMON=/run/tidewell
slow=$(pid)
until grep -q Startup /run/log; do kill -0 "$slow" || break; done # before that it hears no signal in order
kill -STOP "$slow"
/run/init stop >/run/said 2>&1 & stopping=$!
until is_told_to_end "$slow"; do kill -0 $stopping || break; done
kill -CONT "$slow"
wait "$stopping"
expect "a slow daemon ends by itself" [ "$? $(daemons) $(cat /run/said) $(tail -n 1 /run/log)" = "0 0  main exit" ]

# The first process of its namespace hears no signal, not even the last.
settings DAEMON="$(readlink -f "$(command -v sleep)")" STOP_SECONDS=1
cat >/run/immortal <<'INNER'
echo 1 >/run/pid
/run/init restart >/run/said 2>&1; echo $? >>/run/said
INNER
unshare -pf --mount-proc sh -c 'sh /run/immortal & exec sleep 60' & shell=$!
until grep -qx '[0-9]' /run/said; do kill -0 $shell || break; done
said=$(tail -n 2 /run/said)
expect "one that cannot be killed is not forgotten, nor joined" [ "$said$(pid)" = "tidewell: process 1 cannot be killed
11" ]
exit $failed
