#!/usr/bin/python3
"""Benchmarks of the tool, run only inside camera labs (tools/lab.py network namespaces).

Runs the standard and the scale scenarios, and Aravis's arv-tool-0.8 beside the tool,
each run wrapped by bench/measure.py in the lab's host namespace, and writes
results.md (tables), results.json (one summary per run) and results.png (plot).

usage: bench.py --tool PATH [--quick | --smoke | --verbose-cost [--baseline PATH]] [--out DIR] [--render-only]
"""

import argparse
import bisect
import json
import os
import platform
import statistics
import subprocess
import sys
import tempfile
import time

BENCH = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(BENCH)
LAB = os.path.join(REPO, "tools", "lab.py")
MEASURE = os.path.join(BENCH, "measure.py")
PLOT = os.path.join(BENCH, "plot.gp")
PYTHON = "/usr/bin/python3"
TOOL = "autoipconfig"  # only ever started inside a lab host namespace, by measure.py
ARV = "arv-tool-0.8"
ARV_FLAG = "--gv-allow-broadcast-discovery-ack"

# The tool's fixed waits, in ms.
DISCOVERY_WINDOW = 500
THREAD_STAGGER = 1
PROBE_WAIT = 1000
PASS_SLEEP = 500
TIMEOUT_TAIL_S = 0.4  # a sleep after the newline only follows a confirmation that timed out

TOOL_PORTS = ("59001", "59002", "59003", "59004")
INSTANT = "0,0"       # cameras answer at once: the floor is the tool's own waits
STAGGERED = "0,30"    # the simulator's default spread of discovery answers
BURST = "0,5"         # every camera of a link answers a discovery within 5 ms
RUN_LIMIT_S = 150

STANDARD = [  # key, label, scenario file
    ("nothing", "nothing to fix", "nothing_to_fix.json"),
    ("fix2", "2 cameras to fix", "fix_2.json"),
    ("fix4x8", "4 interfaces x 8 cameras to fix", "fix_4x8.json"),
]
SCALE = [(1, 10), (1, 100), (1, 250), (1, 500), (1, 1000), (4, 250)]  # interfaces, cameras each
STOCK = (1000, 8)  # cameras on one link of a stock host, of them in a foreign subnet

RMEM_LEVER = 2 << 20  # bytes: the host setting an operator would raise (net.core.rmem_default)
MODES = {  # runs of each kind; scale cases; scale cases also run with the larger buffer
    "full": {"standard": ["nothing", "fix2", "fix4x8"], "std_runs": 5, "scale": SCALE, "scale_runs": 3,
             "lever": [(1, 250), (1, 500), (1, 1000), (4, 250)], "lever_runs": 2, "arv_runs": 3,
             "stock": STOCK, "stock_runs": 3},
    "quick": {"standard": ["nothing", "fix2", "fix4x8"], "std_runs": 2, "scale": [(1, 10), (1, 250), (1, 1000), (4, 250)],
              "scale_runs": 1, "lever": [(1, 1000)], "lever_runs": 1, "arv_runs": 1, "stock": STOCK, "stock_runs": 1},
    "smoke": {"standard": ["nothing"], "std_runs": 1, "scale": [(1, 10)], "scale_runs": 1,
              "lever": [(1, 10)], "lever_runs": 1, "arv_runs": 1, "stock": (10, 1), "stock_runs": 1},
}


def say(message):
    print(f"bench: {message}", file=sys.stderr, flush=True)


def median(values):
    values = [v for v in values if v is not None]
    return statistics.median(values) if values else None


# --- scenarios ------------------------------------------------------------------
def scale_scenario(interfaces, cameras):
    """Every camera already in its interface's /16, so nothing is re-addressed."""
    return {"description": f"{interfaces} x {cameras} cameras in the interface's subnet",
            "interfaces": [{
                "name": f"eth{i}", "addresses": [f"10.{i + 1}.0.5/16"],
                "generate": {"count": cameras, "mac_start": f"00:0f:31:{0xc0 + i:02x}:00:01",
                             "ip_start": f"10.{i + 1}.1.1", "mask": "255.255.0.0", "model": "BENCH-SCALE"}}
                for i in range(interfaces)]}


def stock_scenario(cameras, foreign):
    """One link of a stock host (the lab's default settings, no default route): most cameras in the
    interface's subnet, a few in another one, whose answers loose reverse-path filtering drops."""
    return {"description": f"{cameras} cameras on one link of a stock host, {foreign} in a foreign subnet",
            "interfaces": [{"name": "eth0", "addresses": ["10.1.0.5/16"], "generate": [
                {"count": cameras - foreign, "mac_start": "00:0f:31:d0:00:01", "ip_start": "10.1.1.1",
                 "mask": "255.255.0.0", "model": "BENCH-STOCK"},
                {"count": foreign, "mac_start": "00:0f:31:d1:00:01", "ip_start": "172.31.0.11",
                 "mask": "255.255.0.0", "model": "BENCH-FOREIGN"}]}]}


