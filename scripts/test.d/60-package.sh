#!/usr/bin/env bash
# Builds both Debian packages (lintian must report no errors), installs the amd64 one, checks
# what it put in place, runs the installed tool in a camera lab against an end-to-end case and
# removes the package again. The tool only ever runs inside the lab's own namespaces.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=${AIC_PACKAGE_OUT:-build-pkg}
case_file=tests/e2e/cases/misaddressed.json

scripts/install-deps systemd man-db
AIC_PACKAGE_OUT=$out scripts/package amd64 arm64
deb=$(realpath "$out"/autoipconfig_*_amd64.deb)

if dpkg-query -W -f='${Status}' autoipconfig 2>/dev/null | grep -q 'install ok installed'; then
  echo "package: autoipconfig is already installed on this machine; not touching it" >&2
  exit 1
fi
remove() {
  echo "== package: purge autoipconfig"
  dpkg --purge autoipconfig > /dev/null
}
trap remove EXIT
echo "== package: install $deb"
DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$deb" \
  > "$out/install.log" 2>&1 || { cat "$out/install.log"; exit 1; }

echo "== package: installed files"
for path in /usr/sbin/autoipconfig /usr/share/man/man8/autoipconfig.8.gz \
            /usr/share/doc/autoipconfig/README.md /usr/share/doc/autoipconfig/copyright \
            /usr/lib/systemd/system/autoipconfig.service /usr/lib/systemd/system/autoipconfig-watch.service \
            /etc/default/autoipconfig /etc/autoipconfig/autoipconfig.toml; do  # files the package installed
  [ -f "$path" ] || { echo "package: $path is missing" >&2; exit 1; }
done
man -w autoipconfig > /dev/null
systemd-analyze verify --man=no /usr/lib/systemd/system/autoipconfig.service \
  /usr/lib/systemd/system/autoipconfig-watch.service

echo "== package: the units' exposure (at most 2.0 each)"
for unit in autoipconfig.service autoipconfig-watch.service; do
  # --threshold is on the 0-100 scale the scores are shown on divided by ten.
  systemd-analyze security --offline=yes --no-pager "/usr/lib/systemd/system/$unit" | tail -1
  systemd-analyze security --offline=yes --threshold=20 "/usr/lib/systemd/system/$unit" > /dev/null \
    || { echo "package: $unit is exposed more than 2.0" >&2; exit 1; }
done

echo "== package: the boot unit's options file"
options_file=/etc/default/autoipconfig  # read by the unit, never run
unit=/usr/lib/systemd/system/autoipconfig.service  # checked as text here
for conffile in "$options_file" /etc/autoipconfig/autoipconfig.toml; do  # conffiles only, nothing run
  grep -qx "$conffile" /var/lib/dpkg/info/autoipconfig.conffiles \
    || { echo "package: $conffile is not a conffile" >&2; exit 1; }
done
# Empty by default, so the unit runs the tool without arguments, as before, and the watch adds nothing.
for name in AUTOIPCONFIG_OPTIONS AUTOIPCONFIG_WATCH_OPTIONS; do
  grep -q "^$name=" "$options_file" && [ -z "$(. "$options_file" && eval echo "\$$name")" ] \
    || { echo "package: $name is not set empty by default" >&2; exit 1; }
done
grep -qx "EnvironmentFile=-$options_file" "$unit" \
  && grep -q '^ExecStart=/usr/sbin/[a-z]* --exit-code \$AUTOIPCONFIG_OPTIONS$' "$unit" \
  || { echo "package: the unit does not take its options from $options_file" >&2; exit 1; }

echo "== package: the watch unit"
watch_unit=/usr/lib/systemd/system/autoipconfig-watch.service  # checked as text here
grep -qx 'Type=notify' "$watch_unit" && grep -q '^WatchdogSec=[1-9]' "$watch_unit" \
  || { echo "package: the watch unit does not notify its manager" >&2; exit 1; }
grep -qx "EnvironmentFile=-$options_file" "$watch_unit" \
  && grep -q '^ExecStart=/usr/sbin/[a-z]* --watch \$AUTOIPCONFIG_OPTIONS \$AUTOIPCONFIG_WATCH_OPTIONS$' "$watch_unit" \
  || { echo "package: the watch unit does not take its options from $options_file" >&2; exit 1; }
# Two instances would fight over the tool's ports: each unit stops the other.
grep -qx 'Conflicts=autoipconfig.service' "$watch_unit" && grep -qx 'Conflicts=autoipconfig-watch.service' "$unit" \
  || { echo "package: the boot unit and the watch unit do not conflict" >&2; exit 1; }

if [ -n "$(find /etc/systemd/system -name 'autoipconfig*.service' 2>/dev/null)" ]; then
  echo "package: a unit was enabled by installing the package" >&2
  exit 1
fi

echo "== package: /usr/sbin/autoipconfig in the lab, case $case_file"
/usr/bin/python3 tests/e2e/run_case.py --tool /usr/sbin/autoipconfig "$case_file"
