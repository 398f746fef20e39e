#!/usr/bin/python3
"""Benchmarks of --watch, run only inside camera labs (tools/lab.py network namespaces).

latency: misaddressed cameras plugged in one at a time while the tool watches; from the moment a
camera can answer (its plug, or the carrier-up of the link behind which it waits) to its `moved`
event, and to the first discovery that reached it (the record). Cases: announcing cameras with
--interval 1 and 10, cameras that never announce with --interval 1 and 10, and carrier-up.
resources: a fixed camera population watched with --interval 0.2 for many passes; after each pass
(the STATUS= line on a notify socket of our own) the tool's CPU (utime+stime), RSS, descriptors and
threads from /proc, the host interface's packet counters; what the cameras received per steady
pass from the simulator's live record.

Writes results-watch.json and the section "9. --watch" of results.md.

usage: watch.py --tool PATH [--smoke | --quick] [--only latency|resources] [--resources CAMERAS:PASSES,...]
                [--out DIR] [--render-only]
       watch.py --drive PLAN.json RESULT.json -- TOOL ARGS...   (inside the lab's host namespace)
"""

import argparse
import ipaddress
import json
import os
import random
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from measure import refuse_outside_lab
from sections import write_section

BENCH = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(BENCH)
LAB = os.path.join(REPO, "tools", "lab.py")
PYTHON = "/usr/bin/python3"
HEADING = "## 9. --watch"
CLOCK_TICK_S = 1.0 / os.sysconf("SC_CLK_TCK")
MOVED_LIMIT_S = 40.0   # a plug-in not moved by then counts as a miss
WARM_PASSES = 10       # passes before the steady window: the first pass and the model settling
STEADY_MAC, STEADY_IP = "00:0f:31:e1:00:01", "10.1.1.1"
LATE_MAC = "00:0f:31:e0:00:01"

LATENCY = [  # key, label, interval, cameras announce, carrier-up
    ("ann1", "announces, --interval 1", 1, True, False),
    ("ann10", "announces, --interval 10", 10, True, False),
    ("quiet1", "never announces, --interval 1", 1, False, False),
    ("quiet10", "never announces, --interval 10", 10, False, False),
    ("carrier10", "carrier-up, never announces, --interval 10", 10, False, True),
]
MODES = {  # plug-ins per latency case; (cameras, passes) per resource run
    "full": {"plugs": 20, "resources": [(60, 1000), (1000, 1000)]},
    "quick": {"plugs": 8, "resources": [(60, 200), (1000, 200)]},
    "smoke": {"plugs": 1, "resources": [(10, 12)], "latency": ["ann1", "carrier10"]},
}


def say(message):
    print(f"bench: {message}", file=sys.stderr, flush=True)