def camera_count(scenario):
    count = 0
    for itf in scenario["interfaces"]:
        count += len(itf.get("cameras", []))
        blocks = itf.get("generate", [])
        count += sum(block["count"] for block in (blocks if isinstance(blocks, list) else [blocks]))
    return count


def cases(mode, workdir):
    plan = MODES[mode]
    found = []
    for key, label, name in STANDARD:
        if key in plan["standard"]:
            path = os.path.join(BENCH, "scenarios", name)
            with open(path, encoding="utf-8") as f:
                found.append({"key": key, "label": label, "kind": "standard", "path": path, "scenario": json.load(f),
                              "window": INSTANT, "runs": plan["std_runs"], "lever_runs": 0})
    for interfaces, cameras in plan["scale"]:
        key = f"scale{interfaces}x{cameras}"
        scenario = scale_scenario(interfaces, cameras)
        path = os.path.join(workdir, key + ".json")
        with open(path, "w", encoding="utf-8") as f:
            json.dump(scenario, f)
        label = f"{cameras} cameras" if interfaces == 1 else f"{interfaces} interfaces x {cameras}"
        lever = plan["lever_runs"] if (interfaces, cameras) in plan["lever"] else 0
        found.append({"key": key, "label": label, "kind": "scale", "path": path, "scenario": scenario,
                      "window": STAGGERED, "runs": plan["scale_runs"], "lever_runs": lever})
    cameras, foreign = plan["stock"]
    scenario = stock_scenario(cameras, foreign)
    path = os.path.join(workdir, "stock.json")
    with open(path, "w", encoding="utf-8") as f:
        json.dump(scenario, f)
    found.append({"key": "stock", "label": f"stock host: {cameras} cameras, {foreign} foreign", "kind": "stock",
                  "path": path, "scenario": scenario, "window": BURST, "runs": plan["stock_runs"], "lever_runs": 0,
                  "foreign": foreign})
    for case in found:
        case["present"] = camera_count(case["scenario"])
        case["interfaces"] = sum(1 for i in case["scenario"]["interfaces"] if i.get("addresses"))
    return found


def build_shim(workdir):
    """The preload that gives the tool's UDP sockets a larger receive buffer (see rmem_shim.c)."""
    shim = os.path.join(workdir, "rmem_shim.so")
    subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-Wall", "-Wextra", "-Werror", "-o", shim,
                    os.path.join(BENCH, "rmem_shim.c"), "-ldl"], check=True)
    return shim


# --- one run in a lab -----------------------------------------------------------
def run_in_lab(case, command, record, env=()):
    """The lab runs measure.py in its host namespace; measure.py runs the command."""
    argv = [PYTHON, LAB, case["path"], "--window-ms", case["window"], "--timeout", str(RUN_LIMIT_S)]
    if record:
        argv += ["--record", record]
    argv += ["--", PYTHON, MEASURE] + [f"--env={item}" for item in env] + ["--", *command]
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"lab run of {case['key']} failed ({result.returncode}): {result.stderr[-2000:]}")
    return json.loads(result.stdout.strip().splitlines()[-1])


def load_record(path):
    with open(path, encoding="utf-8") as f:
        return [json.loads(line) for line in f if line.strip()]


def discovery_sends(entries):
    """Per interface, the times of the tool's discovery broadcasts (one record line per camera)."""
    sends = {}
    for e in entries:
        if e["cmd"] == "discovery" and e["src"].endswith(":59001"):
            times = sends.setdefault(e["iface"], [])
            if not times or e["t"] - times[-1] > 0.25:
                times.append(e["t"])
    return sends


def found_per_pass(entries, sends):
    """Cameras that got the access-status READREG, by enumeration pass (0 = the first)."""
    passes = {}
    for e in entries:
        if e["cmd"] == "readreg" and e["src"].endswith(":59001") and e["camera"] and e["iface"] in sends:
            index = bisect.bisect_right(sends[e["iface"]], e["t"]) - 1
            passes.setdefault(index, set()).add(e["camera"])
    return passes


