#!/usr/bin/python3
"""Runs the tool in watch mode in a camera lab built from one case file, acts on the lab while it
runs, and checks the events it printed and what the cameras received.

A case file is a lab scenario (its "interfaces", maybe "second_host") plus:
  "interval":  the tool's --interval (default 10); "args": more of its arguments ($GVLAB_RECORD_DIR
               in them is the lab's folder, removed with it)
  "actions":   in time order, seconds after the tool started: {"at": 3.0, "do": "plug MAC"}
               ("unplug MAC", "cycle MAC": a power cycle), {"at": 4, "do": "shell", "cmd": "ip -n
               $GVLAB_HOST_NS ..."} (the lab's variables are set, $WATCH_DIR is this folder),
               {"at": 9, "do": "sigterm"} ("sigint"), {"at": 5, "do": "sighup"} (a reload), {"at": 20, "do": "sample"} (the tool's memory,
               descriptors, threads and CPU time, each the least over 2 s); a negative "at" acts before the tool starts
  "events":    events expected in this order (others may come between): the fields each must carry,
               a field {"re": PATTERN} matched by search, "by": at most that many seconds after the
               start, "after": at least that many, "once": no other event matches it
  "never":     fields of events that must not appear ("after": not from that many seconds on)
Optional: "exit" (status, default 0) within "exit_within_s" (default 1.0) of the signal, "stderr"
(the tool's lines, default none; a line {"re": PATTERN} is matched by search), "forceip_ex"/"forceip" (every such command, as the end-to-end
cases write them), "commands_at_most" ({"forceip_ex": 3}: no flood; "forceip_ex eth0": those sent
from eth0; "discovery 00-0F-31-00-00-01": those that camera received), "commands_at_least", "final"
(registers at the end, as there), "second_tool" (arguments of a copy of the tool run with --watch
--json on the second host, stopped with the first), "resources" (between the first and last sample:
{"rss_growth_kib": 512, "cpu_s": 1.0}; descriptors and threads must not change) and "notify"
({"watchdog_usec": 2000000}: the tool gets NOTIFY_SOCKET and WATCHDOG_USEC; READY=1 must come once,
after the first event line, STATUS= at least "status_at_least" times (default 1), WATCHDOG=1 at least
every half period, STOPPING=1 last, after the signal). Every line on stdout must be a JSON object
with "time" (RFC 3339, UTC, milliseconds), "event" and "interface" (but a "config" event). With "text": true the tool runs
without --json: stdout starts with the "stdout_first" lines (the progress line written "<dots>"),
then every line starts with the time, and "events"/"never" match {"line": {"re": ...}}.

usage: run_watch.py --tool PATH CASE.json
"""

import glob
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))
import run_case  # noqa: E402  the end-to-end runner: lab location and record readers

