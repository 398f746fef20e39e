#!/usr/bin/python3
"""Runs the tool in a camera lab built from one case file and checks what it did.

A case file is a lab scenario (its "interfaces") plus what the run must show:
  "stdout":    every line the tool prints; the progress line is written "<dots>"
  "dots":      [fewest, most] progress dots
  "forceip_ex": every 0x9000 command the cameras received, in time order:
               "IFACE CAMERA-MAC IP/MASK" (gateway 0.0.0.0, value 5, empty text are checked)
  "forceip":   every FORCEIP received, in time order: "IFACE CAMERA-MAC" (all addresses 0), or with
               an address "IFACE CAMERA-MAC IP/MASK" (gateway 0.0.0.0)
Optional: "args" (the tool's arguments), "exit" (status, default 0), "stderr" (its lines, default
none) or "stderr_match" (regular expressions of --verbose lines, each matched by some line, every
line time-stamped; then "stderr_span" [FROM, TO, SECONDS] bounds the time from the first line
matching FROM to the last matching TO), "json" (the one document stdout must be with --json; a case with "stdout" too runs twice, in
fresh labs, and both runs must send the same) and "silent_interfaces" (host interfaces that send no
frame at all and whose links receive nothing), "final" (each camera's registers when the lab ends,
by MAC: "MAC IP/MASK persistent IP/MASK/GATEWAY 0x0014 ccp N") and "shell" (runs in place of the
tool: "$@" is the tool with "args"; $GVLAB_SIMULATORS for a power cycle; $AIC_CLOCK_STEP_LIB, from CTest,
a preload that steps the wall clock forward once), "unprivileged" (true: the tool runs as nobody with
CAP_NET_RAW alone, as the units run it) and "like" (a case file in the same folder whose keys this one
takes, its own keys winning), "config" (the lines of a configuration file,
written as autoipconfig.toml in the run's directory and given with --config autoipconfig.toml).

usage: run_case.py --tool PATH CASE.json
"""

import argparse
import difflib
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
LAB = os.path.join(REPO, "tools", "lab.py")
PYTHON = "/usr/bin/python3"
DOTS = re.compile(r"^\.+$")
STAMP = re.compile(r"^\[ *(\d+\.\d{3})\] ")
TOOL_LIMIT_S = 90
# nobody, keeping of root's rights only raw link-level sockets
UNPRIVILEGED = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups", "--inh-caps=-all,+net_raw",
                "--ambient-caps=-all,+net_raw", "--bounding-set=-all,+net_raw", "--"]


def tool_command(case, tool):
    return (UNPRIVILEGED if case.get("unprivileged") else []) + [tool]


def run_lab(case_path, tool, args, record, sent, shell, cwd=None):
    # The tool runs under a shell that then notes every interface's sent-frame count.
    count = f'{shell}; s=$?; grep -H . /sys/class/net/*/statistics/tx_packets > {shlex.quote(sent)}; exit $s'
    command = [PYTHON, LAB, case_path, "--record", record, "--timeout", str(TOOL_LIMIT_S),
               "--", "/bin/sh", "-c", count, "sh"] + tool + args
    print("run: " + " ".join(command), flush=True)
    started = time.monotonic()
    result = subprocess.run(command, capture_output=True, text=True, cwd=cwd)
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
    return [e for e in entries if e["cmd"] == command or (command is None and e["cmd"] != "final")]


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
        address = "" if f["ip"] == "0.0.0.0" else f" {f['ip']}/{f['mask']}"
        lines.append(f"{e['iface']} {e['camera']}{address}")
        if f["gateway"] != "0.0.0.0" or (not address and f["mask"] != "0.0.0.0"):
            problems.append(f"FORCEIP to {e['camera']} carries {f}")
    return lines


def compare(name, expected, actual, problems):
    if expected != actual:
        diff = difflib.unified_diff(expected, actual, "expected", "actual", lineterm="")
        problems.append(f"{name} differs:\n" + "\n".join(diff))


def stderr_problems(case, lines, problems):
    if "stderr_match" not in case:
        compare("standard error", case.get("stderr", []), lines, problems)
        return
    problems += [f"standard error line without a time: {line}" for line in lines if not STAMP.match(line)]
    problems += [f"no standard error line matches {pattern}" for pattern in case["stderr_match"]
                 if not any(re.search(pattern, line) for line in lines)]
    if "stderr_span" in case:
        first, last, limit = case["stderr_span"]
        stamps = [(float(STAMP.match(line).group(1)), line) for line in lines if STAMP.match(line)]
        starts = [t for t, line in stamps if re.search(first, line)]
        ends = [t for t, line in stamps if re.search(last, line)]
        if not starts or not ends or ends[-1] - starts[0] > limit:
            problems.append(f"from {first} to {last}: {ends[-1] - starts[0] if starts and ends else None} s, "
                            f"at most {limit} s expected")


