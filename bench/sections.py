"""The one place that writes a section of its own into results.md, which several benches share."""

import json
import os
import re


def write_section(path, heading, text):
    """Replaces the section under `heading`, or appends it; every other section stays as it is."""
    old = open(path, encoding="utf-8").read() if os.path.exists(path) else "# Benchmarks\n"
    pattern = re.compile(re.escape(heading) + r".*?(?=^## |\Z)", re.S | re.M)
    new = pattern.sub(lambda _: text + "\n\n", old) if pattern.search(old) else old.rstrip("\n") + "\n\n" + text
    with open(path, "w", encoding="utf-8") as f:
        f.write(new.rstrip("\n") + "\n")


def publish(out, data_name, data, heading, text):
    """Saves a bench's figures as out/data_name and its section in out/results.md, and prints the section."""
    with open(os.path.join(out, data_name), "w", encoding="utf-8") as f:
        json.dump(data, f, indent=1)
    write_section(os.path.join(out, "results.md"), heading, text)
    print(text)
