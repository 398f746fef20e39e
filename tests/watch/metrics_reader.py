#!/usr/bin/python3
"""Reads the tool's metrics file as fast as it can while a watch case runs, then checks it.

  metrics_reader.py read DIR           until DIR/stop exists: reads DIR/metrics.prom in a loop; every
                                       read that is not a whole file is kept in DIR/partial; the
                                       number of whole reads goes to DIR/reads at the end
  metrics_reader.py check DIR RE...    stops the reader; fails unless it read whole files only, and
                                       many, promtool accepts the last one and each RE matches a line
"""

import os
import re
import subprocess
import sys
import time

FIRST = "# HELP autoipconfig_cameras "
LAST = re.compile(r'^autoipconfig_build_info\{version="[^"]*"\} 1$')
FEWEST_READS = 20  # a loaded 2-core CI machine still reads this often
READ_LIMIT_S = 120


def read(folder):
    path, whole, give_up = os.path.join(folder, "metrics.prom"), 0, time.monotonic() + READ_LIMIT_S
    # the lab removes its folder when it ends: no reader outlives it
    while os.path.isdir(folder) and not os.path.exists(os.path.join(folder, "stop")) and time.monotonic() < give_up:
        try:
            with open(path, encoding="utf-8") as f:
                text = f.read()
        except FileNotFoundError:
            continue
        lines = text.split("\n")
        if text.startswith(FIRST) and lines[-1] == "" and LAST.match(lines[-2]):
            whole += 1
        else:
            with open(os.path.join(folder, "partial"), "a", encoding="utf-8") as f:
                f.write(f"--- {len(text)} bytes:\n{text}\n")
    # renamed into place: the checker polls for the file and must never read it empty
    with open(os.path.join(folder, "reads.tmp"), "w", encoding="ascii") as f:
        f.write(str(whole))
    os.replace(os.path.join(folder, "reads.tmp"), os.path.join(folder, "reads"))


def check(folder, patterns):
    open(os.path.join(folder, "stop"), "w").close()
    reads = os.path.join(folder, "reads")
    for _ in range(50):
        if os.path.exists(reads):
            break
        time.sleep(0.1)
    problems = []
    if os.path.exists(os.path.join(folder, "partial")):
        with open(os.path.join(folder, "partial"), encoding="utf-8") as f:
            problems.append("the reader saw part of a file:\n" + f.read()[:2000])
    whole = int(open(reads, encoding="ascii").read()) if os.path.exists(reads) else 0
    if whole < FEWEST_READS:
        problems.append(f"{whole} whole reads, at least {FEWEST_READS} expected")
    path = os.path.join(folder, "metrics.prom")
    text = open(path, encoding="utf-8").read() if os.path.exists(path) else ""
    promtool = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True)
    if promtool.returncode or promtool.stdout or promtool.stderr:
        problems.append(f"promtool: {promtool.stdout}{promtool.stderr}")
    if not text or os.stat(path).st_mode & 0o777 != 0o644:
        problems.append("no metrics file, or not mode 0644")
    problems += [f"no line matches {p}" for p in patterns if not re.search(p, text, re.M)]
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        print(text, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    if sys.argv[1] == "read":
        sys.exit(read(sys.argv[2]))
    sys.exit(check(sys.argv[2], sys.argv[3:]))
