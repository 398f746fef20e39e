#!/usr/bin/python3
"""Which cameras a dry run lists without the raw-network right, per reverse-path filter setting and
default route: the figures behind the README's advice. Each run is a fresh camera lab.

usage: rp_filter.py [--tool PATH]   (as root; prints one Markdown table)
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
LAB = os.path.join(os.path.dirname(HERE), "tools", "lab.py")
CAMERAS = [
    ("in subnet", {"mac": "00:0f:31:d0:00:01", "ip": "192.168.1.20"}),
    ("foreign subnet", {"mac": "00:0f:31:d0:00:02", "ip": "10.0.0.7", "mask": "255.0.0.0"}),
    ("link-local", {"mac": "00:0f:31:d0:00:03", "ip": "169.254.3.3", "mask": "255.255.0.0"}),
    ("no address", {"mac": "00:0f:31:d0:00:04", "ip": "0.0.0.0"}),
]
# Where the host's default route leaves: none, the camera link, or another link.
ROUTES = [("none", None), ("camera link", "eth0"), ("other link", "eth1")]


def scenario(rp_filter, route):
    eth0 = {"name": "eth0", "addresses": ["192.168.1.5/24"], "cameras": [c for _, c in CAMERAS]}
    eth1 = {"name": "eth1", "addresses": ["172.16.0.5/24"]}
    for itf, gateway in ((eth0, "192.168.1.1"), (eth1, "172.16.0.1")):
        if route == itf["name"]:
            itf["gateway"] = gateway
    sysctls = {f"net/ipv4/conf/{name}/rp_filter": rp_filter for name in ("all", "default", "eth0", "eth1")}
    return {"description": "rp_filter measurement", "no_net_raw": True, "host_sysctls": sysctls,
            "interfaces": [eth0, eth1]}


def visible(tool, rp_filter, route):
    with tempfile.NamedTemporaryFile("w", suffix=".json") as f:
        json.dump(scenario(rp_filter, route), f)
        f.flush()
        out = subprocess.run(["/usr/bin/python3", LAB, f.name, "--tool", tool, "--timeout", "60", "--",
                              tool, "--dry-run", "--json", "--interface", "eth0"],
                             capture_output=True, text=True, check=True).stdout
    macs = {camera["mac"] for itf in json.loads(out)["interfaces"] for camera in itf["cameras"]}
    return [name for name, camera in CAMERAS if camera["mac"].replace(":", "-").upper() in macs]


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", default=os.path.join(os.path.dirname(HERE), "build", "app", "autoipconfig"))
    args = parser.parse_args(argv)
    print("| rp_filter | default route | cameras listed |")
    print("|---|---|---|")
    for rp_filter in (0, 1, 2):
        for label, route in ROUTES:
            print(f"| {rp_filter} | {label} | {', '.join(visible(args.tool, rp_filter, route)) or '-'} |",
                  flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
