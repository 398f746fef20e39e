#!/usr/bin/python3
"""Benchmark of --standard beside the plain run's vendor path, in one camera lab.

One lab, two links of misaddressed cameras: the plain run moves eth0's vendor cameras
(-i eth0), then a --standard run moves eth1's standard cameras (-i eth1). Both are measured
by bench/measure.py in the lab's host namespace; the simulator's record gives what each camera
received and the registers it ends with. Writes standard_path.json and the section of its
own in results.md.

usage: standard_path.py --tool PATH [--smoke] [--out DIR] [--render-only]
"""

import argparse
import json
import os
import shlex
import subprocess
import sys
import tempfile

from sections import write_section

BENCH = os.path.dirname(os.path.abspath(__file__))
LAB = os.path.join(os.path.dirname(BENCH), "tools", "lab.py")
MEASURE = os.path.join(BENCH, "measure.py")
PYTHON = "/usr/bin/python3"
HEADING = "## 6. --standard beside the vendor path"
RUNS = (("vendor path (plain run)", "eth0", []), ("--standard", "eth1", ["--standard"]))
REGISTER_STEPS = ("readreg", "writereg")


def say(message):
    print(f"bench: {message}", file=sys.stderr, flush=True)


def scenario(cameras):
    def link(index, kind):
        return {"name": f"eth{index}", "addresses": [f"192.168.{10 + index}.5/24"],
                "generate": {"count": cameras, "mac_start": f"00:0f:31:b3:0{index}:01", "kind": kind,
                             "ip_start": f"10.{index}.0.20", "mask": "255.255.0.0", "model": "BENCH-FOREIGN"}}
    return {"description": f"{cameras} misaddressed cameras on each of two links", "interfaces": [
        link(0, "vendor"), link(1, "standard")]}


def run_lab(tool, cameras, workdir):
    """Both measured runs in one lab; the lab's stdout is their two JSON lines."""
    path, record = os.path.join(workdir, "scenario.json"), os.path.join(workdir, "record.jsonl")
    with open(path, "w", encoding="utf-8") as f:
        json.dump(scenario(cameras), f)
    steps = [shlex.join([PYTHON, MEASURE, "--", tool, "-i", itf] + args) for _, itf, args in RUNS]
    argv = [PYTHON, LAB, path, "--window-ms", "0,0", "--record", record, "--timeout", "600",
            "--", "/bin/sh", "-c", " && ".join(steps)]
    say(f"{cameras} cameras per link: " + " | ".join(" ".join(args) or "plain" for _, _, args in RUNS))
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode != 0:
        raise SystemExit(f"bench: lab run failed ({result.returncode}): {result.stderr[-2000:]}")
    with open(record, encoding="utf-8") as f:
        entries = [json.loads(line) for line in f if line.strip()]
    return [json.loads(line) for line in result.stdout.strip().splitlines()[-2:]], entries


def is_store_step(entry):
    """Register commands of the standard path; the access-status reads of enumeration are not."""
    return entry["cmd"] in REGISTER_STEPS and entry["fields"].get("addresses") != ["0x0A00"]


def analyse(label, itf, measured, entries, cameras):
    mine = [e for e in entries if e["iface"] == itf and measured["start"] <= e["t"] <= measured["end"]]
    force = [e for e in mine if e["cmd"] in ("forceip", "forceip_ex") or is_store_step(e)]
    output = "".join(text for _, text in measured["chunks"])
    finals = [e["fields"] for e in entries if e["cmd"] == "final" and e["segment"] == itf]
    phase = force[-1]["t"] - force[0]["t"] if force else 0.0
    dots = max((len(line) for line in output.splitlines() if set(line) == {"."}), default=0)
    return {
        "path": label, "cameras": cameras,
        "available": output.count(" available!"), "until_restart": output.count("(until restart)"),
        "stored": sum(f["persistent_ip"] == f["ip"] for f in finals),
        "commands": len(force), "configuration_s": round(phase, 3),
        "per_camera_ms": round(1000 * phase / cameras, 1), "confirmation_s": round(measured["end"] - force[-1]["t"], 2)
        if force else None, "passes": dots, "wall_s": measured["wall_s"],
        "cpu_s": round(measured["user_s"] + measured["sys_s"], 3), "peak_rss_mib": round(measured["maxrss_kib"] / 1024, 1),
        "load": measured.get("load1"),
    }


def render(results, path):
    rows = ["| path | cameras | listed available | of them (until restart) | address stored | commands to the cameras "
            "| configuration (s) | per camera (ms) | confirmation (s) | passes | run time (s) | user + sys (s) "
            "| peak RSS (MiB) |", "|" + "---|" * 13]
    for r in results:
        rows.append(f"| {r['path']} | {r['cameras']} | {r['available']} | {r['until_restart']} | {r['stored']} "
                    f"| {r['commands']} | {r['configuration_s']:.2f} | {r['per_camera_ms']:.1f} "
                    f"| {r['confirmation_s']} | {r['passes']} | {r['wall_s']:.2f} | {r['cpu_s']:.3f} "
                    f"| {r['peak_rss_mib']} |")
    section = "\n".join([
        HEADING, "",
        "One lab, two links, cameras answering at once (window 0,0 ms): the plain run moves eth0's vendor "
        "cameras (`-i eth0`), then `--standard` moves eth1's standard cameras (`-i eth1`). Configuration = "
        "first to last force-IP or register command the cameras received; confirmation = from then to the "
        "end of the run. Both runs also spend one ARP probe (1 s) per camera before the first force-IP.",
        "", *rows])
    write_section(path, HEADING, section)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool")
    parser.add_argument("--smoke", action="store_true", help="4 cameras per link instead of 40")
    parser.add_argument("--quick", action="store_true", help="the same as a full run: one lab")
    parser.add_argument("--out", default=BENCH)
    parser.add_argument("--render-only", action="store_true")
    args = parser.parse_args()
    data = os.path.join(args.out, "standard_path.json")
    if not args.render_only:
        cameras = 4 if args.smoke else 40
        with tempfile.TemporaryDirectory(prefix="aic-bench-std-") as workdir:
            measured, entries = run_lab(os.path.abspath(args.tool), cameras, workdir)
        results = [analyse(label, itf, m, entries, cameras) for (label, itf, _), m in zip(RUNS, measured)]
        with open(data, "w", encoding="utf-8") as f:
            json.dump(results, f, indent=1)
    if not os.path.exists(data):
        say(f"no {data}: the section is left out")
        return
    with open(data, encoding="utf-8") as f:
        render(json.load(f), os.path.join(args.out, "results.md"))
    say(f"section '{HEADING[3:]}' written to {os.path.join(args.out, 'results.md')}")


if __name__ == "__main__":
    main()
