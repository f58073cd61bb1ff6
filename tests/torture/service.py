# SPDX-License-Identifier: Apache-2.0

"""A gateway that runs with the shim, in a folder of its own."""

import mmap
import os
import re
import signal
import struct
import subprocess
import tempfile
import time

PATIENCE = 30  # seconds: other work on the machine is not to look like a fault


class Page:
    """What the driver and the shim share; see struct Page there."""

    ENTRY = struct.Struct("Q24s12Q")
    HEAD = struct.Struct("5Q")
    SIZE = HEAD.size + 8192 * ENTRY.size

    def __init__(self, path):
        with open(path, "w+b") as file:
            file.truncate(self.SIZE)
            self.memory = mmap.mmap(file.fileno(), self.SIZE)

    def arm(self, on):
        struct.pack_into("Q", self.memory, 0, int(on))

    @property
    def failed(self):
        return self.HEAD.unpack_from(self.memory)[2]

    @property
    def calls(self):
        return self.HEAD.unpack_from(self.memory)[3]

    def table(self):
        """The traced calls: {(function, callers): how many}."""
        traced = {}
        for i in range(self.HEAD.unpack_from(self.memory)[4]):
            entry = self.ENTRY.unpack_from(self.memory, self.HEAD.size + i * self.ENTRY.size)
            name = entry[1].rstrip(b"\0").decode()
            traced[name, tuple(site for site in entry[2:] if site)] = entry[0]
        return traced


class Gateway:
    def __init__(self, build, plan=None):
        self.folder = tempfile.TemporaryDirectory(prefix="torture.")
        self.page = Page(self.path("page"))
        for name in ("settings", "state"):
            os.mkdir(self.path(name))
        with open(self.path("properties"), "w", encoding="ascii") as file:
            file.write(f"persist.vyn.unixsocketpath={self.folder.name}\nsys.vt.vyn.loglevel=3\n")
        self.configure("sesame")
        self.environment = dict(
            os.environ,
            VYN_PROPERTY_FILE=self.path("properties"),
            LD_PRELOAD=os.path.join(build, "tests/torture/libtorture_shim.so"),
            TORTURE_PAGE=self.path("page"),
            MALLOC_PERTURB_="165",  # shows who uses memory after it was freed
            ASAN_OPTIONS="verify_asan_link_order=0:detect_leaks=0:allocator_may_return_null=1"
            ":handle_abort=0",
        )
        if plan is not None:
            self.environment["TORTURE_PLAN"] = plan
        self.program = os.path.join(build, "examples/gateway/gateway")
        self.process = None
        self.port = None

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def configure(self, token, silence_ms=600000, login_ms=600000):
        """Replaces the settings file, as an editor does."""
        fresh = self.path("settings.new")
        with open(fresh, "w", encoding="ascii") as file:
            file.write(f"token={token}\nsilence_ms={silence_ms}\n")
            file.write(f"login_ms={login_ms}\n")
        os.rename(fresh, self.path("settings/gateway.ini"))

    def start(self):
        """True once it listens; false when it has ended instead."""
        with open(self.path("output"), "wb") as output, open(self.path("log"), "wb") as log:
            self.process = subprocess.Popen(
                [self.program, "0", self.path("settings/gateway.ini"), self.path("state")],
                stdin=subprocess.PIPE, stdout=output, stderr=log, env=self.environment,
                restore_signals=True)
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            found = re.search(r"listening on port (-?\d+)", self.output())
            if found:
                self.port = int(found[1])
                return True
            if self.ended():
                return False
            time.sleep(0.02)
        return False

    def output(self):
        return self.read("output")

    def log(self):
        return self.read("log")

    def read(self, name):
        try:
            with open(self.path(name), encoding="utf-8", errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def ended(self):
        return self.process.poll() is not None

    def operate(self, line):
        try:
            self.process.stdin.write(line.encode() + b"\n")
            self.process.stdin.flush()
        except OSError:
            pass  # it has ended, which is judged elsewhere

    def cpu_seconds(self):
        """What all its threads have used, 0 when it has ended."""
        spent = 0
        try:
            for task in os.listdir(f"/proc/{self.process.pid}/task"):
                with open(f"/proc/{self.process.pid}/task/{task}/schedstat", "rb") as file:
                    spent += int(file.read().split()[0])
        except (OSError, IndexError):
            return 0
        return spent / 1e9

    def stop(self, by_signal):
        """Asks for an orderly end; false when there is none in time."""
        if by_signal:
            self.process.send_signal(signal.SIGTERM)
        else:
            self.operate("quit")
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            return False
        return True

    def clean(self):
        if self.process is not None:
            if not self.ended():
                self.process.kill()
            self.process.communicate()
        self.page.memory.close()
        self.folder.cleanup()