def silent_problems(case, record, sent):
    silent = set(case.get("silent_interfaces", []))
    counts = {}
    if sent and os.path.exists(sent):
        with open(sent, encoding="utf-8") as f:
            counts = dict(re.match(r".*/net/(.+)/statistics/tx_packets:(\d+)", line).groups() for line in f)
    noisy = [f"{name} sent {counts.get(name)} frames" for name in sorted(silent) if counts.get(name) != "0"]
    return noisy + [f"{e['cmd']} reached {e['segment']}" for e in received(record, None) if e["segment"] in silent]


def output_problems(case, stdout, problems, as_json):
    """Compares standard output; returns the number of progress dots (None: no progress line)."""
    if as_json:
        expected, actual = (json.dumps(doc, indent=1).split("\n") for doc in (case["json"], json.loads(stdout)))
        compare("JSON report", expected, actual, problems)
        return None
    lines, dots = normalised(stdout)
    compare("standard output", case["stdout"] + [""], lines, problems)
    bounds = case.get("dots")
    if (dots is None) != (bounds is None) or (bounds and not bounds[0] <= dots <= bounds[1]):
        problems.append(f"{dots} progress dots, expected {bounds}")
    return dots


def check(case, result, record, sent=None, as_json=False):
    problems = silent_problems(case, record, sent)
    if result.returncode != case.get("exit", 0):
        problems.append(f"exit status {result.returncode}")
    stderr = [line for line in result.stderr.splitlines() if not line.startswith("lab: ")]
    stderr_problems(case, stderr, problems)
    dots = output_problems(case, result.stdout, problems, as_json)
    compare("0x9000 commands", case["forceip_ex"],
            forceip_ex_lines(received(record, "forceip_ex"), problems), problems)
    compare("FORCEIP commands", case["forceip"],
            forceip_lines(received(record, "forceip"), problems), problems)
    final_problems(case, record, problems)
    return problems, dots


def final_problems(case, record, problems):
    if "final" in case:
        compare("registers at the end", case["final"], sorted(
            f"{e['camera']} {f['ip']}/{f['mask']} persistent {f['persistent_ip']}/{f['persistent_mask']}/"
            f"{f['persistent_gateway']} {f['ip_config']} ccp {f['ccp']}"
            for e in received(record, "final") for f in [e["fields"]]), problems)


def tool_and_case(argv, description, work):
    """The --tool PATH CASE.json arguments of a case runner, and the case read; a case "like" another
    is written whole into the folder work, and args.case names that copy (the lab reads it)."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--tool", required=True)
    parser.add_argument("case")
    args = parser.parse_args(argv)
    with open(args.case, encoding="utf-8") as f:
        case = json.load(f)
    if "like" in case:
        with open(os.path.join(os.path.dirname(args.case), case.pop("like")), encoding="utf-8") as f:
            case = dict(json.load(f), **case)
        args.case = os.path.join(work, os.path.basename(args.case))
        with open(args.case, "w", encoding="utf-8") as f:
            json.dump(case, f)
    return args, case


def main(argv):
    with tempfile.TemporaryDirectory(prefix="aic-case-") as work:
        return run_case(*tool_and_case(argv, __doc__.splitlines()[0], work))


def run_case(args, case):
    tool_args = case.get("args", [])
    runs = []
    if "stdout" in case:
        runs.append((False, tool_args))
    if "json" in case:
        runs.append((True, tool_args if "--json" in tool_args else tool_args + ["--json"]))
    problems = []
    for as_json, run_args in runs:
        problems += run_once(args.tool, args.case, case, run_args, as_json)
    for problem in problems:
        print("FAIL: " + problem)
    return 1 if problems else 0


def run_once(tool, case_path, case, tool_args, as_json):
    with tempfile.TemporaryDirectory(prefix="aic-e2e-") as work:
        record, sent = os.path.join(work, "record.jsonl"), os.path.join(work, "sent")
        if "config" in case:
            with open(os.path.join(work, "autoipconfig.toml"), "w", encoding="utf-8") as f:
                f.write("\n".join(case["config"]) + "\n")
            tool_args = tool_args + ["--config", "autoipconfig.toml"]
        result, total = run_lab(os.path.abspath(case_path), tool_command(case, os.path.abspath(tool)), tool_args, record,
                                sent, case.get("shell", '"$@"'), cwd=work)
        sys.stdout.write(result.stderr + result.stdout)
        if not os.path.exists(record):
            return ["the lab wrote no record"]
        problems, dots = check(case, result, record, sent, as_json)
    tool_s = total - lab_seconds(result.stderr, "up") - lab_seconds(result.stderr, "down")
    print(f"timing: tool {tool_s:.1f} s (lab total {total:.1f} s), {dots} dots")
    return problems


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