PYTHON = "/usr/bin/python3"
TIME = re.compile(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
SIGNALS = {"sigterm": signal.SIGTERM, "sigint": signal.SIGINT}
CONTROLS = ("plug", "unplug", "cycle")
KILL_AFTER_S = 5.0   # a tool that ignores its signal this long is killed
SAMPLE_READINGS, SAMPLE_STEP_S = 40, 0.05  # a sample spans two passes at the shortest interval
READ_SLACK_S = 0.05  # the stdout and notify readers are threads: one may note a line a little late
LAB_SLACK_S = 60     # lab bring-up and teardown around the actions


# --- inside the lab's host namespace: start the tool, act, note what it printed and when ---
class Driver:
    def __init__(self, argv, notify, setup):
        self.lines, self.stderr, self.problems, self.samples, self.notes = [], [], [], [], []
        self.started = time.monotonic()
        # the tool's remembered addresses stay in the lab; an unprivileged tool must write them too
        state = os.path.join(os.environ["GVLAB_RECORD_DIR"], "state")
        os.makedirs(state, exist_ok=True)
        os.chmod(os.environ["GVLAB_RECORD_DIR"], 0o711)
        os.chmod(state, 0o777)
        for action in setup:  # timed from here; the tool's own clock starts below
            self.act(action)
        env = dict(os.environ, STATE_DIRECTORY=state)
        self.readers = []
        if notify is not None:
            env.update(NOTIFY_SOCKET=notify[0].getsockname(), WATCHDOG_USEC=str(notify[1]))
            self.readers.append(threading.Thread(target=self.listen, args=(notify[0],)))
        self.started = time.monotonic()
        argv = [os.path.expandvars(word) for word in argv]
        self.tool = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)
        self.readers += [threading.Thread(target=self.read, args=(self.tool.stdout, True)),
                         threading.Thread(target=self.read, args=(self.tool.stderr, False))]
        for reader in self.readers:
            reader.start()
        self.signalled = self.exited = None

    def now(self):
        return round(time.monotonic() - self.started, 3)

    def read(self, stream, is_stdout):
        for line in stream:
            if is_stdout:
                self.lines.append([self.now(), line.rstrip("\n")])
                print(f"[{self.now():7.3f}] {line}", end="", flush=True)
            else:
                self.stderr.append(line.rstrip("\n"))

    def listen(self, notify):
        """Every notify message until the tool has ended: [seconds, line] per assignment."""
        notify.settimeout(0.2)
        while True:
            try:
                message = notify.recv(4096).decode("utf-8", "replace")
            except socket.timeout:
                if self.exited is not None:
                    return
                continue
            for line in filter(None, message.split("\n")):
                self.notes.append([self.now(), line])
                if line != "WATCHDOG=1":
                    print(f"[{self.now():7.3f}] notify {line}", flush=True)

    def reading(self):
        """The tool's resident memory (KiB), descriptors, threads and CPU seconds now."""
        proc = f"/proc/{self.tool.pid}"
        with open(f"{proc}/status", encoding="ascii") as f:
            status = dict(line.split(":", 1) for line in f)
        with open(f"{proc}/stat", encoding="ascii") as f:
            ticks = f.read().rsplit(")", 1)[1].split()
        return {"at": self.now(), "rss_kib": int(status["VmRSS"].split()[0]), "fds": len(os.listdir(f"{proc}/fd")),
                "threads": int(status["Threads"]), "cpu_s": (int(ticks[11]) + int(ticks[12])) / os.sysconf("SC_CLK_TCK")}

    def sample(self):
        """The fewest of each over a while: a pass holds sockets and threads only while it runs."""
        readings = []
        for _ in range(SAMPLE_READINGS):
            readings.append(self.reading())
            time.sleep(SAMPLE_STEP_S)
        self.samples.append(dict(readings[0], **{key: min(r[key] for r in readings)
                                                 for key in ("rss_kib", "fds", "threads")}))
        print(f"[{self.now():7.3f}] sample {self.samples[-1]}", flush=True)

    def act(self, action):
        words = action["do"].split()
        print(f"[{self.now():7.3f}] do {action['do']} {action.get('cmd', '')}", flush=True)
        if words[0] in CONTROLS and len(words) == 2:
            for pipe in glob.glob(os.path.join(os.environ["GVLAB_RECORD_DIR"], "*.ctl")):
                with open(pipe, "w", encoding="ascii") as f:
                    f.write(action["do"] + "\n")
        elif words == ["shell"]:
            done = subprocess.run(["sh", "-c", action["cmd"]], capture_output=True, text=True,
                                  env=dict(os.environ, WATCH_DIR=HERE))
            if done.returncode:
                self.problems.append(f"shell action failed ({done.returncode}): {action['cmd']}: {done.stderr}")
        elif words == ["sighup"] and self.tool.poll() is None:
            self.tool.send_signal(signal.SIGHUP)
        elif words == ["sample"] and self.tool.poll() is None:
            self.sample()
        elif words[0] in SIGNALS and self.tool.poll() is None:
            self.tool.send_signal(SIGNALS[words[0]])
            self.signalled = self.now()
        elif words[0] in SIGNALS:
            self.problems.append(f"ended on its own by {self.exited} s, before the {words[0]}")
        else:
            self.problems.append(f"unknown action {action}")

    def run(self, actions):
        for action in actions:
            time.sleep(max(0.0, self.started + action["at"] - time.monotonic()))
            if self.tool.poll() is not None and self.exited is None:
                self.exited = self.now()
            self.act(action)
        if self.signalled is None and self.tool.poll() is None:
            self.problems.append("no signal action ended the tool: SIGTERM sent")
            self.tool.send_signal(signal.SIGTERM)
            self.signalled = self.now()
        try:
            code = self.tool.wait(timeout=KILL_AFTER_S)
        except subprocess.TimeoutExpired:
            self.tool.kill()
            code = self.tool.wait()
            self.problems.append(f"still running {KILL_AFTER_S} s after the signal: killed")
        if self.exited is None:
            self.exited = self.now()
        for reader in self.readers:
            reader.join()
        return {"lines": self.lines, "stderr": self.stderr, "exit": code, "signalled": self.signalled,
                "exited": self.exited, "problems": self.problems, "samples": self.samples, "notes": self.notes}


