# SPDX-License-Identifier: Apache-2.0

"""Runs groups of benchmarks, prints their tables and writes docs/performance.md; see scripts/bench."""

import argparse
import sys
from pathlib import Path

import bars
import document
import goals
import measure
import tables

ROOT = Path(__file__).resolve().parents[2]
PROGRAMS = ROOT / "build" / "bench" / "bench"
DOCUMENT = ROOT / "docs" / "performance.md"
PLOTS = ROOT / "docs" / "performance"


def main():
    groups = goals.read(ROOT / "bench" / "goals.txt")
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("group", nargs="*", help="any of " + ", ".join(groups))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--print-only", action="store_true", help="leave the document as it is")
    options = parser.parse_args()
    unknown = set(options.group) - set(groups)
    if unknown or options.rounds < 1:
        parser.error("no such group: " + ", ".join(unknown) if unknown else "no round")
    failed = []
    for name in options.group or groups:
        results = measure.measure(PROGRAMS / f"bench_{name}", options.rounds)
        text, brackets = tell(groups[name], results)
        if not options.print_only:
            write(groups[name], results, options.rounds, text, brackets)
        failed += results.failed
    if failed:
        sys.exit(f"{len(failed)} measurements failed")


def tell(group, results):
    text = tables.group_text(group, results)
    brackets = f"In brackets: the ratio to {group.limit}." if group.limit != "-" else ""
    print(f"\n{group.name}. {brackets}\n\n{text}\n")
    return text, brackets


def write(group, results, rounds, text, brackets):
    about = document.circumstances(group.name, rounds, results)
    plot = bars.bars(group, results)
    if plot:
        PLOTS.mkdir(exist_ok=True)
        (PLOTS / f"{group.name}.svg").write_text(plot, encoding="utf-8")
        about += f"\n\n![{group.name}](performance/{group.name}.svg)"
    parts = [about, brackets, text] if brackets else [about, text]
    document.put(DOCUMENT, group.name, "\n\n".join(parts))


if __name__ == "__main__":
    main()
