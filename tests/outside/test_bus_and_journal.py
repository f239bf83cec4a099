# SPDX-License-Identifier: Apache-2.0
# Announced changes, log lines and events, with daemons that restart, freeze and go away.

import ctypes
import json
import os
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import larkspur
from support import CHANGED, VPN, Entry, Listener, OutsideTest, background, bus, make_zip

FAILED = f"Failed posting notification {CHANGED}%s, errno: %d"


# Some versions of sd-bus hold more than the socket, which a forked child cannot close.
def sockets():
    return sum(path.is_socket() for path in Path("/proc/self/fd").iterdir())


class BusTest(OutsideTest):
    def setUp(self):
        super().setUp()
        self.lines = []
        larkspur.use_hooks(log=lambda _, kind, text: kind == "Platform" and self.lines.append(text))
        self.store = self.enterContext(larkspur.Store(self.root))
        self.addCleanup(bus().restart)
        self.restart()

    # Breaks every connection to the bus.
    def restart(self, policy=""):
        bus().restart(policy)
        self.listener = Listener()
        self.addCleanup(self.listener.close)

    def freeze(self, signal=signal.SIGSTOP):
        bus().daemon.send_signal(signal)

    # Deletes a service of this type, which announces it; returns how long it took.
    def post(self, type):
        begin = time.monotonic()
        (tree := self.root / type).mkdir()
        os.setxattr(tree, "user.Larkspur", b'{"declarationVersionKey":"%d"}' % hash(type))
        self.store.delete(str(hash(type)))
        return time.monotonic() - begin

    # Each of these arrives once; on a busy machine, one may wait for the next post.
    def expect(self, *types):
        while any(line.endswith("waits for the bus to answer") for line in self.lines):
            self.lines.clear()
            self.post("again")
            types += ("again",)
        names = self.listener.received(len(types), 20)
        self.assertCountEqual(names, [CHANGED + type for type in types])

    def test_restarted_and_stopped(self):
        used = set()
        for type in "first", "second", "third":
            self.post(type)
            self.expect(type)
            self.freeze()
            self.assertLess(self.post("late"), 0.8)
            self.freeze(signal.SIGCONT)
            self.expect("late")
            used.add(sockets())
            self.listener.close()
            self.restart()
        self.assertEqual((self.lines, len(used)), ([], 1))
        self.post("\udcff")
        bus().stop()
        self.assertLess(self.post("lost"), 0.8)
        self.assertEqual(self.lines, [FAILED % ("\udcff", 22), FAILED % ("lost", 111)])
        line = "Failed getting darwin notification center. errno: 111"
        with self.assertRaises(larkspur.NotReady) as caught:
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = "nonsense:"
            larkspur.Store(self.root)
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = bus().address
        self.assertEqual(caught.exception.detail, line)

    def test_frozen_bus_delays_one_post(self):
        self.freeze()
        signal.signal(signal.SIGALRM, lambda *_: None)  # Signals do not end the wait.
        signal.setitimer(signal.ITIMER_REAL, 0.1, 0.1)
        first, *others = [self.post(type) for type in "abc"]
        signal.setitimer(signal.ITIMER_REAL, 0)
        self.assertAlmostEqual(first, 1.4, delta=0.5)
        self.assertLess(max(others), 0.8)
        line = f"Notification {CHANGED}%s waits for the bus to answer"
        self.assertEqual(self.lines, [line % type for type in "abc"])
        self.freeze(signal.SIGCONT)
        self.post("d")
        self.expect(*"abcd")
        # A lost post does not delay or lose the next one.
        self.restart()
        self.freeze()
        self.post("lost")
        self.restart()
        self.post("next")
        self.expect("next")

    def test_broken_connection_is_tried_once_more(self):
        silent = f"unix:abstract=larkspur-silent-{os.getpid()}"
        for following, arriving in (bus().address, ["name"]), (silent, []):
            listening = socket.socket(socket.AF_UNIX)
            listening.bind(silent.replace("unix:abstract=", "\0"))
            listening.listen()
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = silent
            larkspur.Store(self.root).close()  # Connects there, as the bus has restarted.
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = following
            threading.Timer(0.2, listening.close).start()
            self.post("name")
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = bus().address
            self.expect(*arriving)
            self.restart()
        self.assertEqual(self.lines, [FAILED % ("name", 111)])

    def test_threads_and_forked_processes(self):
        def child():
            before = sockets()
            self.post("child")
            self.assertEqual(sockets(), before)

        types = [str(number) for number in range(100)]
        with ThreadPoolExecutor(4) as pool:
            list(pool.map(self.post, types))
        self.in_fork(child)
        self.post("parent")
        self.expect("child", "parent", *types)
        self.assertEqual(self.lines, [])
        # A child forked while another thread waits for the bus.
        self.restart()
        self.freeze()
        threading.Thread(target=self.post, args=["waiting"]).start()
        time.sleep(0.2)
        self.in_fork(self.post, "forked")

    def test_reused_descriptor_is_not_touched(self):
        def host():
            self.post("first")
            os.closerange(3, 100)
            stranger = os.memfd_create("stranger")
            for number in range(stranger, 40):
                os.dup2(stranger, number)
            self.post("second")
            files = {os.fstat(number).st_ino for number in range(stranger, 40)}
            os.closerange(stranger + 1, 100)
            self.post("third")
            found = os.fstat(stranger)
            self.assertEqual((files, found.st_size), ({found.st_ino}, 0))

        self.in_fork(host)
        self.expect("first", "second", "third")

    @unittest.skipIf(os.geteuid(), "only root can send as another user")
    def test_example_policy(self):
        nobody = 65534
        self.directory.chmod(0o755)
        os.chown(self.root, nobody, nobody)
        place = "packaging/examples/dbus-1/com.corvid.Larkspur1.conf"
        example = (Path(__file__).parents[2] / place).read_text().replace('"root"', '"nobody"')
        policy = example[example.index("<policy") : example.rindex("</busconfig>")]
        # Without the policy the forgery works.
        for added, arriving in (policy, ["genuine"]), ("", ["forged", "genuine"]):
            self.restart(added)
            self.in_fork(self.post, "forged")
            self.in_fork(lambda: os.setresuid(*[nobody] * 3) or self.post("genuine"))
            self.expect(*arriving)