def camera_waits(entries, sends):
    """Seconds the tool waited on camera answers one after another: the access-status READREGs of a
    pass run serially per interface and the interfaces in parallel (the slowest counts), then the
    force-IP acknowledges."""
    serial = {}
    for e in entries:
        if e["cmd"] == "readreg" and e["answer"] and e["src"].endswith(":59001") and e["iface"] in sends:
            key = (bisect.bisect_right(sends[e["iface"]], e["t"]) - 1, e["iface"])
            serial[key] = serial.get(key, 0.0) + e["answer"]["delay_ms"]
    slowest = {}
    for (index, _), ms in serial.items():
        slowest[index] = max(slowest.get(index, 0.0), ms)
    acks = sum(e["answer"]["delay_ms"] for e in entries if e["cmd"] == "forceip_ex" and e["answer"])
    return (sum(slowest.values()) + acks) / 1000


def progress(chunks):
    """Times of the progress dots and of the newline that ends them."""
    text, times = "", []
    for t, chunk in chunks:
        text += chunk
        times += [t] * len(chunk)
    start = text.find("Started!\n")
    if start < 0:
        return [], None
    i = start + len("Started!\n")
    dots = []
    while i < len(text) and text[i] == ".":
        dots.append(times[i])
        i += 1
    return dots, times[i] if i < len(text) and text[i] == "\n" else None


def udp_at(rows, t):
    """The last sampled counter row at or before t."""
    index = bisect.bisect_right([r[0] for r in rows], t) - 1
    return rows[max(index, 0)]


def peak_rate(rows, until, count, span=0.01):
    """Most events per second over any stretch of at least `span` seconds, `count` taken of a row."""
    rows = [r for r in rows if r[0] <= until]
    best = 0.0
    for i, row in enumerate(rows):
        for later in rows[i + 1:]:
            if later[0] - row[0] >= span:
                best = max(best, (count(later) - count(row)) / (later[0] - row[0]))
                break
    return round(best)


def udp_summary(m, until):
    """Rows are [time, InDatagrams (read by the application), RcvbufErrors, NoPorts, largest queue]."""
    rows = m["udp"]
    first, at, last = rows[0], udp_at(rows, until), rows[-1]
    return {"drops_first": at[2] - first[2], "reads_first": at[1] - first[1],
            "drops_total": last[2] - first[2], "noports_total": last[3] - first[3],
            "peak_queue_first": max(r[4] for r in rows if r[0] <= until),
            "peak_read_rate": peak_rate(rows, until, lambda r: r[1]),
            "peak_arrival_rate": peak_rate(rows, until, lambda r: r[1] + r[2])}


def floor_phases(n_if, probes, passes, timed_out):
    """The fixed waits of each phase, in seconds; threads start 1 ms apart, one per interface."""
    return {"startup": THREAD_STAGGER / 1000,
            "enum1": (DISCOVERY_WINDOW + (n_if - 1) * THREAD_STAGGER) / 1000,
            "planner": probes * PROBE_WAIT / 1000,
            "confirm": (passes * (DISCOVERY_WINDOW + n_if * THREAD_STAGGER) + max(passes - 1, 0) * PASS_SLEEP) / 1000,
            "exit": PASS_SLEEP / 1000 if timed_out else 0.0}


def analyse_tool(case, m, entries):
    dots, newline = progress(m["chunks"])
    sends = discovery_sends(entries)
    first_send = min((times[0] for times in sends.values()), default=m["start"])
    probes = [p[0] for p in m["probes"]]
    first_dot = dots[0] if dots else m["end"]
    enum1_end = min(probes[0], first_dot) if probes else first_dot
    newline = newline or m["end"]
    timed_out = m["end"] - newline > TIMEOUT_TAIL_S
    measured = {"startup": first_send - m["start"], "enum1": enum1_end - first_send,
                "planner": first_dot - enum1_end, "confirm": newline - first_dot, "exit": m["end"] - newline}
    floors = floor_phases(case["interfaces"], len(probes), len(dots), timed_out)
    passes = found_per_pass(entries, sends)
    forced = {e["camera"] for e in entries if e["cmd"] == "forceip_ex" and e["camera"]}
    report = "".join(chunk for _, chunk in m["chunks"])
    return {
        "key": case["key"], "tool": TOOL, "wall_s": m["wall_s"], "exit": m["exit"], "load1": m["load1"],
        "user_s": m["user_s"], "sys_s": m["sys_s"], "maxrss_kib": m["maxrss_kib"],
        "probes": len(probes), "passes": len(dots), "timed_out": timed_out, "forced": len(forced),
        "floor_s": round(sum(floors.values()), 4), "camera_s": round(camera_waits(entries, sends), 4),
        "phases": {k: round(v, 4) for k, v in measured.items()},
        "phase_floors": {k: round(v, 4) for k, v in floors.items()},
        "found_first": len(passes.get(0, set()) | forced),
        "found_passes": [len(passes.get(i, set())) for i in range(1, len(dots) + 1)],
        "enum1_s": round(enum1_end - m["start"], 4),
        "available": report.count(" available!"),
        **udp_summary(m, enum1_end),
    }


