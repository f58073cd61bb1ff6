# SPDX-License-Identifier: Apache-2.0

"""docs/performance.md: what stands between the markers is measured, the rest is prose."""

import datetime
import os
import re
import subprocess

BEGIN, END = "<!-- measured: {} -->", "<!-- end of {} -->"


def put(path, name, text):
    """Puts the text between the markers of that name; a new pair is added at the end."""
    begin, end = BEGIN.format(name), END.format(name)
    document = path.read_text(encoding="utf-8") if path.exists() else "# Performance\n"
    block = f"{begin}\n{text}\n{end}"
    pattern = re.compile(re.escape(begin) + ".*?" + re.escape(end), re.DOTALL)
    if pattern.search(document):
        document = pattern.sub(lambda _: block, document)
    else:
        document += f"\n## {name}\n\n{block}\n"
    path.write_text(document, encoding="utf-8")


def circumstances(name, rounds, results):
    """Where, at which commit and how to repeat it."""
    commit = output("git", "rev-parse", "--short=10", "HEAD")
    # What this report writes itself changes nothing that is measured.
    if output("git", "status", "--porcelain", "--", ".", ":!docs"):
        commit += " and changes"
    compiler = output("c++", "--version").splitlines()[0]
    return (f"{datetime.date.today()}, commit {commit}, medians of {rounds} rounds, on {cpu()} "
            f"({len(os.sched_getaffinity(0))} cores), Linux {os.uname().release.split('-')[0]}, {compiler}. "
            f"What one core writes, the other saw after {distances(results.core_distances)} ns. "
            f"Between its rounds a figure varied by {results.spread():.0%}. "
            f"Again: `scripts/bench {name} --rounds {rounds}`.")


def distances(values):
    low, high = min(values), max(values)
    return f"{low:.0f} to {high:.0f}" if high - low >= 1 else f"{low:.0f}"


def cpu():
    for line in open("/proc/cpuinfo", encoding="utf-8"):
        if line.startswith("model name"):
            return line.split(":")[1].strip()
    return os.uname().machine


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()