class JournalTest(OutsideTest):
    def setUp(self):
        super().setUp()
        # Covers each place where a journal has sockets or files.
        mount = "mount --make-rprivate /; mount -t tmpfs none /run; mount -t tmpfs none /var/log"
        command = f"set -e; {mount}; mkdir -p /run/systemd/journal /run/log/journal"
        is_private = ctypes.CDLL(None).unshare(0x20000) == 0  # CLONE_NEWNS
        if not is_private or subprocess.run(command, shell=True).returncode:
            self.skipTest("a private journal needs root and mount namespaces")
        self.journal = self.enterContext(background("/lib/systemd/systemd-journald"))
        self.addCleanup(self.journal.kill)
        while not os.path.exists("/run/systemd/journal/io.systemd.journal"):
            self.assertIsNone(self.journal.poll())
            time.sleep(0.02)

    # What reached the journal in its own protocol.
    def entries(self):
        command = "journalctl --sync; journalctl -D /run/log/journal -qo json -a _TRANSPORT=journal"
        output = subprocess.run(command, shell=True, check=True, stdout=subprocess.PIPE).stdout
        return [json.loads(line) for line in output.splitlines()]

    # Logs some lines, the last of them too long for one datagram.
    def log_lines(self, level=larkspur.LogLevel.ERROR, finds=1):
        bad = [Entry(f"/{number}" + f"/{'x' * 200}" * 14) for number in range(100)]
        bad = make_zip(self.directory / "bad.zip", *bad)
        larkspur.use_hooks(change=lambda _: None, log_level=level)
        self.install()
        begin = time.monotonic()
        with larkspur.Store(self.root) as store:
            for _ in range(finds):
                self.assertEqual(store.find("v1"), VPN)  # Logs a line about the saved copies.
            self.assertRaises(larkspur.UnzipFailed, store.check, bad)
        self.assertLess(time.monotonic() - begin, 5)

    def test_entries(self):
        for _ in range(5):  # A busy journal may lose some lines.
            self.log_lines(larkspur.LogLevel.DEBUG)
        entries = {entry["MESSAGE"].partition(":")[0]: entry for entry in self.entries()}
        long = entries["unzip configuration file from cmdline failed with error"]
        self.assertGreaterEqual(len(long["MESSAGE"].splitlines()), 100)
        event = {"MESSAGE_ID": "8864df6bdee9bd9598301675c291157e", "LARKSPUR_SIZE": "210",
                 "LARKSPUR_EVENT": "com.corvid.Larkspur", "LARKSPUR_SERVICE_TYPE": "Other",
                 "LARKSPUR_ENABLED": "1", "LARKSPUR_NUMBER_OF_MANAGED_SERVICES": "1"}  # fmt: skip
        common = {"LARKSPUR_SUBSYSTEM": "LarkspurFramework",
                  "SYSLOG_IDENTIFIER": os.path.basename(sys.orig_argv[0])}  # fmt: skip
        for entry, priority, fields in (
            (long, "3", {"LARKSPUR_CATEGORY": "Utilities"}),
            (entries["Received archive, inflating and updating..."], "6", {}),
            (entries["Temporary directory to unzip contents"], "7", {}),
            (entries["Analytics event"], "6", event),
        ):
            self.assertEqual(entry, entry | common | fields | {"PRIORITY": priority})

    def test_frozen_refusing_or_absent_journal(self):
        self.journal.send_signal(signal.SIGSTOP)
        self.log_lines(finds=200)
        self.journal.send_signal(signal.SIGCONT)
        before = len(self.entries())  # Waits until the journal has read what it was sent.
        self.log_lines()
        self.assertEqual(len(self.entries()), before + 5)
        self.journal.kill()
        self.journal.wait()
        self.log_lines(finds=200)
        os.unlink("/run/systemd/journal/socket")
        self.log_lines(finds=200)
