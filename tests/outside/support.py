# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of the installed interfaces: a bus, a root, archives and snapshots.

    LARKSPUR_LIBRARY=build/dev/liblarkspur.so PYTHONPATH=bindings/python \
        python3 tests/outside/test_package.py
"""

import atexit
import ctypes
import functools
import json
import multiprocessing
import os
import shutil
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib
from dataclasses import dataclass
from pathlib import Path

import larkspur

VPN = "com.example.vpn"
CHANGED = "kLarkspurChanged_"
SKIPPED = 77  # See tests/CMakeLists.txt.

# The rules of a stock system bus for unnamed connections: broadcast, and talk to the bus.
_POLICY = """<auth>EXTERNAL</auth><policy context="default">
  <allow user="*"/><deny own="*"/><deny send_type="method_call"/><allow send_type="signal"/>
  <allow receive_type="signal"/><allow receive_type="method_return"/><allow receive_type="error"/>
  <allow send_destination="org.freedesktop.DBus"/></policy>"""


class PrivateBus:
    """A system bus for this process alone; restarts have the same address."""

    def __init__(self):
        self.address = f"unix:abstract=larkspur-outside-{os.getpid()}"
        self.daemon = None
        self.restart()
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = self.address
        atexit.register(self.stop)

    def restart(self, policy=""):
        self.stop()
        with tempfile.NamedTemporaryFile("w", suffix=".conf", dir="/var/tmp") as configuration:
            policy = f"<listen>{self.address}</listen>{_POLICY}{policy}"
            configuration.write(f"<busconfig>{policy}</busconfig>")
            configuration.flush()
            # The daemon ends with this process, even if that is killed.
            command = ["setpriv", "--pdeathsig", "KILL", "dbus-daemon", "--nofork", "--nopidfile"]
            command += ["--print-address", f"--config-file={configuration.name}"]
            self.daemon = subprocess.Popen(command, stdout=subprocess.PIPE)
            if not self.daemon.stdout.readline():
                raise RuntimeError("dbus-daemon does not start")

    def stop(self):
        if self.daemon:
            self.daemon.kill()
            self.daemon.wait()
            self.daemon.stdout.close()
            self.daemon = None


@functools.cache
def bus():
    """The bus of this process, started on first use."""
    if not shutil.which("dbus-daemon"):
        raise unittest.SkipTest("dbus-daemon is missing")
    return PrivateBus()


class Listener:
    """Collects the changes announced on the bus."""

    def __init__(self):
        self._names = []
        self._systemd = ctypes.CDLL("libsystemd.so.0")
        handler = ctypes.CFUNCTYPE(ctypes.c_int, *[ctypes.c_void_p] * 3)
        self._handler = handler(self._receive)
        self._bus = ctypes.c_void_p()
        path = b"/com/corvid/Larkspur1"
        for function, *arguments in (
            ("sd_bus_new", ctypes.byref(self._bus)),
            ("sd_bus_set_address", self._bus, bus().address.encode()),
            ("sd_bus_set_bus_client", self._bus, 1),
            ("sd_bus_start", self._bus),
            ("sd_bus_match_signal", self._bus, None, None, path, path[1:].replace(b"/", b"."),
             b"Changed", self._handler, None),
        ):  # fmt: skip
            if getattr(self._systemd, function)(*arguments) < 0:
                raise RuntimeError(f"{function} failed")

    def _receive(self, message, _data, _error):
        name = ctypes.c_char_p()
        self._systemd.sd_bus_message_read(ctypes.c_void_p(message), b"s", ctypes.byref(name))
        self._names.append(name.value.decode(errors="surrogateescape"))
        return 0

    def received(self, count, limit=2):
        """The names since the last call: waits for `count` of them, at most `limit` seconds."""
        end = time.monotonic() + limit
        while len(self._names) < count and time.monotonic() < end:
            if self._systemd.sd_bus_process(self._bus, None) == 0:
                self._systemd.sd_bus_wait(self._bus, ctypes.c_uint64(10_000))
        names, self._names = self._names, []
        return names

    def close(self):
        self._systemd.sd_bus_close_unref(self._bus)


@dataclass
class Entry:
    """An entry of an archive, possibly with a wrong checksum or size. The data is not compressed."""

    name: str | bytes
    data: bytes = b""
    mode: int = stat.S_IFREG | 0o644
    checksum: int | None = None  # The correct one by default, like the size.
    size: int | None = None
    flags: int = 0  # Bit 0: encrypted; bit 11: the name is UTF-8.
    method: int = 0
    extra: bytes = b""
    system: int = 3  # Made on Unix; 0: on DOS.


def directory(name, mode=0o755):
    return Entry(name, mode=stat.S_IFDIR | mode)


def link(name, target):
    return Entry(name, os.fsencode(target), stat.S_IFLNK | 0o777)


def make_zip(path, *entries):
    """Writes or overwrites an archive."""
    content, index = b"", b""
    for entry in entries:
        name = os.fsencode(entry.name)
        checksum = zlib.crc32(entry.data) if entry.checksum is None else entry.checksum
        size = len(entry.data) if entry.size is None else entry.size
        # Version needed, flags, method, time and date, sizes; common to both headers.
        common = struct.pack("<HHHHHIIIHH", 20, entry.flags, entry.method, 0, 0x21, checksum,
                             len(entry.data), size, len(name), len(entry.extra))  # fmt: skip
        index += b"PK\1\2" + struct.pack("<BB", 30, entry.system) + common
        index += struct.pack("<HHHII", 0, 0, 0, entry.mode << 16, len(content)) + name + entry.extra
        content += b"PK\3\4" + common + name + entry.extra + entry.data
    end = struct.pack("<HHHHIIH", 0, 0, len(entries), len(entries), len(index), len(content), 0)
    Path(path).write_bytes(content + index + b"PK\5\6" + end)
    return Path(path)


def record(path):
    """The record on a directory, or None."""
    try:
        return json.loads(os.getxattr(path, "user.Larkspur"))
    except OSError:
        return None


def snapshot(top):
    """Everything below a directory: {"a": "d755", "a/b": "f444 contents", "c": "l target"}."""
    items = {}
    for place, names, files in os.walk(top):
        for path in (Path(place, name) for name in names + files):
            mode = path.lstat().st_mode
            text = f"{stat.S_IMODE(mode):o}"
            if stat.S_ISLNK(mode):
                text = f"l {os.readlink(path)}"
            elif stat.S_ISDIR(mode):
                text = f"d{text}"
            elif stat.S_ISREG(mode):
                text = f"f{text} {path.read_bytes().decode('latin-1')}"
            items[str(path.relative_to(top))] = text
    return items


class OutsideTest(unittest.TestCase):
    """A bus, and a directory with the root, HOME and TMPDIR in it."""

    scratch_allowed = 0

    def setUp(self):
        bus()
        # Not below /tmp, which may be a file system without user attributes.
        self.directory = Path(tempfile.mkdtemp(prefix="larkspur-outside.", dir="/var/tmp"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.root = self.directory / "root"
        for variable, name in (("HOME", "home"), ("TMPDIR", "tmp")):
            (self.directory / name).mkdir()
            os.environ[variable] = str(self.directory / name)

    def tearDown(self):
        left = [*self.directory.glob("home/*"), *self.directory.glob("tmp/*")]
        self.assertLessEqual(len(left), self.scratch_allowed, left)

    def archive(self, *entries):
        """An archive with those entries, or one with a file and a directory."""
        entries = entries or (Entry("settings", b"on"), Entry("d/deep", b"!"))
        return make_zip(self.directory / "config.zip", *entries)

    def in_fork(self, body, *arguments):
        fork = multiprocessing.get_context("fork")
        child = fork.Process(target=body, args=arguments, daemon=True)
        child.start()
        child.join(30)
        self.assertEqual(child.exitcode, 0)

    def install(self, version="v1", type=VPN, *, archive=None, identifier="d1", **options):
        archive = archive or self.archive()
        with larkspur.Store(self.root) as store:
            store.install(type, archive, version=version, identifier=identifier, **options)

    def tool(self, *arguments, **options):
        """Runs `python3 -m larkspur` and collects status and output."""
        command = [sys.executable, "-m", "larkspur", *arguments]
        return subprocess.run(command, capture_output=True, text=True, **options)


def main():
    """Runs the tests of the calling module; the exit status tells CTest if all were skipped."""
    result = unittest.main(exit=False).result
    for _, reason in result.skipped:
        print("skipped:", reason)
    nothing_ran = result.skipped and len(result.skipped) >= result.testsRun
    sys.exit(SKIPPED if nothing_ran else not result.wasSuccessful())
