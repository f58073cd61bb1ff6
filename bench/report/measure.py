# SPDX-License-Identifier: Apache-2.0

"""Runs the benchmark programs and keeps their figures."""

import math
import statistics
import subprocess
import sys

LONGEST_RUN_S = 120


class Results:
    """The figures of one group, in the order in which they came."""

    ONE = ("", "", "")  # what absolute figures are compared with

    def __init__(self):
        self.values = {}  # (case, contestant, metric) -> the figures of all rounds
        self.units = {}  # metric -> unit
        self.failed = []
        self.core_distances = []  # nanoseconds, once a round of a case

    def add(self, case, contestant, output):
        for line in output.splitlines():
            metric, value, unit = line.split("\t")
            self.units[metric] = unit
            self.values.setdefault((case, contestant, metric), []).append(float(value))

    def median(self, case, contestant, metric):
        values = self.values.get((case, contestant, metric))
        return statistics.median(values) if values else None

    def ratio(self, figure, base):
        """The median of the rounds' ratios of two (case, contestant, metric), and the interval in which
        it lies with a probability of 95 %; the whole range where the rounds are too few. None when
        one of them was not measured."""
        figures = self.values.get(figure, [])
        pairs = zip(figures, [1] * len(figures) if base == self.ONE else self.values.get(base, []))
        ratios = sorted(value / other for value, other in pairs if other)
        if not ratios:
            return None
        left_out = outside_of_interval(len(ratios))
        return statistics.median(ratios), ratios[left_out], ratios[-1 - left_out]

    def spread(self):
        """How far apart the rounds of a figure are, as a share of it; the median of all figures."""
        shares = [(max(v) - min(v)) / statistics.median(v) for v in self.values.values() if any(v)]
        return statistics.median(shares) if shares else 0

    def cases(self, metric=None):
        return list(dict.fromkeys(c for c, _, m in self.values if metric in (None, m)))

    def contestants(self, metric):
        return list(dict.fromkeys(c for _, c, m in self.values if m == metric))


def outside_of_interval(count):
    """How many of the sorted values lie beyond each end of the median's interval: as many as it can be
    wrong about with a probability of 2.5 % (the sign test: each value is above the median as often as
    below)."""
    outside, probability = 0, 0.5**count
    while probability <= 0.025:
        outside += 1
        probability += math.comb(count, outside) * 0.5**count
    return max(outside - 1, 0)


def measure(program, rounds):
    """Lets the contestants of each case take turns: A B C A B C."""
    listing = subprocess.run([program, "--list"], check=True, capture_output=True, text=True)
    contests = [line.split("\t") for line in listing.stdout.splitlines()]
    results = Results()
    done = 0
    for case in dict.fromkeys(case for case, _ in contests):
        contestants = [name for other, name in contests if other == case]
        for _ in range(rounds):
            results.core_distances.append(cores_apart(program))
            for contestant in contestants:
                done += 1
                show(f"[{done}/{len(contests) * rounds}] {program.name} {case} {contestant}")
                run(program, case, contestant, results)
    show("")
    return results


def cores_apart(program):
    output = subprocess.run([program, "--cores"], check=True, capture_output=True, text=True).stdout
    return float(output.split("\t")[1])


def run(program, case, contestant, results):
    command = [program, f"--case={case}", f"--contestant={contestant}"]
    try:
        ended = subprocess.run(command, capture_output=True, text=True, timeout=LONGEST_RUN_S)
    except subprocess.TimeoutExpired:
        problem = f"took more than {LONGEST_RUN_S} s"
    else:
        if ended.returncode == 0:
            results.add(case, contestant, ended.stdout)
            return
        problem = ended.stderr.strip() or f"status {ended.returncode}"
    show("")
    print(f"{case} {contestant}: {problem}", file=sys.stderr)
    results.failed.append((case, contestant))


def show(text):
    if sys.stderr.isatty():
        print(f"\r{text:<78}", end="\r", file=sys.stderr, flush=True)
    elif text:
        print(text, file=sys.stderr, flush=True)