def start_second(argv):
    """Another copy of the tool on the second host; its lines are shown, not checked."""
    second = subprocess.Popen(["ip", "netns", "exec", os.environ["GVLAB_SECOND_HOST_NS"], *argv], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    started = time.monotonic()
    threading.Thread(target=lambda: [print(f"[{time.monotonic() - started:7.3f}] second: {line}", end="",
                                           flush=True) for line in second.stdout], daemon=True).start()
    return second


def stop_second(second, problems):
    second.terminate()
    try:
        code = second.wait(timeout=KILL_AFTER_S)
    except subprocess.TimeoutExpired:
        second.kill()
        code = second.wait()
    if code:
        problems.append(f"the second host's tool ended with {code}")


def drive(case_path, result_path, argv):
    with open(case_path, encoding="utf-8") as f:
        case = json.load(f)
    actions = sorted(case.get("actions", []), key=lambda a: a["at"])
    second = start_second([argv[0], "--watch", "--json", *case["second_tool"]]) if "second_tool" in case else None
    problems = []
    notify = None
    with tempfile.TemporaryDirectory(prefix="aic-notify-") as work:
        if "notify" in case:
            # a filesystem socket: the tool reaches it from any network namespace
            notify = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM), case["notify"]["watchdog_usec"])
            notify[0].bind(os.path.join(work, "notify"))
        try:
            result = Driver(argv, notify, [a for a in actions if a["at"] < 0]).run(
                [a for a in actions if a["at"] >= 0])
        finally:
            if second:
                stop_second(second, problems)
    result["problems"] += problems
    with open(result_path, "w", encoding="utf-8") as f:
        json.dump(result, f)
    return 0


# --- outside: the lab around the driver, then the checks -------------------------------------
def matches(event, wanted):
    for key, value in wanted.items():
        if key in ("by", "after", "once"):
            continue
        if isinstance(value, dict):
            if not isinstance(event.get(key), str) or not re.search(value["re"], event[key]):
                return False
        elif event.get(key) != value:
            return False
    return True


def parsed_events(lines, problems):
    """(arrival s, object) per line; a line that is not a well-formed event is a problem."""
    events = []
    for at, line in lines:
        try:
            event = json.loads(line)
        except ValueError:
            event = None
        if (not isinstance(event, dict) or not TIME.match(str(event.get("time")))
                or not isinstance(event.get("event"), str) or ("interface" not in event and event["event"] != "config")):
            problems.append(f"not an event line at {at} s: {line}")
            continue
        events.append((at, event))
    return events


def text_events(case, lines, problems):
    """Without --json: the report as a plain run prints it, then one time-stamped line per event."""
    report = case["stdout_first"]
    run_case.compare("report", report, run_case.normalised("\n".join(line for _, line in lines[:len(report)]))[0],
                     problems)
    events = [(at, {"line": line}) for at, line in lines[len(report):]]
    problems += [f"event line without a time at {at} s: {e['line']}" for at, e in events
                 if not TIME.match(e["line"].split(" ")[0])]
    return events


def event_problems(case, events):
    problems, start = [], 0
    for wanted in case.get("events", []):
        found = next((i for i in range(start, len(events)) if matches(events[i][1], wanted)), None)
        if found is None:
            problems.append(f"no event matching {wanted} after event {start}")
            continue
        at = events[found][0]
        if at > wanted.get("by", float("inf")) or at < wanted.get("after", 0):
            problems.append(f"event {events[found][1]} came at {at} s, expected within "
                            f"[{wanted.get('after', 0)}, {wanted.get('by', 'end')}]")
        start = found + 1
        if wanted.get("once") and any(matches(event, wanted) for _, event in events[start:]):
            problems.append(f"more than one event matching {wanted}")
    for unwanted in case.get("never", []):
        problems += [f"unexpected event at {at} s: {event}" for at, event in events
                     if matches(event, unwanted) and at >= unwanted.get("after", 0)]
    return problems


def command_count(record, key):
    """Commands of one name received: by every camera, or only those a second word names by the
    camera ("discovery 00-0F-31-00-00-01") or the interface that sent them ("forceip_ex eth0")."""
    name, *who = key.split()
    return len([e for e in run_case.received(record, name) if not who or who[0] in (e["camera"], e["iface"])])


def record_problems(case, record):
    problems = []
    for name, lines in (("forceip_ex", run_case.forceip_ex_lines), ("forceip", run_case.forceip_lines)):
        if name in case:
            run_case.compare(f"{name} commands", case[name], lines(run_case.received(record, name), problems),
                             problems)
    for name, most in case.get("commands_at_most", {}).items():
        if command_count(record, name) > most:
            problems.append(f"{command_count(record, name)} {name} commands, at most {most} expected")
    for name, least in case.get("commands_at_least", {}).items():
        if command_count(record, name) < least:
            problems.append(f"{command_count(record, name)} {name} commands, at least {least} expected")
    run_case.final_problems(case, record, problems)
    return problems


def sanitized(tool):
    """A sanitizer's shadow memory, threads and slowdown are not the tool's: only descriptors count."""
    with open(tool, "rb") as f:
        binary = f.read()
    return b"__asan_init" in binary or b"__tsan_init" in binary


