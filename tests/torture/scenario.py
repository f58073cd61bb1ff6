# SPDX-License-Identifier: Apache-2.0

"""A life of a gateway, in which its peers and its operator use all it has, and what is judged."""

import hashlib
import re
import signal
import time
from collections import Counter, defaultdict

import calls
import network
from peers import Crowd
from service import PATIENCE, Gateway

SETTLED = 0.7  # seconds without a byte, once something has failed
QUIET = 0.5  # seconds in which nothing is asked of the gateway
MOST_CPU = 0.3  # of that time
MOST_CALLS = 5000 * QUIET
FATAL = r"Check failed\.|FATAL: |!!!!|only one connector|attached twice|No such executor"


class Life:
    """One gateway with one plan, or with none: `problems` tells what did not hold."""

    def __init__(self, build, plan, has_own_network, known_lines):
        self.plan = plan
        self.gateway = Gateway(build, plan.text if plan else None)
        self.page = self.gateway.page
        self.crowd = Crowd(self.gateway)
        self.has_own_network = has_own_network
        self.known_lines = known_lines
        self.problems = []
        self.outcome = "held"
        self.published = defaultdict(int)
        self.traces = {}
        self.was_noticed = False  # by a peer

    def run(self):
        try:
            if self.live():
                self.judge_end()
            self.was_hit = self.page.failed > 0
            self.log = self.gateway.log()
            self.output = self.gateway.output()
        finally:
            self.crowd.close()
            self.gateway.clean()
        return self

    # False when it ended before it should.
    def live(self):
        self.page.arm(self.plan is not None and self.plan.phase == "start")
        if not self.gateway.start():
            return self.judge_early_end("start")
        if self.gateway.port <= 0:
            self.problems.append("it does not know its port")
            return True
        self.gather()
        self.traces["start"] = self.page.table()
        self.page.arm(self.plan is not None)
        self.use()
        self.rest()
        self.page.arm(False)
        for step in (self.recover, self.fall_silent):
            if self.gateway.ended():
                return self.judge_early_end("run")
            step()
        if self.gateway.ended():
            return self.judge_early_end("run")
        by_signal = self.plan is not None and (len(self.plan.text) % 2 == 0 or
                                               self.plan.may_end_the_console)
        if not self.gateway.stop(by_signal):
            self.problems.append("it does not stop when asked to")
        self.traces["run"] = self.page.table()
        return True

    def await_all(self, is_done=None, peers=None):
        """Waits for all answers, as long as a failure may still be waited for."""
        among = peers if peers is not None else self.crowd.peers
        done = is_done or (lambda: all(p.is_answered or p.is_to_end for p in among if p.reads))
        return self.crowd.pump(done, PATIENCE, SETTLED)

    def publish(self, peer, count, size):
        """On the topic of the peer's name."""
        for _ in range(count):
            self.published[peer.name] += 1
            peer.tell(f"PUB {peer.name} {self.published[peer.name]} {'x' * size}", "OK")

    def publish_much(self, peer):
        """More than who does not read can bear, and in portions that others keep up with. While it
        does not answer no more is said: it would read all at once when the failure is over."""
        for _ in range(12):
            self.publish(peer, 35, 950)
            if not self.await_all():
                return

    @staticmethod
    def subscribe(peer, topics=("tina", "uwe")):
        for topic in topics:
            peer.tell(f"SUB {topic}", "OK")

    def gather(self):
        """Those who are there before anything fails, and need not notice."""
        # Where the settings could not be read at first, they are later.
        self.has_token = self.crowd.pump(lambda: self.settings_read() > 0, 8)
        self.tina = self.crowd.tcp("tina", "sesame")
        self.uwe = self.crowd.unix("uwe")
        for peer in (self.tina, self.uwe):
            self.subscribe(peer)
            self.publish(peer, 2, 5)
        self.await_all()

    def use(self):
        eve = self.crowd.tcp("eve", "guess")
        eve.is_to_end = True
        newt = self.crowd.tcp("newt", "sesame")
        ulla = self.crowd.unix("ulla")
        slow = self.crowd.unix("slow", reads=False)
        slow.is_to_end = True
        slow.tell("SUB tina", "OK")
        for peer in (newt, ulla):
            self.subscribe(peer)
        self.await_all()
        self.ask(ulla)
        ulla.tell("SNAPSHOT", "OK|ERR not saved|ERR one is being saved")  # where it is late
        self.publish(self.uwe, 20, 50)
        self.publish_much(self.tina)
        max_ = self.crowd.unix("max")
        max_.is_to_end = True
        max_.tell("PING " + "x" * 2000)
        self.gateway.operate("status")
        self.await_all()
        newt.close()
        self.gateway.configure("open")
        if self.has_own_network:
            ulla.tell("SUB network", "OK")
            self.change_network()
        self.crowd.pump(lambda: self.settings_read() > 1, PATIENCE, SETTLED)
        if self.settings_read() > 1:
            newt = self.crowd.tcp("newt again", "open")
            newt.tell("UNSUB tina", "OK")
            newt.tell("SNAPSHOT", "OK|ERR .*")  # one may still be saved
            self.await_all()
        slow.reads = True
        self.await_all(lambda: slow.is_lost)

    def ask(self, peer):
        peer.tell("STATUS", r'STATUS <gateway peers="\d+">.*</gateway>')
        text = "the quick brown fox"
        peer.tell(f"HASH {text}", "HASH " + hashlib.md5(text.encode()).hexdigest().upper())
        peer.tell("PING", "PONG")
        peer.tell("NONSENSE", "ERR no such command")

    def change_network(self):
        try:
            network.change()
        except OSError as error:
            self.problems.append(f"the network can not be changed here: {error}")

    def settings_read(self):
        return self.gateway.log().count("settings read:")

    def rest(self):
        """Nothing is asked of it while the failure lasts: it is not to be busy."""
        for _ in range(20):  # it may have to see to what was asked before
            calls_before, cpu_before = self.page.calls, self.gateway.cpu_seconds()
            self.crowd.pump(lambda: False, QUIET)
            cpu = self.gateway.cpu_seconds() - cpu_before
            made = self.page.calls - calls_before
            if cpu < MOST_CPU * QUIET and made < MOST_CALLS:
                return
        self.problems.append(f"busy: {cpu:.2f} s and {made} calls in {QUIET} s")

    def recover(self):
        """The failure is over: all is served as before."""
        if not self.is_let_in():
            self.problems.append("no recovery: nobody gets in with the new token")
        self.judge_peers()
        late = [self.crowd.tcp("late", "open"), self.crowd.unix("later")]
        for peer in late:
            self.subscribe(peer, ("late", "later"))
            self.publish(peer, 2, 5)
            self.ask(peer)
        if not self.plan or self.plan.takes_away != "snapshots":
            late[0].tell("SNAPSHOT", "OK")
        alive = [peer for peer in self.crowd.peers if peer.is_open and peer.is_answered] + late
        self.await_recovery(lambda: all(peer.is_answered for peer in late), "not served")
        self.await_recovery(lambda: all(self.has_all(peer) for peer in alive), "events missing")
        for peer in late:
            if not peer.is_open:
                self.problems.append(f"{peer.name} was disconnected after the failure was over")

    def await_recovery(self, is_done, what):
        if not self.crowd.pump(is_done, PATIENCE) and not self.gateway.ended():
            self.problems.append(f"no recovery: {what}")

    def is_let_in(self):
        """Over TCP, with the token of the second settings."""
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end and not self.gateway.ended():
            peer = self.crowd.tcp("door", "open")
            self.crowd.pump(lambda p=peer: p.is_answered, PATIENCE)
            let_in = peer.answers > 0 and peer.is_open
            peer.close()
            self.crowd.peers.remove(peer)
            if let_in:
                return True
            self.crowd.pump(lambda: False, 0.5)
        return self.gateway.ended()  # which is judged elsewhere

    def has_all(self, peer):
        return not peer.is_open or all(
            peer.seen.get(topic, last) == last for topic, last in self.published_of(peer))

    def published_of(self, peer):
        """What has been processed: a publisher that was lost may have said more."""
        return [(topic, max(other.seen.get(topic, 0) for other in self.crowd.peers))
                for topic in self.published if topic in peer.seen and peer.name != "newt again"]

    def judge_peers(self):
        allowed = self.plan.connections_at_stake if self.plan else 0
        self.crowd.pump(lambda: not self.crowd.unanswered(), 1.5)
        self.crowd.pump(lambda: len(self.crowd.unanswered()) <= allowed, PATIENCE)
        concerned = [peer for peer in self.crowd.peers if not peer.is_answered or
                     (peer.is_lost and not peer.is_to_end)]
        if self.plan:  # so late that it was read after all
            concerned = [peer for peer in concerned if peer.name != "slow" or not peer.has_heard]
        if not self.has_token:
            concerned = [peer for peer in concerned if not peer.was_denied]
        if self.plan and self.plan.takes_away:
            concerned = [peer for peer in concerned if peer.is_lost]
        if len(concerned) > allowed:
            names = ", ".join(f"{peer.name} ({'lost' if peer.is_lost else 'no answer'}, "
                              f"{peer.answers} of {len(peer.expected)})" for peer in concerned)
            self.problems.append(f"{len(concerned)} concerned, not {allowed}: {names}")
        self.was_noticed = bool(concerned) or any(p.was_refused for p in self.crowd.peers)
        for peer in concerned:
            if not peer.is_closed:
                peer.close()

    def fall_silent(self):
        """All are dropped that say nothing any more, or never have."""
        self.crowd.tcp("mute", None)
        for peer in self.crowd.peers:
            peer.is_to_end = True
        self.gateway.configure("open", 1, 1)
        self.await_recovery(lambda: all(not p.is_open for p in self.crowd.peers),
                            "who is silent is not dropped")

    # The rest judges what is left when it has ended.

    def judge_early_end(self, phase):
        if not self.gateway.ended():
            self.problems.append(f"it hangs at the {phase}")
            return False
        log, status = self.gateway.log(), self.gateway.process.returncode
        refuses = phase == "start" and status == 1 and self.new_lines(log)
        is_bad_alloc = self.plan is not None and self.plan.is_allocation and re.search(
            "bad_alloc|terminate called without an active|Fatal glibc error: .*out of memory", log)
        if status == -signal.SIGABRT and re.search(FATAL, log):
            self.outcome = "ended with a described fatal line"
        elif is_bad_alloc and status in (1, -signal.SIGABRT):
            self.outcome = "ended with bad_alloc, which reached the application"
        elif refuses:
            self.outcome = "refused to start, with a line"
        else:
            self.problems.append(f"it ended with {calls.ending(status)} at the {phase}")
        return False

    def judge_end(self):
        log, gateway = self.gateway.log(), self.gateway
        if gateway.ended() and (gateway.process.returncode != 0 or
                                "stopped" not in gateway.output()):
            self.problems.append(f"it stopped with {calls.ending(gateway.process.returncode)}")
        for peer in self.crowd.peers:
            self.problems += [f"{peer.name}: {problem}" for problem in peer.problems[:3]]
        if self.plan and self.page.failed and self.plan.needs_line and not self.new_lines(log):
            if not self.plan.has_another_way or self.was_noticed:
                self.problems.append("no line tells of the failure")
        self.judge_record()
        if "ERROR: AddressSanitizer" in log or "runtime error:" in log:
            self.problems.append("the sanitizer has found something")

    def judge_record(self):
        """Each text is in the recorder's file once, in order."""
        last = {}
        for line in self.gateway.read("state/events.log").splitlines():
            found = re.fullmatch(r"(tina|uwe|late|later) (\d+) x+", line)
            if found is None:
                if not line.startswith("network "):
                    self.problems.append(f"damaged in the record: {line[:60]}")
                continue
            topic, number = found[1], int(found[2])
            is_next = number == last.get(topic, 0) + 1
            if not is_next and not (self.plan and self.plan.concerns_the_record):
                self.problems.append(f"in the record {topic} {number} is behind {last.get(topic)}")
            last[topic] = number
        if not last and not (self.plan and self.plan.concerns_the_record):
            self.problems.append("nothing was recorded")

    def new_lines(self, log):
        """Kinds of lines that there are more of than without a failure; how many peers come and go
        differs, so of lines below a warning only new kinds count."""
        return [shape for shape, count in shapes(log).items()
                if count > self.known_lines[shape] and (shape[0] in "EW" or
                                                        shape not in self.known_lines)]


def shapes(log):
    """The kinds of lines of a log, and how many of each there are."""
    found = Counter()
    for line in re.findall(r"VYNCore ([EWIF]) [\d: -]+(\[.*)", log):
        found[line[0] + re.sub(r"0x[0-9a-f]+|/tmp/\S+|\d+", "N", line[1])] += 1
    return found