def analyse_arv(case, m, flag):
    listing = "".join(chunk for _, chunk in m["chunks"])
    devices = {line for line in listing.splitlines() if line.strip()}
    return {"key": case["key"], "tool": "arv+flag" if flag else "arv", "wall_s": m["wall_s"],
            "exit": m["exit"], "user_s": m["user_s"], "sys_s": m["sys_s"], "maxrss_kib": m["maxrss_kib"],
            "found": len(devices), **udp_summary(m, m["end"])}


def run_tool(case, tool, workdir, variant=None, env=(), args=()):
    record = os.path.join(workdir, "record.jsonl")
    started = time.monotonic()
    run = analyse_tool(case, run_in_lab(case, [tool, *args], record, env), load_record(record))
    run["variant"] = variant
    say(f"{case['key']}{' ' + variant if variant else ''}: {run['wall_s']:.2f} s (floor {run['floor_s']:.2f} s), "
        f"first enumeration found {run['found_first']}/{case['present']}, {run['drops_first']} dropped; "
        f"lab {time.monotonic() - started:.1f} s")
    return run


def run_case(case, tool, arv_runs, shim, workdir):
    runs = [run_tool(case, tool, workdir) for _ in range(case["runs"])]
    lever_env = (f"LD_PRELOAD={shim}", f"AIC_BENCH_RMEM={RMEM_LEVER}")
    runs += [run_tool(case, tool, workdir, "rmem", lever_env) for _ in range(case["lever_runs"])]
    for flag in (False, True):
        for _ in range(arv_runs):
            run = analyse_arv(case, run_in_lab(case, [ARV] + ([ARV_FLAG] if flag else []), None), flag)
            runs.append(run)
            say(f"{case['key']} {run['tool']}: {run['found']} listed in {run['wall_s']:.2f} s")
    return runs


VERBOSE_RUNS = 5


def run_verbose_cost(tool, workdir, baseline=None):
    """The standard cases without and with --verbose, and with a baseline build when given, in turn,
    so load drifts hit all alike."""
    runs, cases_seen = [], []
    for case in cases("full", workdir):
        if case["kind"] != "standard":
            continue
        cases_seen.append({k: case[k] for k in ("key", "label", "kind", "present", "interfaces", "window")})
        for _ in range(VERBOSE_RUNS):
            if baseline:
                runs.append(run_tool(case, baseline, workdir, "baseline"))
            runs.append(run_tool(case, tool, workdir))
            runs.append(run_tool(case, tool, workdir, "verbose", args=("--verbose",)))
    return {"cases": cases_seen, "runs": runs}


# --- rendering ------------------------------------------------------------------
def fmt(value, digits=2):
    if value is None:
        return "-"
    return f"{value:.{digits}f}" if isinstance(value, float) else str(value)


def spread(values):
    """Median, and [min–max] when the runs differ."""
    mid = median(values)
    text = fmt(mid, 0) if float(mid).is_integer() else fmt(float(mid), 1)
    return text if min(values) == max(values) else f"{text} [{min(values)}–{max(values)}]"


def runs_of(results, key, tool=TOOL, variant=None):
    return [r for r in results["runs"] if r["key"] == key and r["tool"] == tool and r.get("variant") == variant]


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(str(c) for c in row) + " |" for row in rows]
    return "\n".join(lines)


def own_overhead(run):
    """Run time less the fixed waits and the camera answers the tool waited for."""
    return run["wall_s"] - run["floor_s"] - run["camera_s"]


