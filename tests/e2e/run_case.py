#!/usr/bin/python3
"""Runs the tool in a camera lab built from one case file and checks what it did.

A case file is a lab scenario (its "interfaces") plus what the run must show:
  "stdout":    every line the tool prints; the progress line is written "<dots>"
  "dots":      [fewest, most] progress dots
  "forceip_ex": every 0x9000 command the cameras received, in time order:
               "IFACE CAMERA-MAC IP/MASK" (gateway 0.0.0.0, value 5, empty text are checked)
  "forceip":   every FORCEIP received, in time order: "IFACE CAMERA-MAC" (all addresses 0)

usage: run_case.py --tool PATH CASE.json
"""

import argparse
import difflib
import json
import os
import re
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
LAB = os.path.join(REPO, "tools", "lab.py")
PYTHON = "/usr/bin/python3"
DOTS = re.compile(r"^\.+$")
TOOL_LIMIT_S = 90


def run_lab(case_path, tool, record):
    command = [PYTHON, LAB, case_path, "--record", record, "--tool", tool,
               "--timeout", str(TOOL_LIMIT_S)]
    print("run: " + " ".join(command), flush=True)
    started = time.monotonic()
    result = subprocess.run(command, capture_output=True, text=True)
    return result, time.monotonic() - started


def lab_seconds(stderr, phase):
    match = re.search(rf"^lab: {phase} in ([0-9.]+) s", stderr, re.M)
    return float(match.group(1)) if match else 0.0


def normalised(stdout):
    """The output with its progress line as "<dots>", and the number of dots."""
    lines, dots = [], None
    for line in stdout.split("\n"):
        if DOTS.match(line) and dots is None:
            dots = len(line)
            line = "<dots>"
        lines.append(line)
    return lines, dots


def received(record, command):
    with open(record, encoding="utf-8") as f:
        entries = [json.loads(line) for line in f if line.strip()]
    return [e for e in entries if e["cmd"] == command]


def forceip_ex_lines(entries, problems):
    lines = []
    for e in entries:
        f = e["fields"]
        lines.append(f"{e['iface']} {e['camera']} {f['ip']}/{f['mask']}")
        if (f["gateway"], f["ipconfig"], f["reset"], f["text"]) != ("0.0.0.0", 5, 0, "00" * 16):
            problems.append(f"0x9000 to {e['camera']} carries {f}")
    return lines


def forceip_lines(entries, problems):
    lines = []
    for e in entries:
        f = e["fields"]
        lines.append(f"{e['iface']} {e['camera']}")
        if (f["ip"], f["mask"], f["gateway"]) != ("0.0.0.0",) * 3:
            problems.append(f"FORCEIP to {e['camera']} carries {f}")
    return lines


def compare(name, expected, actual, problems):
    if expected != actual:
        diff = difflib.unified_diff(expected, actual, "expected", "actual", lineterm="")
        problems.append(f"{name} differs:\n" + "\n".join(diff))


def check(case, result, record):
    problems = []
    if result.returncode != 0:
        problems.append(f"exit status {result.returncode}")
    stray = [line for line in result.stderr.splitlines() if not line.startswith("lab: ")]
    if stray:
        problems.append("the tool wrote to standard error:\n" + "\n".join(stray))
    lines, dots = normalised(result.stdout)
    compare("standard output", case["stdout"] + [""], lines, problems)
    fewest, most = case["dots"]
    if dots is None or not fewest <= dots <= most:
        problems.append(f"{dots} progress dots, expected {fewest} to {most}")
    compare("0x9000 commands", case["forceip_ex"],
            forceip_ex_lines(received(record, "forceip_ex"), problems), problems)
    compare("FORCEIP commands", case["forceip"],
            forceip_lines(received(record, "forceip"), problems), problems)
    return problems, dots


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", required=True)
    parser.add_argument("case")
    args = parser.parse_args(argv)
    with open(args.case, encoding="utf-8") as f:
        case = json.load(f)
    with tempfile.TemporaryDirectory(prefix="aic-e2e-") as work:
        record = os.path.join(work, "record.jsonl")
        result, total = run_lab(args.case, os.path.abspath(args.tool), record)
        sys.stdout.write(result.stderr + result.stdout)
        if not os.path.exists(record):
            print("FAIL: the lab wrote no record")
            return 1
        problems, dots = check(case, result, record)
    tool_s = total - lab_seconds(result.stderr, "up") - lab_seconds(result.stderr, "down")
    print(f"timing: tool {tool_s:.1f} s (lab total {total:.1f} s), {dots} dots; "
          f"fixed waits {case.get('fixed_waits', '?')}")
    for problem in problems:
        print("FAIL: " + problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
