#!/usr/bin/python3
"""Runs the tool in watch mode in a camera lab built from one case file, acts on the lab while it
runs, and checks the events it printed and what the cameras received.

A case file is a lab scenario (its "interfaces", maybe "second_host") plus:
  "interval":  the tool's --interval (default 10); "args": more of its arguments
  "actions":   in time order, seconds after the tool started: {"at": 3.0, "do": "plug MAC"}
               ("unplug MAC", "cycle MAC": a power cycle), {"at": 4, "do": "shell", "cmd": "ip -n
               $GVLAB_HOST_NS ..."} (the lab's variables are set), {"at": 9, "do": "sigterm"} ("sigint")
  "events":    events expected in this order (others may come between): the fields each must carry,
               a field {"re": PATTERN} matched by search, "by": at most that many seconds after the
               start, "after": at least that many, "once": no other event matches it
  "never":     fields of events that must not appear ("after": not from that many seconds on)
Optional: "exit" (status, default 0) within "exit_within_s" (default 1.0) of the signal, "stderr"
(the tool's lines, default none), "forceip_ex"/"forceip" (every such command, as the end-to-end
cases write them), "commands_at_most" ({"forceip_ex": 3}: no flood; "forceip_ex eth0": from eth0),
"final" (registers at the end, as there), "second_tool" (arguments of a copy of the tool run with
--watch --json on the second host, stopped with the first). Every line on stdout must be a JSON
object with "time" (RFC 3339, UTC, milliseconds), "event" and "interface". With "text": true the tool runs without --json: stdout starts with the
"stdout_first" lines (the progress line written "<dots>"), then every line starts with the time, and
"events"/"never" match {"line": {"re": ...}}.

usage: run_watch.py --tool PATH CASE.json
"""

import glob
import json
import os
import re
import signal
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
LAB_SLACK_S = 60     # lab bring-up and teardown around the actions


# --- inside the lab's host namespace: start the tool, act, note what it printed and when ---
class Driver:
    def __init__(self, argv):
        self.lines, self.stderr, self.problems = [], [], []
        self.started = time.monotonic()
        self.tool = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.readers = [threading.Thread(target=self.read, args=(self.tool.stdout, True)),
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

    def act(self, action):
        words = action["do"].split()
        print(f"[{self.now():7.3f}] do {action['do']} {action.get('cmd', '')}", flush=True)
        if words[0] in CONTROLS and len(words) == 2:
            for pipe in glob.glob(os.path.join(os.environ["GVLAB_RECORD_DIR"], "*.ctl")):
                with open(pipe, "w", encoding="ascii") as f:
                    f.write(action["do"] + "\n")
        elif words == ["shell"]:
            done = subprocess.run(["sh", "-c", action["cmd"]], capture_output=True, text=True)
            if done.returncode:
                self.problems.append(f"shell action failed ({done.returncode}): {action['cmd']}: {done.stderr}")
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
                "exited": self.exited, "problems": self.problems}


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
    try:
        result = Driver(argv).run(actions)
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
                or not isinstance(event.get("event"), str) or "interface" not in event):
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


def record_problems(case, record):
    problems = []
    for name, lines in (("forceip_ex", run_case.forceip_ex_lines), ("forceip", run_case.forceip_lines)):
        if name in case:
            run_case.compare(f"{name} commands", case[name], lines(run_case.received(record, name), problems),
                             problems)
    for name, most in case.get("commands_at_most", {}).items():
        command, _, iface = name.partition(" ")  # "forceip_ex eth0": only those sent from eth0
        count = len([e for e in run_case.received(record, command) if iface in ("", e["iface"])])
        if count > most:
            problems.append(f"{count} {name} commands, at most {most} expected")
    run_case.final_problems(case, record, problems)
    return problems


def check(case, result, record):
    problems = list(result["problems"])
    read = text_events if case.get("text") else lambda _, lines, problems: parsed_events(lines, problems)
    problems += event_problems(case, read(case, result["lines"], problems))
    if result["exit"] != case.get("exit", 0):
        problems.append(f"exit status {result['exit']}")
    if result["signalled"] is not None and result["exited"] - result["signalled"] > case.get("exit_within_s", 1.0):
        problems.append(f"exited {result['exited'] - result['signalled']:.3f} s after the signal")
    if result["stderr"] != case.get("stderr", []):
        problems.append("standard error: " + "\n".join(result["stderr"]))
    return problems + record_problems(case, record)


def main(argv):
    if argv[:1] == ["--drive"]:
        return drive(argv[1], argv[2], argv[3:])
    args, case = run_case.tool_and_case(argv, __doc__.splitlines()[0])
    tool = [os.path.abspath(args.tool), "--watch", *([] if case.get("text") else ["--json"]),
            "--interval", str(case.get("interval", 10))]
    last = max([a["at"] for a in case.get("actions", [])] + [0])
    with tempfile.TemporaryDirectory(prefix="aic-watch-") as work:
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
                problems = check(case, json.load(f), record)
    for problem in problems:
        print("FAIL: " + problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