def standard_section(results):
    rows, phases = [], []
    for case in (c for c in results["cases"] if c["kind"] == "standard"):
        runs = runs_of(results, case["key"])
        rows.append([case["label"], case["interfaces"], case["present"], spread([r["forced"] for r in runs]),
                     spread([r["probes"] for r in runs]), spread([r["passes"] for r in runs]),
                     fmt(median([r["floor_s"] for r in runs]), 3), fmt(median([r["wall_s"] for r in runs]), 3),
                     fmt(median([r["wall_s"] / r["floor_s"] for r in runs]), 3),
                     fmt(median([r["camera_s"] * 1000 for r in runs]), 1),
                     fmt(median([own_overhead(r) * 1000 for r in runs]), 0),
                     fmt(median([100 * own_overhead(r) / r["floor_s"] for r in runs]), 1), len(runs)])
        over = {p: median([(r["phases"][p] - r["phase_floors"][p]) * 1000 for r in runs])
                for p in ("startup", "enum1", "planner", "confirm", "exit")}
        probes = median([r["probes"] for r in runs])
        phases.append([case["label"]] + [fmt(v, 1) for v in over.values()]
                      + [fmt(over["planner"] / probes, 1) if probes else "-"])
    return "\n\n".join([
        "## 1. Run time against the floor of the fixed waits",
        "Cameras answer every command at once (discovery window 0 ms). Floor = first discovery window (500 ms, +1 ms per "
        "further interface) + 1000 ms per ARP probe + per confirmation pass a 500 ms window (+1 ms per "
        "interface) + 500 ms sleep between passes. Probes are counted on the wire, passes from the "
        "progress dots. Camera answers = the answer delays the simulator recorded for the READREGs and "
        "force-IP acknowledges the tool waited for; the tool's own overhead is what remains above floor "
        "and camera answers. Medians; [min–max] where runs differ.",
        table(["scenario", "interfaces", "cameras", "re-addressed", "ARP probes", "passes", "floor (s)",
               "run time (s)", "run / floor", "camera answers (ms)", "own overhead (ms)", "own overhead (%)",
               "runs"], rows),
        "Where the time above the floor goes (median ms above each phase's fixed waits): start-up = process "
        "start to the first discovery on the wire; first enumeration = to the first ARP probe (or the first "
        "dot); planner = probes and force-IP exchanges; confirmation = first dot to the newline; exit = "
        "newline to process end (report, teardown).",
        table(["scenario", "start-up", "first enumeration", "planner", "confirmation", "exit",
               "planner, per probe"], phases)])


def scale_row(case, runs):
    found = [r["found_first"] for r in runs]
    return [case["label"], case["present"], spread(found), fmt(median([100.0 * f / case["present"] for f in found]), 1),
            spread([r["drops_first"] for r in runs]), fmt(median([r["peak_queue_first"] / 1024 for r in runs]), 1),
            fmt(median([r["peak_read_rate"] for r in runs]), 0), fmt(median([r["peak_arrival_rate"] for r in runs]), 0),
            spread([r["passes"] for r in runs]),
            sum(r["timed_out"] for r in runs), fmt(median([r["wall_s"] for r in runs]), 1),
            fmt(median([r["floor_s"] for r in runs]), 1), fmt(median([r["camera_s"] for r in runs]), 1),
            fmt(median([own_overhead(r) for r in runs]), 2), len(runs)]


def miss_note(case, runs):
    """How many of the misses the kernel's drops account for."""
    missed = case["present"] - median([r["found_first"] for r in runs])
    drops = median([r["drops_first"] for r in runs])
    if missed <= 0:
        return None
    return (f"- {case['label']}: {fmt(missed, 0)} of {case['present']} missed (median); the kernel dropped "
            f"{fmt(drops, 0)} answers in the first enumeration because the receiving socket's queue was full "
            f"(UDP RcvbufErrors of the lab's host namespace): {fmt(100.0 * drops / missed, 0)}% of the misses.")


def scale_section(results):
    scale = [c for c in results["cases"] if c["kind"] == "scale"]
    rows = [scale_row(c, runs_of(results, c["key"])) for c in scale]
    notes = [n for n in (miss_note(c, runs_of(results, c["key"])) for c in scale) if n]
    lever = [(c, runs_of(results, c["key"], variant="rmem")) for c in scale]
    lever_rows = [scale_row(c, runs) for c, runs in lever if runs]
    header = ["scenario", "present", "found by the first enumeration", "%", "dropped by the kernel",
              "peak queue (KiB)", "peak read rate (/s)", "peak arrival rate (/s)", "passes", "timed out", "run time (s)", "floor (s)",
              "camera answers (s)", "own overhead (s)", "runs"]
    parts = [
        "## 2. Discovery at scale",
        f"Cameras answer a discovery after a random delay of 0–30 ms and every other command at once (the "
        f"simulator's defaults), all inside the "
        f"interface's subnet, so nothing is re-addressed. Found = cameras that received the access-status "
        f"READREG (0x0A00) between the first and the second discovery of their interface, read from the "
        f"simulator's record. Dropped = UDP RcvbufErrors during the first enumeration; queue = largest receive "
        f"queue on the tool's ports, sampled every 5 ms (the kernel default buffer is "
        f"{results['machine']['rmem_default']} bytes); read rate = UDP datagrams read per second over the best "
        f"10 ms, arrival rate = datagrams read or dropped per second over the best 10 ms (a lower bound: "
        f"it leaves out what was still queued). These counters see UDP sockets only: with the raw-network "
        f"right the tool reads discovery acknowledges from a link-level socket and leaves its UDP sockets "
        f"unread, so their drops are no loss; found is what counts. Passes = confirmation passes (dots); a pass repeats while any camera of the first enumeration "
        f"is missing, until the 25 s limit ('timed out'). Floor, camera answers and own overhead as in "
        f"section 1: the access-status READREGs go to one camera after another, so every pass pays each "
        f"exchange's turnaround in turn.",
        table(header, rows),
        "\n".join(notes) if notes else "Every scenario found all cameras in the first enumeration."]
    if lever_rows:
        parts += [
            f"### The operator's lever: a larger default receive buffer ({RMEM_LEVER // 1024} KiB)",
            "net.core.rmem_default cannot be changed inside a network namespace on this kernel, so these runs "
            "emulate it: bench/rmem_shim.c, preloaded into the tool, gives each of its UDP sockets the receive "
            "buffer that setting would give. The tool's code is unchanged.",
            table(header, lever_rows)]
    return "\n\n".join(parts)