def percentile(values, share):
    """Nearest rank: the p95 of 20 values is the 19th."""
    ordered = sorted(values)
    return ordered[max(0, -(-len(ordered) * share // 100) - 1)] if ordered else None


# --- inside the lab's host namespace -------------------------------------------------------------
class Tool:
    """The tool as our child: its event lines and, after every pass, a sample of its costs."""

    def __init__(self, argv, interface, record):
        self.events, self.samples = [], []
        self.interface, self.record = interface, record
        self.notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.notify.bind(f"\0aic-bench-watch-{os.getpid()}")
        self.notify.settimeout(0.2)
        env = dict(os.environ, NOTIFY_SOCKET=f"@aic-bench-watch-{os.getpid()}")
        self.process = subprocess.Popen(argv, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, env=env, text=True)
        self.changed = threading.Condition()
        self.threads = [threading.Thread(target=self.read_events), threading.Thread(target=self.read_notify)]
        for thread in self.threads:
            thread.start()

    def read_events(self):
        for line in self.process.stdout:
            with self.changed:
                self.events.append([time.time(), json.loads(line)])
                self.changed.notify_all()

    def read_notify(self):
        while self.process.poll() is None:
            try:
                message = self.notify.recv(4096).decode("utf-8", "replace")
            except socket.timeout:
                continue
            if message.startswith("STATUS=pass "):
                sample = self.sample(int(message.split()[1].rstrip(":")))
                with self.changed:
                    self.samples.append(sample)
                    self.changed.notify_all()

    def sample(self, passes):
        pid = self.process.pid
        with open(f"/proc/{pid}/stat", encoding="ascii") as f:
            fields = f.read().rsplit(")", 1)[1].split()
        status = {}
        with open(f"/proc/{pid}/status", encoding="ascii") as f:
            for line in f:
                key, _, value = line.partition(":")
                status[key] = value.split()[0] if value.split() else ""
        stats = f"/sys/class/net/{self.interface}/statistics/"
        record_bytes = os.path.getsize(self.record) if os.path.exists(self.record) else 0
        return {"pass": passes, "t": time.time(), "cpu_s": (int(fields[11]) + int(fields[12])) * CLOCK_TICK_S,
                "rss_kib": int(status["VmRSS"]), "hwm_kib": int(status["VmHWM"]),
                "threads": int(status["Threads"]), "fds": len(os.listdir(f"/proc/{pid}/fd")),
                "tx": int(open(stats + "tx_packets").read()), "rx": int(open(stats + "rx_packets").read()),
                "record_bytes": record_bytes}

    def wait_for(self, test, limit_s):
        """Waits until test() holds or the time is up or the tool ended; test's last value."""
        deadline = time.monotonic() + limit_s
        with self.changed:
            while not (found := test()) and time.monotonic() < deadline and self.process.poll() is None:
                self.changed.wait(0.2)
        return found

    def stop(self):
        self.process.terminate()
        code = self.process.wait(timeout=10)
        for thread in self.threads:
            thread.join()
        self.notify.close()
        return code


def control(line):
    for name in os.listdir(os.environ["GVLAB_RECORD_DIR"]):
        if name.endswith(".ctl"):
            with open(os.path.join(os.environ["GVLAB_RECORD_DIR"], name), "w", encoding="ascii") as f:
                f.write(line + "\n")


def carrier(state):
    """The far end of eth0's cable: down unplugs it, up plugs it back in."""
    segment_ns = os.environ["GVLAB_SEGMENT_NS"].split(",")[0].split("=")[1]
    subprocess.run(["ip", "-n", segment_ns, "link", "set", "p0", state], check=True)


def moved_event(tool, mac):
    return lambda: next((e for e in tool.events if e[1].get("mac") == mac and e[1]["event"] == "moved"), None)


def drive_latency(tool, plan):
    """One camera at a time: wait a random part of the interval, plug it, wait for its move."""
    plugs = []
    tool.wait_for(lambda: tool.samples, 30)  # the first pass is over
    for mac in plan["macs"]:
        time.sleep(random.uniform(0, 1 if plan["carrier"] else plan["interval"]))
        if plan["carrier"]:
            carrier("down")
            time.sleep(0.5)
            control(f"plug {mac}")
            time.sleep(random.uniform(0.5, 1.0))
            carrier("up")
        else:
            control(f"plug {mac}")
        start = time.time()
        moved = tool.wait_for(moved_event(tool, mac.replace(":", "-").upper()), MOVED_LIMIT_S)
        plugs.append({"mac": mac, "start": start, "moved": moved[0] if moved else None,
                      "event_time": moved[1]["time"] if moved else None})
    return {"plugs": plugs}


def static_neighbours(pairs):
    """Permanent neighbour entries in this namespace, which the kernel's shared table does not count."""
    lines = "".join(f"neigh replace {ip} lladdr {mac} dev eth0 nud permanent\n" for ip, mac in pairs)
    subprocess.run(["ip", "-batch", "-"], input=lines, text=True, check=True)


def drive_resources(tool, plan):
    tool.wait_for(lambda: tool.samples and tool.samples[-1]["pass"] >= plan["passes"], plan["limit_s"])
    return {}


def drive(plan_path, result_path, argv):
    refuse_outside_lab()
    with open(plan_path, encoding="utf-8") as f:
        plan = json.load(f)
    record = os.path.join(os.environ["GVLAB_RECORD_DIR"], "eth0.jsonl")
    static_neighbours(plan.get("neighbours", []))
    tool = Tool(argv, "eth0", record)
    try:
        result = (drive_latency if plan["kind"] == "latency" else drive_resources)(tool, plan)
    finally:
        result_code = tool.stop()
    result.update(exit=result_code, samples=tool.samples, events=tool.events)
    if plan["kind"] == "resources":
        result["received"] = received_per_pass(record, tool.samples)
    with open(result_path, "w", encoding="utf-8") as f:
        json.dump(result, f)
    return 0


def received_per_pass(record, samples):
    """What the cameras received between the end of the warm passes and the last pass, by command."""
    steady = [s for s in samples if s["pass"] > WARM_PASSES]
    if len(steady) < 2:
        return None
    first, last = steady[0], steady[-1]
    counts = {}
    with open(record, "rb") as f:
        f.seek(first["record_bytes"])
        for line in f:
            entry = json.loads(line) if line.endswith(b"\n") else None
            if entry and first["t"] < entry["t"] <= last["t"] and entry.get("iface") == "eth0":
                counts[entry["cmd"]] = counts.get(entry["cmd"], 0) + 1
    return {"passes": last["pass"] - first["pass"], "commands": counts}


# --- outside: one lab per case -------------------------------------------------------------------
def latency_scenario(plugs, announces):
    return {"description": f"{plugs} misaddressed cameras on the shelf, plugged in one at a time",
            "interfaces": [{"name": "eth0", "addresses": ["192.168.1.5/24"], "generate": {
                "count": plugs, "mac_start": LATE_MAC, "ip_start": "10.0.1.1", "mask": "255.0.0.0",
                "model": "BENCH-WATCH", "plugged": False, "announces": announces}}]}


def resources_scenario(cameras):
    return {"description": f"{cameras} cameras in the interface's subnet, watched",
            "interfaces": [{"name": "eth0", "addresses": ["10.1.0.5/16"], "generate": {
                "count": cameras, "mac_start": STEADY_MAC, "ip_start": STEADY_IP, "mask": "255.255.0.0",
                "model": "BENCH-STEADY"}}]}


def mac_after(mac, count):
    value = int(mac.replace(":", ""), 16) + count
    return ":".join(f"{value >> shift & 0xFF:02x}" for shift in range(40, -8, -8))


def run_lab(scenario, plan, tool_argv, workdir, name, limit_s, record=None):
    paths = {k: os.path.join(workdir, f"{name}.{k}.json") for k in ("scenario", "plan", "result")}
    for key, value in (("scenario", scenario), ("plan", plan)):
        with open(paths[key], "w", encoding="utf-8") as f:
            json.dump(value, f)
    argv = [PYTHON, LAB, paths["scenario"], "--window-ms", "0,30", "--timeout", str(limit_s)]
    argv += ["--record", record] if record else []
    # remembered addresses stay with the run: a camera keeps no address from an earlier lab
    argv += ["--", "env", f"STATE_DIRECTORY={workdir}/{name}.state", PYTHON, os.path.abspath(__file__), "--drive",
             paths["plan"], paths["result"], *tool_argv]
    lab = subprocess.run(argv, capture_output=True, text=True)
    if lab.returncode != 0 or not os.path.exists(paths["result"]):
        raise RuntimeError(f"lab {name} failed ({lab.returncode}): {lab.stderr[-2000:]}")
    with open(paths["result"], encoding="utf-8") as f:
        return json.load(f)


def first_answers(record_path):
    """Per camera, the times at which it answered a discovery of the tool."""
    answers = {}
    with open(record_path, encoding="utf-8") as f:
        for entry in map(json.loads, f):
            if entry["cmd"] == "discovery" and entry["iface"] == "eth0" and entry["answer"]:
                answers.setdefault(entry["camera"], []).append(entry["t"])
    return answers


def latency_case(key, label, interval, announces, on_carrier, plugs, tool, workdir):
    macs = [mac_after(LATE_MAC, i) for i in range(plugs)]
    plan = {"kind": "latency", "interval": interval, "carrier": on_carrier, "macs": macs}
    record = os.path.join(workdir, f"{key}.record.jsonl")
    limit = 60 + plugs * (interval + MOVED_LIMIT_S + 2)
    result = run_lab(latency_scenario(plugs, announces), plan, [tool, "--watch", "--json", "--interval", str(interval)],
                     workdir, key, limit, record)
    answers = first_answers(record)
    rows = []
    for plug in result["plugs"]:
        seen = [t for t in answers.get(plug["mac"].replace(":", "-").upper(), []) if t >= plug["start"]]
        rows.append({"to_moved_s": None if plug["moved"] is None else round(plug["moved"] - plug["start"], 3),
                     "to_found_s": round(seen[0] - plug["start"], 3) if seen else None})
    moved = [r["to_moved_s"] for r in rows if r["to_moved_s"] is not None]
    found = [r["to_found_s"] for r in rows if r["to_found_s"] is not None]
    # the work of the pass that found a camera: discovery to event (force-IP, restart, confirmation)
    work = [round(r["to_moved_s"] - r["to_found_s"], 3) for r in rows if None not in r.values()]
    return {"key": key, "label": label, "interval": interval, "announces": announces, "carrier": on_carrier,
            "plugs": len(rows), "moved": len(moved), "rows": rows,
            "found_p50": percentile(found, 50), "found_p95": percentile(found, 95), "found_max": max(found or [0]),
            "moved_p50": percentile(moved, 50), "moved_p95": percentile(moved, 95), "moved_max": max(moved or [0]),
            "work_p50": percentile(work, 50), "work_max": max(work or [0]),
            "load1": os.getloadavg()[0]}


def resources_case(cameras, passes, tool, workdir):
    plan = {"kind": "resources", "passes": passes, "limit_s": passes * 3 + 60,
            "neighbours": [[str(ipaddress.IPv4Address(STEADY_IP) + i), mac_after(STEADY_MAC, i)] for i in range(cameras)]}
    result = run_lab(resources_scenario(cameras), plan, [tool, "--watch", "--json", "--interval", "0.2"],
                     workdir, f"steady{cameras}", plan["limit_s"] + 120)
    samples = result["samples"]
    by_pass = {s["pass"]: s for s in samples}
    warm = by_pass.get(WARM_PASSES + 1, samples[0])
    last = samples[-1]
    steady = last["pass"] - warm["pass"]
    pick = lambda n: by_pass.get(n) or min(samples, key=lambda s: abs(s["pass"] - n))  # noqa: E731
    marks = sorted({n for n in (1, WARM_PASSES + 1, 100, last["pass"]) if n <= last["pass"]})
    events = {}
    for _, event in result["events"]:
        events[event["event"]] = events.get(event["event"], 0) + 1
    return {"cameras": cameras, "passes": last["pass"], "wanted_passes": passes, "exit": result["exit"],
            "seconds": round(last["t"] - samples[0]["t"], 1),
            "pass_s": round((last["t"] - warm["t"]) / steady, 3) if steady else None,
            "first_cpu_ms": round(samples[0]["cpu_s"] * 1000),
            "steady_cpu_ms": round((last["cpu_s"] - warm["cpu_s"]) * 1000 / steady, 2) if steady else None,
            "cpu_s": round(last["cpu_s"], 2),
            "rss_kib": [[n, pick(n)["rss_kib"]] for n in marks],
            "hwm_kib": last["hwm_kib"],
            "fds": [[n, pick(n)["fds"]] for n in marks],
            "threads": sorted({s["threads"] for s in samples}),
            "tx_per_pass": round((last["tx"] - warm["tx"]) / steady, 3) if steady else None,
            "rx_per_pass": round((last["rx"] - warm["rx"]) / steady, 2) if steady else None,
            "received": result.get("received"), "events": events, "load1": os.getloadavg()[0]}


# --- results.md ----------------------------------------------------------------------------------
def fmt(value, digits=2):
    return "-" if value is None else f"{value:.{digits}f}"


def section(results):
    lines = [HEADING, "",
             f"`bench/run --watch` ({results['mode']} mode, {results['date']}; tool at "
             f"{results['commits']['latency']} for the latency, {results['commits']['resources']} for the "
             "resources). One lab per row; the tool runs as `--watch --json` with its notify socket pointed at "
             "the bench.", "",
             "Latency: misaddressed cameras (10.0.x.y/8 on a 192.168.1.5/24 link, restart 2 s after a force-IP) "
             "plugged in one at a time, each a random part of the interval after the previous move. From the "
             "moment the camera can answer (its plug; for carrier-up, the link behind which it was plugged "
             "coming up) to the first discovery of the tool that reached it (found), and to its `moved` event "
             "(moved: that pass's force-IP, the camera's restart and the confirmation included). Seconds; p95 is "
             "the nearest rank.", "",
             "| case | plug-ins moved | found p50 | found p95 | moved p50 | moved p95 | moved max | "
             "pass work p50 | load |",
             "|---|---|---|---|---|---|---|---|---|"]
    for r in results["latency"]:
        lines.append(f"| {r['label']} | {r['moved']} of {r['plugs']} | {fmt(r['found_p50'])} | {fmt(r['found_p95'])} | "
                     f"{fmt(r['moved_p50'])} | {fmt(r['moved_p95'])} | {fmt(r['moved_max'])} | "
                     f"{fmt(r['work_p50'])} | {r['load1']:.1f} |")
    lines += ["", "Resources: cameras that fit, `--interval 0.2`. CPU = utime+stime of the tool's process "
              "(/proc/PID/stat) after each pass's STATUS= line; steady = from pass "
              f"{WARM_PASSES + 1} to the last, divided by the passes. Packets: the host interface's tx/rx "
              "counters per steady pass; received: what the cameras' record holds per steady pass (one "
              "line per camera and command).", "",
              "| cameras | passes | s per pass | CPU first pass (ms) | CPU per steady pass (ms) | CPU total (s) | "
              "RSS (KiB) after pass | descriptors after pass | threads | tx per pass | "
              "rx per pass | received per pass | events | load |",
              "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|"]
    for r in results["resources"]:
        got = r["received"]
        received = "-" if not got else ", ".join(
            f"{cmd} {count / got['passes'] / r['cameras']:.2f} x {r['cameras']}" for cmd, count in
            sorted(got["commands"].items()))
        events = ", ".join(f"{k} {v}" for k, v in sorted(r["events"].items())) or "none"
        lines.append(f"| {r['cameras']} | {r['passes']} of {r['wanted_passes']} | {fmt(r['pass_s'], 3)} | "
                     f"{r['first_cpu_ms']} | {fmt(r['steady_cpu_ms'])} | {r['cpu_s']:.2f} | "
                     f"{', '.join(f'{n}: {v}' for n, v in r['rss_kib'])} | "
                     f"{', '.join(f'{n}: {v}' for n, v in r['fds'])} | {', '.join(map(str, r['threads']))} | "
                     f"{fmt(r['tx_per_pass'], 3)} | {fmt(r['rx_per_pass'], 1)} | {received} | {events} | "
                     f"{r['load1']:.1f} |")
    return "\n".join(lines) + "\n"


def render(results, out):
    write_section(os.path.join(out, "results.md"), HEADING, section(results))
    print(section(results))


def main(argv):
    if argv[:1] == ["--drive"]:
        return drive(argv[1], argv[2], argv[4:] if argv[3:4] == ["--"] else argv[3:])
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", help="the tool's executable (run only inside labs)")
    parser.add_argument("--quick", action="store_const", dest="mode", const="quick", default="full")
    parser.add_argument("--smoke", action="store_const", dest="mode", const="smoke")
    parser.add_argument("--only", choices=("latency", "resources"))
    parser.add_argument("--resources", help="CAMERAS:PASSES,... instead of the mode's resource runs")
    parser.add_argument("--out", default=BENCH, help="folder of results.md and results-watch.json")
    parser.add_argument("--render-only", action="store_true")
    args = parser.parse_args(argv)
    saved = os.path.join(args.out, "results-watch.json")
    if args.render_only:
        with open(saved, encoding="utf-8") as f:
            render(json.load(f), args.out)
        return 0
    if not args.tool:
        parser.error("--tool is needed")
    tool, plan = os.path.abspath(args.tool), dict(MODES[args.mode])
    if args.resources:
        plan["resources"] = [tuple(map(int, item.split(":"))) for item in args.resources.split(",")]
    commit = subprocess.run(["git", "-C", REPO, "rev-parse", "--short", "HEAD"], capture_output=True,
                            text=True).stdout.strip()
    results = {"mode": args.mode, "date": time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()),
               "commits": {"latency": commit, "resources": commit}, "latency": [], "resources": []}
    with tempfile.TemporaryDirectory(prefix="aic-bench-watch-") as workdir:
        if args.only != "resources":
            for case in (c for c in LATENCY if c[0] in plan.get("latency", [c[0]])):
                say(f"watch latency: {case[1]}, {plan['plugs']} plug-ins")
                results["latency"].append(latency_case(*case, plan["plugs"], tool, workdir))
                say(json.dumps({k: v for k, v in results["latency"][-1].items() if k != "rows"}))
        if args.only != "latency":
            for cameras, passes in plan["resources"]:
                say(f"watch resources: {cameras} cameras, {passes} passes at --interval 0.2")
                results["resources"].append(resources_case(cameras, passes, tool, workdir))
                say(json.dumps(results["resources"][-1]))
    if args.only and os.path.exists(saved):  # read at the end: the other kind may have run meanwhile
        with open(saved, encoding="utf-8") as f:
            old = json.load(f)
        other = "latency" if args.only == "resources" else "resources"
        results[other] = old[other]
        results["commits"][other] = old["commits"][other]
    with open(saved, "w", encoding="utf-8") as f:
        json.dump(results, f, indent=1)
    render(results, args.out)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
