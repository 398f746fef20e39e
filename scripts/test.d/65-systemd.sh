#!/usr/bin/env bash
# Boots systemd as PID 1 in a container with the package 60-package.sh built installed, on the links
# of a camera lab, and checks the units under it: the watch's start, status, late camera, stop,
# restarts after kill -9 and a hang, reload, and the boot unit's Conflicts= and exit status.
# The container shares the lab's host network namespace only: the tool never sees this machine's links.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=${AIC_PACKAGE_OUT:-build-pkg}
cache=${AIC_SYSTEMD_ROOT_CACHE:-/var/cache/autoipconfig-test}  # the container root, kept between runs
deb=$(realpath "$out"/autoipconfig_*_amd64.deb)
watch=autoipconfig-watch.service
boot=autoipconfig.service
late_mac=00:0f:31:65:00:02
refusing_mac=00:0f:31:65:00:03

scripts/install-deps systemd-container debootstrap

# --- a root with systemd and the package's dependencies, kept for the next run ---------------------
mirror() {
  # The Debian mirror apt uses here, from either sources format; no host is named in the repository.
  local f
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] && cat "$f"
  done | awk '
    /^deb / && / bookworm / { for (i = 2; i <= NF; i++) if ($i ~ /^[a-z]+:\/\//) { print $i; exit } }
    /^URIs:/ { uri = $2 }
    /^Suites:/ && / bookworm( |$)/ && uri ~ /debian\/?$/ { print uri; exit }'
}
includes=systemd,systemd-sysv,iproute2,procps,$(dpkg-deb -f "$deb" Depends | tr ',' '\n' \
  | sed 's/|.*//; s/(.*)//; s/ //g' | grep -v '^$' | sort -u | paste -sd,)
template=$cache/bookworm-$(echo "$includes" | md5sum | cut -c1-12)
if [ ! -d "$template" ]; then
  url=$(mirror)
  [ -n "$url" ] || { echo "systemd: no Debian bookworm mirror in apt's sources" >&2; exit 1; }
  echo "== systemd: debootstrap bookworm ($includes) into $template"
  mkdir -p "$cache"
  rm -rf "$template.new"
  debootstrap --variant=minbase --include="$includes" bookworm "$template.new" "$url" > "$cache/debootstrap.log" 2>&1 \
    || { tail -20 "$cache/debootstrap.log"; rm -rf "$template.new"; exit 1; }
  mv "$template.new" "$template"
fi

# --- everything made below goes on every exit path ---------------------------------------------------
work=$(mktemp -d /var/tmp/aic-systemd.XXXXXX)
name=aicsd$$
cgroups=(/sys/fs/cgroup/systemd/$name /sys/fs/cgroup/unified/$name)
lab_pid='' nspawn_pid=''
cleanup() {
  local code=$?
  trap - EXIT INT TERM
  if [ -n "$nspawn_pid" ] && kill -0 "$nspawn_pid" 2>/dev/null; then
    kill -TERM "$nspawn_pid" 2>/dev/null || true  # the container powers off
    for _ in $(seq 100); do kill -0 "$nspawn_pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$nspawn_pid" 2>/dev/null || true
    wait "$nspawn_pid" 2>/dev/null || true
  fi
  if [ -n "$lab_pid" ]; then
    kill -TERM "$lab_pid" 2>/dev/null || true
    wait "$lab_pid" 2>/dev/null || true
  fi
  local cg
  for cg in "${cgroups[@]}"; do
    [ -d "$cg" ] && find "$cg" -depth -type d -exec rmdir {} + 2>/dev/null
    [ -d "$cg" ] && echo "systemd: $cg is left (processes in it)" >&2
  done
  rm -rf "$work"
  exit "$code"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

echo "== systemd: a container root with $(basename "$deb")"
cp -a --reflink=auto "$template" "$work/root"
cp "$deb" "$work/root/tmp/autoipconfig.deb"  # installed inside the container
chroot "$work/root" dpkg -i /tmp/autoipconfig.deb > "$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; exit 1; }
# A hang is found in 3 s, not 30, and a restart follows in 1 s, not 5.
mkdir -p "$work/root/etc/systemd/system/$watch.d"
printf '[Service]\nWatchdogSec=3\nRestartSec=1\n' > "$work/root/etc/systemd/system/$watch.d/test.conf"
# Text events (the journal shows the lines an operator reads); the ARP probe runs in the sandbox too.
sed -i 's/^AUTOIPCONFIG_OPTIONS=.*/AUTOIPCONFIG_OPTIONS="--check-conflicts"/; s/^AUTOIPCONFIG_WATCH_OPTIONS=.*/AUTOIPCONFIG_WATCH_OPTIONS="--interval 5"/' \
  "$work/root/etc/default/autoipconfig"  # the container's options file

echo "== systemd: the camera lab"
cat > "$work/lab.json" <<EOF
{"interfaces": [{"name": "eth0", "addresses": ["192.168.1.5/24"], "cameras": [
  {"mac": "00:0f:31:65:00:01", "ip": "10.0.0.7", "mask": "255.0.0.0", "model": "SIM-BOOT", "serial": "BOOT01", "restart_delay_ms": 300},
  {"mac": "$late_mac", "ip": "10.0.0.8", "mask": "255.0.0.0", "model": "SIM-LATE", "serial": "LATE02", "restart_delay_ms": 300, "plugged": false},
  {"mac": "$refusing_mac", "ip": "10.0.0.9", "mask": "255.0.0.0", "model": "SIM-REFUSE", "serial": "REF03", "plugged": false,
   "faults": {"status": {"forceip_ex": "0x8002"}}}]}]}
EOF
# The lab stays up while its command, which notes the lab's names, sleeps.
/usr/bin/python3 tools/lab.py "$work/lab.json" --timeout 900 -- \
  /bin/sh -c 'env | grep ^GVLAB_ > "$0.new" && mv "$0.new" "$0" && exec sleep 900' "$work/lab.env" \
  2> "$work/lab.log" &
lab_pid=$!
for _ in $(seq 300); do { [ -e "$work/lab.env" ] || ! kill -0 "$lab_pid" 2>/dev/null; } && break; sleep 0.1; done
[ -e "$work/lab.env" ] || { cat "$work/lab.log"; echo "systemd: the lab did not come up" >&2; exit 1; }
host_ns=$(sed -n 's/^GVLAB_HOST_NS=//p' "$work/lab.env")
record_dir=$(sed -n 's/^GVLAB_RECORD_DIR=//p' "$work/lab.env")

echo "== systemd: boot the container in $host_ns"
for cg in "${cgroups[@]}"; do mkdir "$cg"; done
# In this mount namespace (ip netns exec would hide /sys/fs/cgroup), in a cgroup of its own.
(
  for cg in "${cgroups[@]}"; do echo "$BASHPID" > "$cg/cgroup.procs"; done
  exec systemd-nspawn --quiet --boot --register=no --keep-unit --machine="$name" -D "$work/root" \
    --network-namespace-path="/run/netns/$host_ns"
) < /dev/null > "$work/console.log" 2>&1 &
nspawn_pid=$!
leader=''
for _ in $(seq 100); do
  leader=$(ps -o pid= --ppid "$nspawn_pid" | tr -d " " | head -1) || true
  [ -n "$leader" ] && break
  sleep 0.1
done
[ -n "$leader" ] || { cat "$work/console.log"; echo "systemd: the container did not start" >&2; exit 1; }
inside() { nsenter -t "$leader" -m -u -i -n -p -r -w "$@"; }
state=''
for _ in $(seq 180); do  # its bus comes up during the boot
  state=$(inside systemctl is-system-running 2> /dev/null) || true
  case $state in running|degraded) break ;; esac
  sleep 0.5
done
echo "systemd: the container's system is $state"
[ "$state" = running ] || [ "$state" = degraded ] \
  || { tail -30 "$work/console.log"; echo "systemd: the container did not boot" >&2; exit 1; }

fail() { echo "FAIL: $*" >&2; inside systemctl status --no-pager "$watch" "$boot" >&2 || true; exit 1; }
show() { inside systemctl show -P "$2" "$1"; }
# wait_for SECONDS DESCRIPTION COMMAND...: polls the command every 0.1 s.
wait_for() {
  local limit=$1 what=$2; shift 2
  local deadline=$(( $(date +%s%N) + limit * 1000000000 ))
  until "$@" > /dev/null 2>&1; do
    [ "$(date +%s%N)" -lt "$deadline" ] || fail "$what: not within $limit s"
    sleep 0.1
  done
}
control() { for pipe in "$record_dir"/*.ctl; do echo "$1" > "$pipe"; done; }
# journal_has PATTERN: a line of the watch's journal matches the extended regular expression.
journal_has() { inside journalctl -u "$watch" -o cat --no-pager | grep -q -E -- "$1"; }
restarted_from() { [ "$(show "$watch" MainPID)" != "$1" ] && [ "$(show "$watch" ActiveState)" = active ]; }
help=$(inside /usr/sbin/autoipconfig --help)  # in the container, in the lab's namespace

echo "== systemd: $watch is activating until the first report, active after"
inside systemctl start --no-block "$watch"
states=() last=''
for _ in $(seq 300); do
  s=$(show "$watch" ActiveState)
  [ "$last" = "$s" ] || { states+=("$s"); last=$s; }
  [ "$s" = active ] || [ "$s" = failed ] && break
  sleep 0.05
done
echo "states: ${states[*]}"
[ "${states[*]}" = "activating active" ] || fail "$watch went through '${states[*]}', not 'activating active'"
status=$(show "$watch" StatusText)
echo "status: $status"
[[ $status =~ ^pass\ [0-9]+:\  ]] || fail "the status is not the first pass's summary"
inside systemctl status --no-pager "$watch" || true
# A user of its own, with CAP_NET_RAW (bit 13) and no other right.
pid=$(show "$watch" MainPID)
rights=$(inside grep -E '^(Uid|CapEff|CapBnd|CapAmb):' "/proc/$pid/status" | tr -s '\t' ' ')
echo "$rights"
grep -q '^Uid: 0 ' <<< "$rights" && fail "the watch runs as root"
[ "$(grep -c ' 0000000000002000$' <<< "$rights")" = 3 ] || fail "the watch has other rights than CAP_NET_RAW"
journal_has "SIM-BOOT\(192\.168\.1\.11\[00-0F-31-65-00-01\].* available!" || fail "the first report is not in the journal"

echo "== systemd: a camera plugged later is moved, and the journal says so"
control "plug $late_mac"
wait_for 15 "the late camera's event in the journal" journal_has "00-0F-31-65-00-02 moved 10\.0\.0\.8 -> 192\.168\.1\."
# StateDirectory= with DynamicUser= keeps the remembered addresses under /var/lib/private.
remembered() { inside grep -q '"00-0F-31-65-00-02"' /var/lib/autoipconfig/addresses.json; }  # a file, nothing run
wait_for 5 "the moved camera in the state file" remembered
inside cat /var/lib/autoipconfig/addresses.json  # a file, nothing run

echo "== systemd: kill -9, then a hang (SIGSTOP), are each followed by a restart"
pid=$(show "$watch" MainPID)
inside kill -KILL "$pid"
wait_for 15 "a restart after kill -9" restarted_from "$pid"
pid=$(show "$watch" MainPID)
inside kill -STOP "$pid"
wait_for 20 "a restart after the watchdog found the hang" restarted_from "$pid"
echo "restarts: $(show "$watch" NRestarts)"

if grep -qE -- '(^|[ ,])--config([ =,]|$)' <<< "$help"; then
  echo "== systemd: reload applies a changed plan"
  mkdir -p "$work/root/etc/autoipconfig"  # the plan file, nothing run
  printf '[[camera]]\nmac = "%s"\naddress = "192.168.1.77"\n' "$late_mac" > "$work/root/etc/autoipconfig/autoipconfig.toml"  # a plan for the reload
  inside systemctl reload "$watch"
  wait_for 15 "the reserved address after reload" journal_has "00-0F-31-65-00-02 moved .* -> 192\.168\.1\.77: reserved$"
else
  echo "SKIP: reload applies a changed plan (the tool has no --config)"
fi

echo "== systemd: stop ends the watch within a second, exit 0"
started=$(date +%s%N)
inside systemctl stop "$watch"
took=$(( ($(date +%s%N) - started) / 1000000 ))
echo "stopped in $took ms: $(show "$watch" Result), status $(show "$watch" ExecMainStatus)"
[ "$took" -lt 1000 ] || fail "stop took $took ms"
[ "$(show "$watch" Result)" = success ] && [ "$(show "$watch" ExecMainStatus)" = 0 ] || fail "the watch did not end with 0"

echo "== systemd: starting the boot unit stops the watch (Conflicts=)"
inside systemctl start "$watch"
inside systemctl start "$boot"
[ "$(show "$watch" ActiveState)" = inactive ] || fail "$watch still runs beside $boot"
[ "$(show "$boot" Result)" = success ] || fail "$boot did not succeed"
inside journalctl -u "$boot" -o cat --no-pager | grep -q 'SIM-LATE(192\.168\.1\.[0-9]*\[.* available!' \
  || fail "$boot did not report the cameras"

if grep -qE -- '(^|[ ,])--exit-code([ =,]|$)' <<< "$help"; then
  echo "== systemd: the boot unit with a refusing camera ends failed"
  control "plug $refusing_mac"
  inside systemctl start "$boot" || true
  [ "$(show "$boot" Result)" = exit-code ] && [ "$(show "$boot" ExecMainStatus)" = 1 ] \
    || fail "$boot ended $(show "$boot" Result), status $(show "$boot" ExecMainStatus)"
else
  echo "SKIP: the boot unit with a refusing camera ends failed (the tool has no --exit-code)"
fi

echo "== systemd: transcript"
inside systemctl status --no-pager "$watch" "$boot" || true
inside journalctl -u "$watch" -u "$boot" -o short-precise --no-pager
echo "== systemd: all checks passed"