def resource_problems(limits, samples, tool):
    if len(samples) < 2:
        return ["fewer than two samples of the tool's resources"]
    first, last = samples[0], samples[-1]
    if sanitized(tool):
        return [f"descriptors went from {first['fds']} to {last['fds']}"] if first["fds"] != last["fds"] else []
    problems = [f"{name} went from {first[name]} to {last[name]}"
                for name in ("fds", "threads") if first[name] != last[name]]
    if last["rss_kib"] - first["rss_kib"] > limits.get("rss_growth_kib", 0):
        problems.append(f"resident memory grew from {first['rss_kib']} to {last['rss_kib']} KiB")
    if last["cpu_s"] - first["cpu_s"] > limits.get("cpu_s", float("inf")):
        problems.append(f"{last['cpu_s'] - first['cpu_s']:.2f} s of CPU between {first['at']} and {last['at']} s")
    return problems


def notify_problems(expected, result):
    notes, problems = result["notes"], []
    said = [line for _, line in notes]
    ready = [at for at, line in notes if line == "READY=1"]
    first_line = result["lines"][0][0] if result["lines"] else None
    if len(ready) != 1 or first_line is None or ready[0] + READ_SLACK_S < first_line:
        problems.append(f"READY=1 at {ready}, expected once after the first event line at {first_line} s")
    statuses = [at for at, line in notes if line.startswith("STATUS=")]
    if len(statuses) < expected.get("status_at_least", 1):
        problems.append(f"{len(statuses)} STATUS= messages at {statuses}")
    pings = [0.0] + [at for at, line in notes if line == "WATCHDOG=1"] + [result["signalled"] or 0.0]
    gap = max(b - a for a, b in zip(pings, pings[1:]))
    if gap > expected["watchdog_usec"] / 2e6:
        problems.append(f"WATCHDOG=1 {gap:.3f} s apart, at {pings}")
    if not said or said[-1] != "STOPPING=1" or notes[-1][0] < (result["signalled"] or 0) or said.count("STOPPING=1") != 1:
        problems.append(f"STOPPING=1 not once and last after the signal: {notes[-3:]}")
    unknown = [line for line in said if line.split("=")[0] not in ("READY", "STATUS", "WATCHDOG", "STOPPING")]
    return problems + [f"unexpected notify message {line}" for line in unknown]


def check(case, result, record, tool):
    problems = list(result["problems"])
    read = text_events if case.get("text") else lambda _, lines, problems: parsed_events(lines, problems)
    problems += event_problems(case, read(case, result["lines"], problems))
    if result["exit"] != case.get("exit", 0):
        problems.append(f"exit status {result['exit']}")
    if result["signalled"] is not None and result["exited"] - result["signalled"] > case.get("exit_within_s", 1.0):
        problems.append(f"exited {result['exited'] - result['signalled']:.3f} s after the signal")
    wanted = case.get("stderr", [])
    if len(result["stderr"]) != len(wanted) or not all(
            re.search(w["re"], line) if isinstance(w, dict) else w == line for w, line in zip(wanted, result["stderr"])):
        problems.append("standard error: " + "\n".join(result["stderr"]))
    if "resources" in case:
        problems += resource_problems(case["resources"], result["samples"], tool)
    if "notify" in case:
        problems += notify_problems(case["notify"], result)
    return problems + record_problems(case, record)


def main(argv):
    if argv[:1] == ["--drive"]:
        return drive(argv[1], argv[2], argv[3:])
    with tempfile.TemporaryDirectory(prefix="aic-watch-") as work:
        args, case = run_case.tool_and_case(argv, __doc__.splitlines()[0], work)
        tool = [*run_case.tool_command(case, os.path.abspath(args.tool)), "--watch",
                *([] if case.get("text") else ["--json"]), "--interval", str(case.get("interval", 10))]
        last = max([a["at"] for a in case.get("actions", [])] + [0])
        record, result_path = os.path.join(work, "record.jsonl"), os.path.join(work, "result.json")
        command = [PYTHON, run_case.LAB, args.case, "--record", record, "--timeout", str(last + LAB_SLACK_S),
                   "--", PYTHON, os.path.abspath(__file__), "--drive", os.path.abspath(args.case), result_path,
                   *tool, *case.get("args", [])]
        print("run: " + " ".join(command), flush=True)
        lab = subprocess.run(command, capture_output=True, text=True)
        sys.stdout.write(lab.stderr + lab.stdout)
        if not os.path.exists(result_path) or not os.path.exists(record):
            problems = [f"the lab ended with {lab.returncode} before the driver wrote its result"]
        else:
            with open(result_path, encoding="utf-8") as f:
                problems = check(case, json.load(f), record, os.path.abspath(args.tool))
    for problem in problems:
        print("FAIL: " + problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
