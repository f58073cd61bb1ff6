# SPDX-License-Identifier: Apache-2.0

"""Who calls what, and what is to fail: the plans."""

import os
import random
import re
import subprocess
from collections import defaultdict

import calls


class Sites:
    """Names the addresses of the callers by the project's own lines."""

    def __init__(self, build):
        self.modules = {1: os.path.join(build, "examples/gateway/gateway"),
                        2: os.path.join(build, "src/libvyncore_vendor.so")}
        self.names = {}

    def learn(self, addresses):
        by_module = defaultdict(list)
        for address in set(addresses) - self.names.keys():
            by_module[address >> 48].append(address)
        for module, found in by_module.items():
            wanted = "\n".join(hex((address & (1 << 48) - 1) - 1) for address in found)
            lines = subprocess.run(["addr2line", "-C", "-f", "-e", self.modules[module]],
                                   input=wanted, capture_output=True, text=True,
                                   check=True).stdout.splitlines()
            for address, name, line in zip(found, lines[0::2], lines[1::2]):
                place = self.short(line.split(" ")[0])
                self.names[address] = place and f"{function_name(name)} in {place}"

    @staticmethod
    def short(line):
        """The file and line, or nothing when it is not the project's."""
        path = os.path.normpath(line)
        found = re.search(r"/((src|examples|include/vyn)/.*)", path)
        return found[1] if found and not path.startswith("/usr/") else ""

    def own(self, callers, depth):
        """The innermost callers that are the project's own lines, but those that only pass on."""
        passing_on = ("io::uninterrupted", "Descriptor::retry")
        return tuple(address for address in callers if self.names[address] and
                     not any(name in self.names[address] for name in passing_on))[:depth]


def function_name(demangled):
    name = demangled.replace("(anonymous namespace)::", "").replace("vyn::", "")
    return name.split("(")[0].split("<")[0]


class Plan:
    def __init__(self, phase, function, action, first, times, every, *callers, label=""):
        self.phase, self.function, self.action = phase, function, action
        self.times, self.label = int(times), label
        self.passes = calls.passes(function, action)
        self.callers = [int(caller, 16) for caller in (callers + ("0", "0"))[:2]]
        how_often = f"{first} {times} {every}"
        self.text = " ".join([function, calls.number(action), how_often, *map(hex, self.callers)])
        self.again = " ".join([phase, function, action, how_often, *callers])

    @classmethod
    def parse(cls, text):
        return cls(*text.split())

    @property
    def is_allocation(self):
        return self.function in calls.ALLOCATIONS

    @property
    def may_end_the_console(self):
        return self.is_allocation or "ConsoleDevice" in self.label

    @property
    def connections_at_stake(self):
        if self.function not in calls.OF_CONNECTIONS or self.action in ("short", "EINTR"):
            return 0
        if self.times != 1:
            return 1000
        return 0 if self.passes else 1

    @property
    def needs_line(self):
        return (not self.passes and self.action != "EAGAIN" and
                self.entry(calls.WITHOUT_LINE) is None)

    @property
    def has_another_way(self):
        return self.entry(calls.WITH_ANOTHER_WAY) is not None

    @property
    def takes_away(self):
        return self.entry(calls.LASTING)

    def entry(self, table):
        """What a table says of this function at this place."""
        return next((said for (function, place), said in table.items()
                     if function in ("", self.function) and place in self.label), None)

    @property
    def concerns_the_record(self):
        return "recorder.h" in self.label or self.is_allocation

    def __str__(self):
        often = {0: "for ever", 1: "once"}.get(self.times, f"{self.times} times")
        return f"{self.function} {self.action} {often} from the {self.phase}: {self.label}"


def group(traces, sites, is_short):
    """The calls of the project's lines: {(function, callers): {phase: count}}."""
    groups = defaultdict(lambda: {"start": 0, "run": 0})
    for phase, table in traces.items():
        for (function, callers), count in table.items():
            is_brief = is_short and function in calls.ALLOCATIONS
            own = sites.own(callers, 1 if is_brief else 2)
            if own and function in calls.ERRORS and errors_of((function, own), sites):
                groups[function, own][phase] += count
    for counts in groups.values():
        counts["run"] -= counts["start"]  # the later trace holds the earlier
    # What operator new asks of malloc() is the same.
    return {key: counts for key, counts in groups.items()
            if key[0] != "malloc" or not {("_Znwm", key[1]), ("_Znam", key[1])} & groups.keys()}


def errors_of(key, sites):
    label = label_of(key[1], sites)
    return [action for action in calls.ERRORS[key[0]] if calls.can_meet(key[0], label, action)]


def label_of(own, sites):
    return " < ".join(sites.names[address] for address in own)


def make(key, counts, sites, phase, action, forever, later):
    function, own = key
    first = random.randint(1, max(1, counts[phase])) if later else 1
    every = 2 if forever and calls.comes_and_goes(function, action) else 1
    return Plan(phase, function, action, first, 0 if forever else 1, every,
                *map(hex, own), label=label_of(own, sites))


def short_plans(groups, sites):
    """For each function and place one failure, and then another one; what is left out when time is
    up is the second failure of some."""
    rounds = [], []
    first = {key: random.random() < 0.5 for key in groups}
    for i, plans in enumerate(rounds):
        for key, counts in sorted(groups.items()):
            phase = "run" if counts["run"] > 0 else "start"
            action = random.choice(errors_of(key, sites))
            plan = make(key, counts, sites, phase, action, first[key] == (i == 0), False)
            if i == 0 or not plan.is_allocation:
                plans.append(plan)
        random.shuffle(plans)
    return rounds[0] + rounds[1]


def long_plans(groups, sites):
    plans = []
    for key, counts in sorted(groups.items()):
        for phase in (phase for phase in ("start", "run") if counts[phase] > 0):
            for action in errors_of(key, sites):
                for forever, later in ((False, False), (False, True), (True, False)):
                    if not later or counts[phase] > 1:
                        plans.append(make(key, counts, sites, phase, action, forever, later))
    random.shuffle(plans)
    return plans
