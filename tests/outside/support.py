# SPDX-License-Identifier: Apache-2.0
# Runs the tests of the built library, and has their bus, root, archives and snapshots.

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
BAD = b"not an archive"

# The rules of a stock system bus for unnamed connections: broadcast, and talk to the bus.
_POLICY = """<auth>EXTERNAL</auth><policy context="default">
  <allow user="*"/><deny own="*"/><deny send_type="method_call"/><allow send_type="signal"/>
  <allow receive_type="signal"/><allow receive_type="method_return"/><allow receive_type="error"/>
  <allow send_destination="org.freedesktop.DBus"/></policy>"""


# A private system bus that keeps its address when it restarts.
class PrivateBus:
    daemon = None

    def __init__(self):
        self.address = f"unix:abstract=larkspur-outside-{os.getpid()}"
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = self.address
        self.restart()
        atexit.register(self.stop)

    def restart(self, policy=""):
        self.stop()
        with tempfile.NamedTemporaryFile("w", suffix=".conf", dir="/var/tmp") as configuration:
            policy = f"<listen>{self.address}</listen>{_POLICY}{policy}"
            configuration.write(f"<busconfig>{policy}</busconfig>")
            configuration.flush()
            command = ["dbus-daemon", "--nofork", "--nopidfile", "--print-address"]
            command.append(f"--config-file={configuration.name}")
            self.daemon = background(*command, stdout=subprocess.PIPE)
            with self.daemon.stdout as output:
                assert output.readline(), "dbus-daemon does not start"

    def stop(self):
        if self.daemon:
            self.daemon.kill()
            self.daemon.wait()


# Starts a program that ends with this process, even if that is killed.
def background(*command, **options):
    return subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *command], **options)


# The bus of this process, started on first use.
@functools.cache
@unittest.skipUnless(shutil.which("dbus-daemon"), "dbus-daemon is missing")
def bus():
    return PrivateBus()


# Collects the changes announced on the bus.
class Listener:
    def __init__(self):
        self._names = []
        self._systemd = ctypes.CDLL("libsystemd.so.0")
        self._handler = ctypes.CFUNCTYPE(ctypes.c_int, *[ctypes.c_void_p] * 3)(self._receive)
        self._bus = ctypes.c_void_p()
        match = None, b"/com/corvid/Larkspur1", b"com.corvid.Larkspur1", b"Changed", self._handler
        assert self._systemd.sd_bus_open_system(ctypes.byref(self._bus)) >= 0
        assert self._systemd.sd_bus_match_signal(self._bus, None, *match, None) >= 0

    def _receive(self, message, _data, _error):
        name = ctypes.c_char_p()
        self._systemd.sd_bus_message_read(ctypes.c_void_p(message), b"s", ctypes.byref(name))
        self._names.append(name.value.decode(errors="surrogateescape"))
        return 0

    # The names since the last call: waits for `count` of them, at most `limit` seconds.
    def received(self, count, limit=2):
        end = time.monotonic() + limit
        while len(self._names) < count and time.monotonic() < end:
            if self._systemd.sd_bus_process(self._bus, None) == 0:
                self._systemd.sd_bus_wait(self._bus, ctypes.c_uint64(10_000))
        names, self._names = self._names, []
        return names

    def close(self):
        self._bus.value = self._systemd.sd_bus_close_unref(self._bus)


# An entry of an archive, possibly with a wrong checksum. The data is not compressed.
@dataclass
class Entry:
    name: str | bytes
    data: bytes = b""
    mode: int = stat.S_IFREG | 0o644
    checksum: int | None = None  # The correct one by default.
    flags: int = 0  # Bit 0: encrypted; bit 11: the name is UTF-8.
    method: int = 0
    extra: bytes = b""
    system: int = 3  # Made on Unix; 0: on DOS.


def directory(name, mode=0o755):
    return Entry(name, mode=stat.S_IFDIR | mode)


def link(name, target):
    return Entry(name, os.fsencode(target), stat.S_IFLNK | 0o777)


# Writes or overwrites an archive.
def make_zip(path, *entries):
    content, index = b"", b""
    for entry in entries:
        name, size = os.fsencode(entry.name), len(entry.data)
        checksum = zlib.crc32(entry.data) if entry.checksum is None else entry.checksum
        # Version needed, flags, method, time and date, sizes; common to both headers.
        common = struct.pack("<HHHHHIIIHH", 20, entry.flags, entry.method, 0, 0x21, checksum, size,
                             size, len(name), len(entry.extra))  # fmt: skip
        name += entry.extra
        index += struct.pack("<4sBB", b"PK\1\2", 30, entry.system) + common
        index += struct.pack("<HHHII", 0, 0, 0, entry.mode << 16, len(content)) + name
        content += b"PK\3\4" + common + name + entry.data
    end = struct.pack("<HHHHIIH", 0, 0, len(entries), len(entries), len(index), len(content), 0)
    Path(path).write_bytes(content + index + b"PK\5\6" + end)
    return Path(path)


# The record on a directory, or None.
def record(path):
    try:
        return json.loads(os.getxattr(path, "user.Larkspur"))
    except OSError:
        return None


# Everything below a directory: {"a": "d755", "a/b": "f444 contents", "c": "l target"}.
def snapshot(top):
    items = {}
    for path in Path(top).rglob("*"):
        mode = path.lstat().st_mode
        text = f"{stat.filemode(mode)[0].replace('-', 'f')}{stat.S_IMODE(mode):o}"
        if stat.S_ISLNK(mode):
            text = f"l {os.readlink(path)}"
        elif stat.S_ISREG(mode):
            text += f" {path.read_bytes().decode('latin-1')}"
        items[str(path.relative_to(top))] = text
    return items


# A bus, and a directory with the root, HOME and TMPDIR in it.
class OutsideTest(unittest.TestCase):
    scratch_allowed = 0

    def setUp(self):
        bus()
        # Not below /tmp, which may be a file system without user attributes.
        self.directory = Path(tempfile.mkdtemp(prefix="larkspur-outside.", dir="/var/tmp"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.addCleanup(larkspur.use_hooks)  # Fails while a store is open.
        self.root = self.directory / "root"
        for variable, path in {"HOME": "home", "TMPDIR": "tmp"}.items():
            (self.directory / path).mkdir()
            os.environ[variable] = str(self.directory / path)

    def tearDown(self):
        left = [*self.directory.glob("home/*"), *self.directory.glob("tmp/*")]
        self.assertLessEqual(len(left), self.scratch_allowed, left)

    # An archive with those entries, or one with a file and a directory.
    def archive(self, *entries):
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


# Runs the tests of a module: support.py MODULE [TEST...]. The status tells CTest if all skipped.
if __name__ == "__main__":
    result = unittest.main(sys.argv.pop(1), exit=False).result
    for _, reason in result.skipped:
        print("skipped:", reason)
    # 77: see tests/CMakeLists.txt.
    sys.exit(77 if len(result.skipped) >= max(result.testsRun, 1) else not result.wasSuccessful())
