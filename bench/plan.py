#!/usr/bin/python3
"""Benchmark of the address plan: reading and checking a file of 1000 reservations, and the cost of
planning a 1000-camera link with it beside the same run without a file.

One camera lab (tools/lab.py) with CAMERAS cameras that fit on one link (172.16.0.5/16); the plan
reserves each camera's current address by MAC and gives eth0 a pool, so the runs with and without
it move nothing and differ only by the plan. Inside the lab bench/measure.py times, in turn, RUNS
times: `--check-config --config plan.toml`, a dry run, and a dry run with `--config plan.toml`.
Writes the section "10. Address plan" of bench/results.md (the rest is kept).

usage: plan.py --tool PATH [--cameras 1000] [--runs 5] [--out DIR]
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile

from sections import publish

BENCH = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(BENCH)
LAB = os.path.join(REPO, "tools", "lab.py")
MEASURE = os.path.join(BENCH, "measure.py")
PYTHON = "/usr/bin/python3"
HEADING = "## 10. Address plan: reservations read, checked and planned"
MAC_START = 0x000F31D20001
IP_START = (172 << 24) | (16 << 16) | (1 << 8) | 1
LAB_LIMIT_S = 1800


def say(message):
    print(f"bench: {message}", file=sys.stderr, flush=True)


def dotted(ip):
    return ".".join(str(ip >> shift & 255) for shift in (24, 16, 8, 0))


def mac_text(mac):
    return "-".join(f"{mac >> shift & 255:02X}" for shift in range(40, -8, -8))


def plan_text(cameras):
    lines = ["[interface.eth0]", 'pool = ["172.16.100.1-172.16.199.254"]', 'exclude = ["172.16.150.0-172.16.150.255"]']
    for i in range(cameras):
        lines += ["[[camera]]", f'mac = "{mac_text(MAC_START + i)}"', f'address = "{dotted(IP_START + i)}"']
    return "\n".join(lines) + "\n"


def scenario(cameras):
    return {"description": f"{cameras} cameras that fit on one link",
            "interfaces": [{"name": "eth0", "addresses": ["172.16.0.5/16"],
                            "generate": {"count": cameras, "mac_start": "00:0f:31:d2:00:01",
                                         "ip_start": dotted(IP_START), "mask": "255.255.0.0",
                                         "model": "SIM-PLAN"}}]}


def run_lab(cameras, runs, tool, workdir):
    path = os.path.join(workdir, "plan-lab.json")
    plan = os.path.join(workdir, "plan.toml")
    with open(path, "w", encoding="utf-8") as f:
        json.dump(scenario(cameras), f)
    with open(plan, "w", encoding="utf-8") as f:
        f.write(plan_text(cameras))
    # the same check of a file of comments only: the process's floor, without the reservations
    empty = os.path.join(workdir, "empty.toml")
    with open(empty, "w", encoding="utf-8") as f:
        f.write("# nothing planned\n")
    variants = (("check", f"--check-config --config {plan}"), ("floor", f"--check-config --config {empty}"),
                ("without", "--dry-run"),
                ("with", f"--dry-run --config {plan}"))
    steps = [f"{PYTHON} {MEASURE} -- {tool} {args}" for _ in range(runs) for _, args in variants]
    argv = [PYTHON, LAB, path, "--window-ms", "0,0", "--timeout", str(LAB_LIMIT_S), "--", "/bin/sh", "-c",
            "; ".join(steps)]
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"lab failed ({result.returncode}): {result.stderr[-2000:]}")
    lines = [json.loads(line) for line in result.stdout.splitlines() if line.startswith("{")]
    out = {name: [] for name, _ in variants}
    for i, line in enumerate(lines):
        out[variants[i % len(variants)][0]].append(line)
    return out


def summary(cameras, measured):
    def med(name, key):
        return statistics.median(run[key] for run in measured[name])

    def cpu(name):
        return statistics.median(run["user_s"] + run["sys_s"] for run in measured[name])

    return {"cameras": cameras, "runs": len(measured["with"]),
            "check_wall_ms": round(med("check", "wall_s") * 1000, 1), "check_cpu_ms": round(cpu("check") * 1000, 1),
            "floor_wall_ms": round(med("floor", "wall_s") * 1000, 1), "floor_cpu_ms": round(cpu("floor") * 1000, 1),
            "without_wall_s": round(med("without", "wall_s"), 3), "with_wall_s": round(med("with", "wall_s"), 3),
            "without_cpu_ms": round(cpu("without") * 1000, 1), "with_cpu_ms": round(cpu("with") * 1000, 1)}


def section(s):
    cost = (s["with_cpu_ms"] / s["without_cpu_ms"] - 1) * 100 if s["without_cpu_ms"] else 0.0
    return "\n".join([
        HEADING, "",
        f"One lab, {s['cameras']} cameras that fit on one link (172.16.0.5/16), answers at once; a plan with a "
        f"reservation of each camera's own address by MAC, a pool and an exclusion. Medians of {s['runs']} "
        "runs of each, taken in turn (bench/measure.py: the tool's own process). The check is the whole "
        "process: start, read and check the file, survey the interfaces, print the plan; the same check of a "
        "file of comments only is the floor, and the difference is what the reservations cost.", "",
        "| run | wall | CPU (user+sys) |", "|---|---|---|",
        f"| `--check-config` of {s['cameras']} reservations | {s['check_wall_ms']} ms | {s['check_cpu_ms']} ms |",
        f"| `--check-config` of comments only (floor) | {s['floor_wall_ms']} ms | {s['floor_cpu_ms']} ms |",
        f"| reading and checking {s['cameras']} reservations (difference) | "
        f"{s['check_wall_ms'] - s['floor_wall_ms']:.1f} ms | {s['check_cpu_ms'] - s['floor_cpu_ms']:.1f} ms |",
        f"| dry run without a file | {s['without_wall_s']} s | {s['without_cpu_ms']} ms |",
        f"| dry run with the plan | {s['with_wall_s']} s | {s['with_cpu_ms']} ms ({cost:+.1f} %) |",
    ]) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", required=True, help="the tool's executable (run only inside labs)")
    parser.add_argument("--cameras", type=int, default=1000)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--out", default=BENCH, help="folder of results.md and results-plan.json")
    args, _ = parser.parse_known_args()  # bench/run's --quick and --smoke do not apply here
    with tempfile.TemporaryDirectory(prefix="aic-bench-plan-") as workdir:
        say(f"{args.cameras} cameras, {args.runs} runs of each variant in one lab")
        s = summary(args.cameras, run_lab(args.cameras, args.runs, os.path.abspath(args.tool), workdir))
    say(json.dumps(s))
    publish(args.out, "results-plan.json", s, HEADING, section(s))


if __name__ == "__main__":
    main()
