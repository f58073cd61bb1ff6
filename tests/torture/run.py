# SPDX-License-Identifier: Apache-2.0

"""Makes the calls of a gateway fail, one after the other; see scripts/torture."""

import argparse
import os
import random
import subprocess
import sys
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

import calls
import network
import plans
from scenario import Life, shapes

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))


def unknown_imports(build):
    """Functions that the project calls and nothing here knows of."""
    found = set()
    for module in ("src/libvyncore_vendor.so", "examples/gateway/gateway"):
        names = subprocess.run(["nm", "-D", "--undefined-only", os.path.join(build, module)],
                               capture_output=True, text=True, check=True).stdout.split()
        found |= {name.split("@")[0] for name in names if "@GLIBC_" in name}
    ignored = ("_", "env")
    return sorted(name for name in found if not name.startswith(ignored)
                  and name not in calls.ERRORS and name not in calls.NEVER_FAILING)


class Torture:
    def __init__(self, arguments):
        self.arguments = arguments
        self.build = os.path.join(ROOT, arguments.build)
        self.sites = plans.Sites(self.build)
        self.known_lines = Counter()
        self.outcomes = Counter()
        self.failing = []
        self.started = time.monotonic()

    def live(self, plan):
        return Life(self.build, plan, self.arguments.own_network, self.known_lines).run()

    def learn(self):
        """The lines, the calls and their callers of a gateway that nothing befalls."""
        groups = {}
        for _ in range(2):
            life = self.live(None)
            if life.problems:
                print(*life.problems, life.log, sep="\n")
                sys.exit("the gateway fails without anything to make it fail")
            self.known_lines |= shapes(life.log)
            for table in life.traces.values():
                self.sites.learn(address for _, callers in table for address in callers)
            groups.update(plans.group(life.traces, self.sites, self.arguments.short))
        return groups

    def judge(self, plan):
        """Runs one plan; prints it when it fails, or when each is to be shown."""
        if self.arguments.seconds and time.monotonic() - self.started > self.arguments.seconds:
            self.outcomes["left out for want of time"] += 1
            return
        life = self.live(plan)
        outcome = life.outcome if life.was_hit else "not reached"
        if life.problems:
            outcome = "FAILED"
            self.failing.append(plan)
        self.outcomes[outcome] += 1
        if life.problems or self.arguments.verbose:
            asan = "--asan " if "asan" in self.arguments.build else ""
            again = f'scripts/torture {asan}--plan "{plan.again}"'
            print(f"{outcome}: {plan}", *life.problems, f"again: {again}", sep="\n    ")
            if life.problems:
                most = None if self.arguments.plan else 15
                lines = life.log.splitlines()[-most if most else None:]
                print(*[f"    | {line}" for line in lines], sep="\n")
            sys.stdout.flush()

    def run(self):
        unknown = unknown_imports(self.build)
        if unknown:
            sys.exit(f"new calls: {', '.join(unknown)}. add them to tests/torture/calls.py, and to "
                     "shim.cpp those that can fail")
        groups = self.learn()
        if self.arguments.plan:
            chosen = [plans.Plan.parse(self.arguments.plan)]
            self.name(chosen[0])
        else:
            make = plans.short_plans if self.arguments.short else plans.long_plans
            chosen = make(groups, self.sites)
        print(f"{len(groups)} places where calls can fail, {len(chosen)} plans", flush=True)
        with ThreadPoolExecutor(self.arguments.jobs) as pool:
            list(pool.map(self.judge, chosen))
        self.report()
        return 1 if self.failing else 0

    def name(self, plan):
        """A plan that was given on the command line has no label."""
        callers = [caller for caller in plan.callers if caller != 0]
        self.sites.learn(callers)
        plan.label = " < ".join(self.sites.names[caller] for caller in callers)

    def report(self):
        print(f"tried in {time.monotonic() - self.started:.0f} s:")
        for outcome, count in self.outcomes.most_common():
            print(f"  {count:5} {outcome}")
        for plan in self.failing:
            print(f"  FAILED {plan}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build/dev")
    parser.add_argument("--jobs", type=int, default=3 * (os.cpu_count() or 1))
    parser.add_argument("--own-network", action="store_true")
    parser.add_argument("--plan")
    parser.add_argument("--seconds", type=int, default=0)
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--verbose", action="store_true")
    arguments = parser.parse_args()
    random.seed(arguments.seed)
    if arguments.own_network:
        network.raise_loopback()
    print(f"seed {arguments.seed}", flush=True)
    sys.exit(Torture(arguments).run())


main()