def cost_section(results):
    rows = []
    for case in results["cases"]:
        runs = runs_of(results, case["key"])
        rows.append([case["label"], fmt(median([r["user_s"] for r in runs]), 3), fmt(median([r["sys_s"] for r in runs]), 3),
                     fmt(median([r["user_s"] + r["sys_s"] for r in runs]), 3),
                     fmt(median([r["maxrss_kib"] / 1024 for r in runs]), 1), fmt(median([r["wall_s"] for r in runs]), 2),
                     fmt(median([r["load1"] for r in runs]), 1)])
    return "\n\n".join([
        "## 3. Cost of the tool",
        "CPU time (wait4) and peak resident set (GNU time's %M: the tool's own process) of the tool, medians "
        "over the runs above. Load = "
        "the machine's 1-minute load average when each run started (2 CPUs; other work competes with the "
        "tool and the simulator).",
        table(["scenario", "user (s)", "sys (s)", "user + sys (s)", "peak RSS (MiB)", "wall (s)", "load"], rows)])


def arv_section(results):
    rows = []
    for case in results["cases"]:
        tool, plain, flag = (runs_of(results, case["key"], t) for t in (TOOL, "arv", "arv+flag"))
        if not plain:
            continue
        rows.append([case["label"], case["present"], spread([r["found_first"] for r in tool]),
                     fmt(median([r["enum1_s"] for r in tool]), 2), spread([r["found"] for r in plain]),
                     fmt(median([r["wall_s"] for r in plain]), 2), spread([r["found"] for r in flag]),
                     fmt(median([r["wall_s"] for r in flag]), 2)])
    return "\n\n".join([
        "## 4. Side by side with arv-tool-0.8",
        f"`{ARV}` (no command: lists the devices) in the same labs, without and with `{ARV_FLAG}`. "
        "The tool's figures are its first enumeration: cameras found and time from process start to "
        "its end (first ARP probe or first dot). arv-tool's time is its whole run.",
        table(["scenario", "present", "tool: found", "tool: first enumeration (s)", "arv-tool: found",
               "arv-tool (s)", "arv-tool + flag: found", "arv-tool + flag (s)"], rows)])


def stock_section(results):
    rows = []
    for case in (c for c in results["cases"] if c["kind"] == "stock"):
        tool, plain, flag = (runs_of(results, case["key"], t) for t in (TOOL, "arv", "arv+flag"))
        rows.append([case["label"], case["present"], case["foreign"], spread([r["found_first"] for r in tool]),
                     spread([r["available"] for r in tool]), spread([r["forced"] for r in tool]),
                     spread([r["drops_first"] for r in tool]), spread([r["passes"] for r in tool]),
                     sum(r["timed_out"] for r in tool), fmt(median([r["wall_s"] for r in tool]), 1),
                     spread([r["found"] for r in plain]), fmt(median([r["wall_s"] for r in plain]), 2),
                     spread([r["found"] for r in flag]), fmt(median([r["wall_s"] for r in flag]), 2), len(tool)])
    return "\n\n".join([
        "## 5. A stock host",
        f"One link, the lab's default host settings (reverse-path filtering 2, accept_local 0, no default "
        f"route, the kernel's default receive buffer), every camera answering a discovery within 5 ms "
        f"(window {BURST} ms), other commands at once; a few cameras sit in a foreign subnet. Found = as in "
        f"section 2, plus the cameras re-addressed; listed = cameras the report shows available; "
        f"arv-tool-0.8 runs in the same lab.",
        table(["scenario", "present", "foreign", "tool: found by the first enumeration", "tool: listed",
               "re-addressed", "dropped by the kernel", "passes", "timed out", "tool: run time (s)",
               "arv-tool: found", "arv-tool (s)", "arv-tool + flag: found", "arv-tool + flag (s)", "runs"], rows)])


