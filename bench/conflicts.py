#!/usr/bin/python3
"""Benchmark of the candidate probes: the plain one-by-one probe beside --check-conflicts.

For each size, one camera lab (tools/lab.py) with that many link-local cameras on one link; inside
it bench/measure.py times two dry runs of the tool, plain and with --check-conflicts. A dry run
discovers and plans every move, probes included, and moves nothing, so both runs see the same
cameras. Writes the section "7. Candidate probes" of bench/results.md (the rest is kept).

usage: conflicts.py --tool PATH [--sizes 10,40,250] [--out DIR]
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

from sections import publish

BENCH = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(BENCH)
LAB = os.path.join(REPO, "tools", "lab.py")
MEASURE = os.path.join(BENCH, "measure.py")
PYTHON = "/usr/bin/python3"
HEADING = "## 7. Candidate probes: plain beside --check-conflicts"
VARIANTS = (("plain", []), ("check", ["--check-conflicts"]))
LAB_LIMIT_S = 900


def say(message):
    print(f"bench: {message}", file=sys.stderr, flush=True)


def scenario(cameras):
    """A /16 so that 250 candidates fit; every camera link-local, so every one is moved."""
    return {"description": f"{cameras} link-local cameras to move on one link",
            "interfaces": [{"name": "eth0", "addresses": ["172.16.0.5/16"],
                            "generate": {"count": cameras, "mac_start": "00:0f:31:d0:00:01",
                                         "ip_start": "169.254.30.1", "mask": "255.255.0.0",
                                         "model": "SIM-LL"}}]}


def run_lab(cameras, tool, workdir):
    """Both variants in one lab: one measure.py line each."""
    path = os.path.join(workdir, f"ll{cameras}.json")
    with open(path, "w", encoding="utf-8") as f:
        json.dump(scenario(cameras), f)
    runs = "; ".join(f"{PYTHON} {MEASURE} -- {tool} --dry-run {' '.join(args)}" for _, args in VARIANTS)
    argv = [PYTHON, LAB, path, "--window-ms", "0,0", "--timeout", str(LAB_LIMIT_S), "--", "/bin/sh", "-c", runs]
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"lab of {cameras} cameras failed ({result.returncode}): {result.stderr[-2000:]}")
    lines = [json.loads(line) for line in result.stdout.splitlines() if line.startswith("{")]
    return dict(zip((name for name, _ in VARIANTS), lines))


def plan(run):
    return [line for line in "".join(text for _, text in run["chunks"]).splitlines() if " would get " in line]


def row(cameras, runs):
    plain, check = runs["plain"], runs["check"]
    moved = len(plan(check))
    return {"cameras": cameras, "moved": moved, "same_plan": plan(plain) == plan(check),
            "plain_s": plain["wall_s"], "check_s": check["wall_s"],
            "ratio": round(plain["wall_s"] / check["wall_s"], 1),
            "check_cpu_s": round(check["user_s"] + check["sys_s"], 3), "load1": check["load1"]}


def section(rows):
    lines = [HEADING, "",
             "One lab per size, link-local cameras on one link (172.16.0.5/16), answers at once; in it two "
             "dry runs of the tool, which discover and plan every move with its probes and move nothing: "
             "the plain probe (one candidate after another, 1 s each) and `--check-conflicts` (every "
             "candidate of a round at once, three probes 250 ms apart, 1 s per round). Wall time of the "
             "tool's own process (bench/measure.py); a dry run also holds the 0.5 s discovery.", "",
             "| cameras moved | plain (s) | --check-conflicts (s) | plain / check | same plan | "
             "check CPU (s) | load |",
             "|---|---|---|---|---|---|---|"]
    for r in rows:
        lines.append(f"| {r['moved']} of {r['cameras']} | {r['plain_s']:.2f} | {r['check_s']:.2f} | "
                     f"{r['ratio']} | {'yes' if r['same_plan'] else 'NO'} | {r['check_cpu_s']:.3f} | "
                     f"{r['load1']:.1f} |")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", required=True, help="the tool's executable (run only inside labs)")
    parser.add_argument("--sizes", default="10,40,250", help="cameras to move, one lab each")
    parser.add_argument("--out", default=BENCH, help="folder of results.md and results-conflicts.json")
    args = parser.parse_args()
    tool = os.path.abspath(args.tool)
    rows = []
    with tempfile.TemporaryDirectory(prefix="aic-bench-conflicts-") as workdir:
        for cameras in (int(n) for n in args.sizes.split(",")):
            say(f"{cameras} cameras: plain and --check-conflicts dry runs in one lab")
            rows.append(row(cameras, run_lab(cameras, tool, workdir)))
            say(json.dumps(rows[-1]))
    publish(args.out, "results-conflicts.json", rows, HEADING, section(rows))


if __name__ == "__main__":
    main()
