# SPDX-License-Identifier: Apache-2.0

"""The loopback interface of a network that is this process's own (unshare -rn)."""

import fcntl
import itertools
import socket
import struct

SIOCSIFFLAGS, SIOCSIFADDR = 0x8914, 0x8916
IFF_UP = 1
_labels = itertools.count()


def _control(request, interface, value):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, request, struct.pack("16s24s", interface.encode(), value))


def raise_loopback():
    _control(SIOCSIFFLAGS, "lo", struct.pack("H", IFF_UP))


def change():
    """Gives it one more address, and takes that again."""
    label = next(_labels) % 250 + 1
    address = struct.pack("HH4s", socket.AF_INET, 0, socket.inet_aton(f"198.18.{label}.1"))
    _control(SIOCSIFADDR, f"lo:{label}", address)
    _control(SIOCSIFFLAGS, f"lo:{label}", struct.pack("H", 0))