def kept_sections(path):
    """The sections other benches write into results.md survive a rerun: 6 and 7 (standard_path.py,
    conflicts.py) before the --verbose section, 9 (watch.py) after it."""
    old = open(path, encoding="utf-8").read() if os.path.exists(path) else ""
    start, end, after = old.find("\n## 6. "), old.find("\n## 8. "), old.find("\n## 9. ")
    before = old[start:end if end > start else after if after > start else None] if start >= 0 else ""
    return before.rstrip("\n"), (old[after:].strip("\n") if after >= 0 else "")

def verbose_section(verbose):
    variants = [v for v in ("baseline", None, "verbose") if runs_of(verbose, verbose["cases"][0]["key"], variant=v)]
    names = {"baseline": "baseline", None: "plain", "verbose": "-v"}
    header = ["scenario", "runs each"]
    for figure in ("run time (s)", "own overhead (ms)", "CPU (ms)", "peak RSS (MiB)"):
        header += [f"{figure}, {names[v]}" for v in variants]
    rows = []
    for case in verbose["cases"]:
        runs = [runs_of(verbose, case["key"], variant=v) for v in variants]
        row = [case["label"], len(runs[0])]
        row += [fmt(median([r["wall_s"] for r in each]), 3) for each in runs]
        row += [fmt(median([own_overhead(r) * 1000 for r in each]), 0) for each in runs]
        row += [fmt(median([(r["user_s"] + r["sys_s"]) * 1000 for r in each]), 1) for each in runs]
        row += [fmt(median([r["maxrss_kib"] / 1024 for r in each]), 2) for each in runs]
        same = len({r["forced"] for each in runs for r in each}) == 1
        rows.append(row + ["yes" if same else "no"])
    return "\n\n".join([
        "## 8. Cost of --verbose",
        f"`bench/run --verbose-cost [--baseline PATH]`: the standard cases of section 1, {VERBOSE_RUNS} runs each of "
        "the build before the diagnostics existed (baseline, when given), of this build without and with "
        "`--verbose`, in turn; the diagnostics go to a pipe read by the lab. Own overhead as in section 1; "
        "CPU = user + sys of the tool's own process (wait4), peak RSS from GNU time. Medians. Same moves = "
        f"every run re-addressed the same number of cameras. Run on {verbose['machine']['date']}, tool at "
        f"{verbose['machine']['commit']}.",
        table(header + ["same moves"], rows)])


def render_markdown(results, path, verbose=None):
    machine = results["machine"]
    head = "\n".join([
        "# Benchmarks",
        "",
        f"Generated by `bench/run` ({results['mode']} mode) on {machine['date']}: tool at {machine['commit']}, "
        f"kernel {machine['kernel']}, {machine['cpus']} CPUs, net.core.rmem_default {machine['rmem_default']}. "
        f"Every run is a fresh camera lab (tools/lab.py); the tool runs only inside the lab's namespaces.",
    ])
    body = [standard_section(results), scale_section(results), cost_section(results), arv_section(results),
            stock_section(results)]
    kept, after = kept_sections(path)
    tail = [kept] if kept else []
    tail += [verbose_section(verbose)] if verbose else []
    tail += [after] if after else []
    with open(path, "w", encoding="utf-8") as f:
        f.write(head + "\n\n" + "\n\n".join(body + tail) + "\n")


def write_plot_data(results, workdir):
    """Three data files for plot.gp: floors; discovery completeness (tool median, min, max,
    arv-tool, arv-tool with the flag, tool with the larger buffer); cost."""
    files = {name: os.path.join(workdir, name + ".dat") for name in ("standard", "scale", "cost")}
    with open(files["standard"], "w", encoding="utf-8") as f:
        for case in (c for c in results["cases"] if c["kind"] == "standard"):
            runs = runs_of(results, case["key"])
            f.write(f'"{case["label"]}" {median([r["floor_s"] for r in runs])} {median([r["wall_s"] for r in runs])}\n')
    with open(files["scale"], "w", encoding="utf-8") as f:
        for case in (c for c in results["cases"] if c["kind"] == "scale"):
            tool = [100.0 * r["found_first"] / case["present"] for r in runs_of(results, case["key"])]
            lever = [100.0 * r["found_first"] / case["present"] for r in runs_of(results, case["key"], variant="rmem")]
            arv = [median([100.0 * r["found"] / case["present"] for r in runs_of(results, case["key"], t)])
                   for t in ("arv", "arv+flag")]
            cells = [median(tool), min(tool), max(tool)] + arv + [median(lever)]
            f.write(f'"{case["label"]}" ' + " ".join("NaN" if c is None else f"{c:.2f}" for c in cells) + "\n")
    with open(files["cost"], "w", encoding="utf-8") as f:
        for case in results["cases"]:
            runs = runs_of(results, case["key"])
            f.write(f'"{case["label"]}" {median([r["user_s"] + r["sys_s"] for r in runs])} '
                    f'{median([r["maxrss_kib"] / 1024 for r in runs])}\n')
    return files


