#!/usr/bin/python3
"""Runs the tool in a camera lab built from one hostile scenario and checks what must hold whatever
the LAN or the host does: exit status 0 within the run-time bound of README "Run time", nothing on
standard error, a well-formed report, and no address handed to two cameras or to a camera while
another camera or an interface holds it.

A scenario may add "absent" (interfaces the report must not show) and the expectation keys of the
end-to-end cases ("stdout", "dots", "forceip_ex", "forceip"), checked by that runner's rules.
--host-fault runs the tool without the raw-network right (no_raw) or with the routing table
missing (route_missing) or unreadable (route_unreadable), each inside the lab's host namespace.

usage: run_hostile.py --tool PATH [--host-fault NAME] SCENARIO.json
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))
import run_case  # noqa: E402  the end-to-end runner: lab location, output and record readers

LAB_LIMIT_S = 150
SLACK_S = 2.0  # process start, namespaces entered, report printed: not fixed waits
PROBE_WAIT_S = 1.0
MAC = r"([0-9A-F]{2}-){5}[0-9A-F]{2}"
IP = r"\d{1,3}(\.\d{1,3}){3}"
REPORT_LINE = [
    ("header", re.compile(rf"GigeE Interface:(\S+)\(({IP}|IP Error)\[{MAC}\]\)( invalid IP!)?$")),
    ("camera", re.compile(rf"    Camera:.*\({IP}\[{MAC}\]\[.*\]\) (not )?available!$")),
    ("summary", re.compile(r"\S.* is invalid IP, (please modify the IP manually|the tool does not support .*)!$")),
]
# The route fault hides /proc/net of the tool's own process behind a folder of the runner's.
HIDE_ROUTES = 'mount --bind "$1" /proc/$$/net && shift && exec "$@"'
DROP_DAC = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search", "--"]


def mac_text(mac):
    return mac.replace(":", "-").upper()


def dotted(number):
    return ".".join(str(number >> shift & 255) for shift in (24, 16, 8, 0))


def number(ip):
    a, b, c, d = (int(part) for part in ip.split("."))
    return a << 24 | b << 16 | c << 8 | d


def cameras_of(interface):
    """(MAC text, address) of every camera behind an interface, generated ones included."""
    cameras = [(mac_text(c["mac"]), c.get("ip", "0.0.0.0")) for c in interface.get("cameras", [])]
    templates = interface.get("generate", [])
    for template in templates if isinstance(templates, list) else [templates]:
        mac = int(template["mac_start"].replace(":", ""), 16)
        ip = number(template["ip_start"])
        for k in range(template["count"]):
            digits = f"{mac + k:012X}"
            cameras.append(("-".join(digits[i:i + 2] for i in range(0, 12, 2)), dotted(ip + k)))
    return cameras


def segments(scenario):
    """Cameras per link: interfaces naming one segment share their cameras."""
    links = {}
    for index, interface in enumerate(scenario["interfaces"]):
        links.setdefault(interface.get("segment", f"own{index}"), []).extend(cameras_of(interface))
    return links


def bound_s(scenario):
    """README "Run time": 26 s + 2 E + 10 s per camera moved, E = 0.51 s + 1 ms per interface
    + 1.5 s per camera on the busiest link; every camera counts as one to move."""
    links = segments(scenario)
    seen = [len(links[i.get("segment", f"own{n}")]) for n, i in enumerate(scenario["interfaces"])]
    enumeration = 0.51 + 0.001 * len(seen) + 1.5 * max(seen, default=0)
    cameras = sum(len(c) for c in links.values())
    return 26.0 + 2 * enumeration + 10.0 * cameras


def held_addresses(scenario):
    held = {}
    for interface in scenario["interfaces"]:
        for address in interface.get("addresses", []):
            held[address.split("/")[0]] = interface["name"]
    for cameras in segments(scenario).values():
        for mac, ip in cameras:
            if ip != "0.0.0.0":
                held[ip] = mac
    return held


def host_fault_command(fault, tool, work):
    if fault == "no_raw":
        return ["setpriv", "--bounding-set", "-net_raw", "--inh-caps", "-net_raw", "--", tool]
    routes = os.path.join(work, "net")
    os.mkdir(routes)
    if fault == "route_missing":
        return ["unshare", "-m", "sh", "-c", HIDE_ROUTES, "sh", routes, tool]
    if fault == "route_unreadable":
        path = os.path.join(routes, "route")
        with open(path, "w", encoding="utf-8") as f:
            f.write("Iface\tDestination\tGateway\tFlags\n")
        os.chmod(path, 0)
        return ["unshare", "-m", "sh", "-c", HIDE_ROUTES, "sh", routes, *DROP_DAC, tool]
    return [tool]


def run_lab(scenario_path, command, record):
    lab = [run_case.PYTHON, run_case.LAB, scenario_path, "--record", record, "--timeout", str(LAB_LIMIT_S), "--"]
    print("run: " + " ".join(lab + command), flush=True)
    started = time.monotonic()
    result = subprocess.run(lab + command, capture_output=True, text=True)
    total = time.monotonic() - started
    tool_s = total - run_case.lab_seconds(result.stderr, "up") - run_case.lab_seconds(result.stderr, "down")
    return result, tool_s


def process_problems(result):
    """Exit status 0 and a silent standard error (the lab's own lines aside)."""
    stray = [line for line in result.stderr.splitlines() if not line.startswith("lab: ")]
    return ([f"exit status {result.returncode}"] if result.returncode != 0 else []) + (
        ["the tool wrote to standard error:\n" + "\n".join(stray)] if stray else [])


def report_problems(stdout, absent):
    lines = stdout.split("\n")
    head = ["Tool version is 1.0.1906.9272", "Auto IP Configure Started!"]
    if lines[:2] != head or len(lines) < 5 or not run_case.DOTS.match(lines[2]):
        return ["the output does not start with the banner and one line of progress dots"]
    if lines[-2:] != ["Auto IP Configure Finished!", ""]:
        return ["the output does not end with \"Auto IP Configure Finished!\" and a line end"]
    problems, previous = [], "dots"
    for line in lines[3:-2]:
        kind = next((k for k, pattern in REPORT_LINE if pattern.match(line)), None)
        if kind is None or (kind == "camera" and previous not in ("header", "camera")):
            problems.append(f"malformed report line: {line!r}")
        elif kind == "header" and REPORT_LINE[0][1].match(line).group(1) in absent:
            problems.append(f"the report shows an interface the tool cannot see: {line!r}")
        previous = kind
    return problems


def assignment_problems(scenario, record):
    assigned = {}
    for entry in run_case.received(record, "forceip_ex"):
        assigned[entry["camera"]] = entry["fields"]["ip"]
    problems, owners = [], {}
    held = held_addresses(scenario)
    for camera, ip in assigned.items():
        if ip in owners:
            problems.append(f"{ip} handed to both {owners[ip]} and {camera}")
        owners[ip] = camera
        if held.get(ip, camera) != camera:
            problems.append(f"{ip} handed to {camera} while {held[ip]} holds it")
    return problems


def probe_problems(record):
    """Without the raw-network right no probe runs: the 0x9000 commands follow each other at once."""
    times = [entry["t"] for entry in run_case.received(record, "forceip_ex")]
    gaps = [b - a for a, b in zip(times, times[1:])]
    slow = [f"{gap:.2f} s" for gap in gaps if gap >= 0.9 * PROBE_WAIT_S]
    return [f"probe waits between force-IP commands: {', '.join(slow)}"] if slow else []


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", required=True)
    parser.add_argument("--host-fault", choices=["no_raw", "route_missing", "route_unreadable"])
    parser.add_argument("scenario")
    args = parser.parse_args(argv)
    with open(args.scenario, encoding="utf-8") as f:
        scenario = json.load(f)
    with tempfile.TemporaryDirectory(prefix="aic-hostile-") as work:
        record = os.path.join(work, "record.jsonl")
        command = host_fault_command(args.host_fault, os.path.abspath(args.tool), work)
        result, tool_s = run_lab(args.scenario, command, record)
        sys.stdout.write(result.stdout)
        sys.stderr.write(result.stderr)
        if not os.path.exists(record):
            print("FAIL: the lab wrote no record")
            return 1
        # The end-to-end rules check exit status and standard error along with the expectations.
        problems = run_case.check(scenario, result, record)[0] if "stdout" in scenario else process_problems(result)
        problems += report_problems(result.stdout, scenario.get("absent", []))
        problems += assignment_problems(scenario, record)
        if args.host_fault == "no_raw":
            problems += probe_problems(record)
    bound = bound_s(scenario)
    print(f"timing: tool {tool_s:.1f} s, bound {bound:.1f} s")
    if tool_s > bound + SLACK_S:
        problems.append(f"the run took {tool_s:.1f} s, above its bound of {bound:.1f} s")
    for problem in problems:
        print("FAIL: " + problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
