# SPDX-License-Identifier: Apache-2.0

"""The peers of a gateway. They note every byte that is missing, doubled or wrong."""

import re
import selectors
import socket
import time


class Peer:
    def __init__(self, name, address, reads=True):
        self.name = name
        self.socket = socket.socket(socket.AF_UNIX if isinstance(address, str) else socket.AF_INET)
        self.socket.settimeout(30)
        self.reads = reads
        self.unsent = b""
        self.rest = b""
        self.answers = 0
        self.expected = []  # patterns of the answers, in their order
        self.seen = {}  # the last number of each topic
        self.problems = []
        self.was_refused = False
        self.was_denied = False
        self.is_lost = False  # the gateway has ended the connection
        self.is_to_end = False  # the gateway should
        self.is_closed = False  # the peer has
        try:
            self.socket.connect(address)
            self.socket.setblocking(False)
        except OSError:
            self.is_lost = True

    def tell(self, line, answer=None):
        self.unsent += line.encode() + b"\n"
        if answer is not None:
            self.expected.append(answer)

    def close(self):
        self.is_closed = True
        self.socket.close()

    @property
    def is_open(self):
        return not (self.is_lost or self.is_closed)

    @property
    def has_heard(self):
        """All answers, whether the connection is to end or not."""
        return self.is_open and self.answers >= len(self.expected)

    @property
    def is_answered(self):
        return not self.is_open or (self.answers >= len(self.expected) and not self.is_to_end)

    def exchange(self):
        """Sends and receives what is possible now; true when anything came."""
        try:
            if self.unsent:
                self.unsent = self.unsent[self.socket.send(self.unsent):]
        except BlockingIOError:
            pass
        except OSError:
            self.unsent = b""  # what came before the end is still to be read
        came = False
        while self.reads and self.is_open:
            try:
                data = self.socket.recv(65536)
            except BlockingIOError:
                break
            except OSError:
                data = b""
            came = True
            if data:
                self.take(data)
            else:
                self.is_lost = True
        return came

    def take(self, data):
        *lines, self.rest = (self.rest + data).split(b"\n")
        for line in lines:
            text = line.decode(errors="replace")
            if text.startswith("EVENT "):
                self.take_event(text)
            else:
                self.take_answer(text)

    def take_event(self, text):
        found = re.fullmatch(r"EVENT (\w+) (\d+)( x+)?", text)
        if found is None:
            if not text.startswith("EVENT network "):
                self.problems.append(f"damaged event: {text[:60]}")
            return
        topic, number = found[1], int(found[2])
        last = self.seen.get(topic)
        if last is not None and number != last + 1:
            self.problems.append(f"{topic} {number} came behind {last}")
        self.seen[topic] = number

    def take_answer(self, text):
        if self.answers >= len(self.expected):
            self.problems.append(f"heard without a question: {text[:60]}")
        elif text == "DENIED" and self.expected[self.answers] == "WELCOME":
            self.is_lost = self.was_denied = True
        elif not re.fullmatch(self.expected[self.answers], text):
            self.problems.append(f"heard {text[:60]!r}, not {self.expected[self.answers]!r}")
        self.was_refused = self.was_refused or text.startswith("ERR not saved")
        self.answers += 1


class Crowd:
    """The peers of one gateway, served together."""

    def __init__(self, gateway):
        self.gateway = gateway
        self.peers = []

    def tcp(self, name, token):
        peer = Peer(name, ("127.0.0.1", self.gateway.port))
        if token is not None:
            peer.tell(f"AUTH {token}", "WELCOME" if token != "guess" else "DENIED")
        self.peers.append(peer)
        return peer

    def unix(self, name, reads=True):
        peer = Peer(name, self.gateway.path("gateway.sock"), reads)
        peer.expected.append("WELCOME")
        self.peers.append(peer)
        return peer

    def pump(self, is_done, seconds, settles=None):
        """Serves all until it is done; false when time is up, the gateway has ended, or, with
        `settles`, nothing has come for so long after a failure."""
        now = time.monotonic()
        end, quiet_since = now + seconds, now
        while True:
            came = [peer.exchange() for peer in self.peers if peer.is_open]
            if is_done():
                return True
            now = time.monotonic()
            if any(came):
                quiet_since = now
            is_settled = settles and self.gateway.page.failed and now - quiet_since > settles
            if now > end or is_settled or (self.gateway.ended() and not any(came)):
                return False
            if not any(came):
                self.wait()

    def wait(self):
        with selectors.DefaultSelector() as selector:
            for peer in self.peers:
                writes = selectors.EVENT_WRITE if peer.unsent else 0
                reads = selectors.EVENT_READ if peer.reads else 0
                if peer.is_open and (reads or writes):
                    selector.register(peer.socket, reads | writes)
            selector.select(0.05)

    def unanswered(self):
        return [peer for peer in self.peers if not peer.is_answered]

    def close(self):
        for peer in self.peers:
            if not peer.is_closed:
                peer.close()