def render_plot(results, path, workdir):
    files = write_plot_data(results, workdir)
    subprocess.run(["gnuplot", "-e", f"out='{path}'; standard='{files['standard']}'; scale='{files['scale']}'; "
                    f"cost='{files['cost']}'", PLOT], check=True)


# --- main -----------------------------------------------------------------------
def machine_facts(tool):
    commit = subprocess.run(["git", "-C", REPO, "describe", "--always", "--dirty"],
                            capture_output=True, text=True).stdout.strip() or "unknown"
    with open("/proc/sys/net/core/rmem_default", encoding="ascii") as f:
        rmem = int(f.read())
    return {"date": time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()), "commit": commit,
            "kernel": platform.release(), "cpus": os.cpu_count(), "rmem_default": rmem, "tool": tool}


def parse_args():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", help="the tool's executable (run only inside labs)")
    group = parser.add_mutually_exclusive_group()
    group.add_argument("--quick", action="store_true", help="fewer runs and scales (a few minutes)")
    group.add_argument("--smoke", action="store_true", help="one small run of each kind (under a minute)")
    group.add_argument("--verbose-cost", action="store_true",
                       help="only the standard cases without and with --verbose (results_verbose.json)")
    parser.add_argument("--baseline", help="with --verbose-cost: an earlier build to run beside them")
    parser.add_argument("--out", default=BENCH, help="directory for results.md, results.json, results.png")
    parser.add_argument("--render-only", action="store_true", help="redraw from OUT/results.json")
    return parser.parse_args()


def main():
    args = parse_args()
    os.makedirs(args.out, exist_ok=True)
    paths = {ext: os.path.join(args.out, "results." + ext) for ext in ("md", "json", "png")}
    paths["verbose"] = os.path.join(args.out, "results_verbose.json")
    with tempfile.TemporaryDirectory(prefix="aic-bench-") as workdir:
        if not args.render_only and (os.geteuid() != 0 or not args.tool):
            sys.exit("bench.py: needs root (the labs are network namespaces) and --tool")
        if args.verbose_cost:
            baseline = os.path.abspath(args.baseline) if args.baseline else None
            verbose = dict(run_verbose_cost(os.path.abspath(args.tool), workdir, baseline),
                           machine=machine_facts(args.tool))
            with open(paths["verbose"], "w", encoding="utf-8") as f:
                json.dump(verbose, f, indent=1)
        verbose = None
        if os.path.exists(paths["verbose"]):
            with open(paths["verbose"], encoding="utf-8") as f:
                verbose = json.load(f)
        if args.render_only or args.verbose_cost:
            with open(paths["json"], encoding="utf-8") as f:
                results = json.load(f)
        else:
            mode = "smoke" if args.smoke else "quick" if args.quick else "full"
            results = {"mode": mode, "machine": machine_facts(args.tool), "cases": [], "runs": []}
            started = time.monotonic()
            shim = build_shim(workdir)
            for case in cases(mode, workdir):
                say(f"{case['key']}: {case['label']}, {case['present']} cameras, window {case['window']} ms")
                results["runs"] += run_case(case, os.path.abspath(args.tool), MODES[mode]["arv_runs"], shim, workdir)
                results["cases"].append({k: case[k] for k in ("key", "label", "kind", "present", "interfaces", "window",
                                                              "foreign") if k in case})
            results["machine"]["duration_s"] = round(time.monotonic() - started)
            with open(paths["json"], "w", encoding="utf-8") as f:
                json.dump(results, f, indent=1)
        render_markdown(results, paths["md"], verbose)
        if not args.verbose_cost:  # its figures are the table's alone
            render_plot(results, paths["png"], workdir)
    say(f"wrote {paths['md']}, {paths['json']} and {paths['png']}")


if __name__ == "__main__":
    main()
