# SPDX-License-Identifier: Apache-2.0

"""The groups and goals of bench/goals.txt."""

from dataclasses import dataclass, field
from fnmatch import fnmatchcase


@dataclass
class Goal:
    pattern: str
    contestant: str
    metric: str
    relation: str  # "<=" or ">="
    factor: float
    reference: str  # a contestant, "@case", or the unit of an absolute goal

    def __str__(self):
        return f"{self.relation} {self.factor:g} {self.reference.replace('@', 'of ')}"

    def cases(self, results):
        return [case for case in results.cases() if fnmatchcase(case, self.pattern)]

    def judge(self, case, results):
        """What the figure is in terms of the goal: its median, the ends of the interval in which that
        lies with a probability of 95 %, and whether the goal is within it; or None."""
        figure = (case, self.contestant, self.metric)
        reached = results.ratio(figure, self.base(case, results))
        if reached is None:
            return None
        _, low, high = reached
        return *reached, low <= self.factor if self.relation == "<=" else high >= self.factor

    def base(self, case, results):
        if self.reference == results.units.get(self.metric):
            return results.ONE
        if self.reference.startswith("@"):
            return self.reference[1:], self.contestant, self.metric
        return case, self.reference, self.metric


@dataclass
class Group:
    name: str
    limit: str
    drawn: list
    goals: list = field(default_factory=list)


def read(path):
    groups = {}
    for line in open(path, encoding="utf-8"):
        words = line.split("#")[0].split()
        if not words:
            continue
        kind, name, *rest = words
        if kind == "group":
            groups[name] = Group(name, rest[0], rest[1:])
        elif kind == "goal":
            pattern, contestant, metric, relation, factor, reference = rest
            goal = Goal(pattern, contestant, metric, relation, float(factor), reference)
            groups[name].goals.append(goal)
        else:
            raise ValueError(f"{path}: {line}")
    return groups
