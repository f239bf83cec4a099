# SPDX-License-Identifier: Apache-2.0
"""Installs, updates and deletions in hosts with unusual settings, without a bus, on full volumes."""

import ctypes
import locale
import os
import re
import shutil
import signal
import subprocess
import threading
import time
import traceback
from pathlib import Path

import larkspur
from support import CHANGED, VPN, Entry, Listener, OutsideTest, bus, directory, main, make_zip, snapshot

LIBC = ctypes.CDLL(None)
CHANGE = CHANGED + VPN


def in_child(body, *arguments):
    """Whether the body succeeds, and soon enough, in a child."""
    child = os.fork()
    if child == 0:
        signal.alarm(10)
        try:
            body(*arguments)
            os._exit(0)
        except BaseException:  # pylint: disable=broad-except
            traceback.print_exc()
        finally:
            os._exit(1)
    return os.waitpid(child, 0)[1] == 0


def mount_volume(place, options="size=10m"):
    """Mounts a file system that only this process sees."""
    place.mkdir(parents=True, exist_ok=True)
    if LIBC.unshare(0x20000) != 0:  # CLONE_NEWNS
        raise OSError("no mount namespaces here")
    subprocess.run(["mount", "--make-rprivate", "/"], check=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", options, "larkspur", place], check=True)


def host_state():
    """The state of the host that a call must not change."""
    status = Path("/proc/self/status").read_text()
    environment = ctypes.POINTER(ctypes.c_char_p).in_dll(LIBC, "environ")
    return (locale.setlocale(locale.LC_ALL), os.getcwd(), [*iter(iter(environment).__next__, None)],
            re.findall("^(?:Umask|SigBlk|SigIgn|SigCgt):.*", status, re.M))  # fmt: skip


class Hosts(OutsideTest):
    scratch_allowed = 2  # From the two installs on a full root.

    def setUp(self):
        super().setUp()
        if os.geteuid() or not in_child(mount_volume, self.directory / "home"):
            self.skipTest("other users and volumes need root and mount namespaces")
        self.good = make_zip(self.directory / "good.zip", directory("a/", 0), Entry("a/x", b"X"))

    def outcome(self, archive, version="1"):
        """What the install raises, if anything."""
        try:
            self.install(version, archive=archive, sha256="s")
        except larkspur.Error as error:
            return type(error)
        return None

    def everything(self, prepare):
        """Installs, updates and deletes below a root that is missing with its parents."""
        prepare()
        before, saved = host_state(), f"deep/er/._saved/{VPN}"
        directories = "deep", "deep/er", "deep/er/._saved", saved, f"deep/er/{VPN}", f"deep/er/{VPN}/a"
        expected = dict.fromkeys(directories, "d755") | {f"deep/er/{VPN}/a/x": "f444 X"}
        expected[f"{saved}/good.zip"] = f"f444 {self.good.read_bytes().decode('latin-1')}"
        with larkspur.Store(self.root / "deep/er") as store:
            for version in ("1", "2"):
                store.install(VPN, self.good, version=version, identifier="d1", sha256="s")
            self.assertEqual(snapshot(self.root), expected)
            store.delete("2")
        self.assertEqual(host_state(), before)
        self.assertEqual([*self.directory.glob("tmp/*")], [])

    def without_home(self):
        os.umask(0)
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        del os.environ["HOME"]

    def unprivileged_owner(self):
        os.umask(0o77)
        os.environ["HOME"] = "/nonexistent/home"
        subprocess.run(["chown", "-R", "65534:65534", self.directory], check=True)
        os.setgroups([])
        os.setgid(65534)
        os.setuid(65534)

    def closed_standard_streams(self):
        mount_volume(self.directory / "home")
        os.closerange(0, 3)

    def reused_descriptors(self):
        mount_volume(self.root)
        larkspur.Store(self.root).close()
        os.closerange(3, 4096)
        while os.open("/dev/null", os.O_RDWR) < 40:
            pass

    def test_settings_of_the_host_make_no_difference(self):
        listener = Listener()
        self.addCleanup(listener.close)
        for prepare in (self.without_home, self.unprivileged_owner, self.closed_standard_streams,
                        self.reused_descriptors):  # fmt: skip
            with self.subTest(prepare.__name__):
                self.assertTrue(in_child(self.everything, prepare))
                self.assertEqual(listener.received(3), [CHANGE] * 3)
                shutil.rmtree(self.root / "deep", ignore_errors=True)
        self.assertIsNone(self.outcome(self.good))
        self.assertEqual(listener.received(1), [CHANGE], "on the parent's connection")

    def test_bus_comes_and_goes(self):
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
        freeze = lambda: bus().daemon.send_signal(signal.SIGSTOP)
        thaw = lambda: bus().daemon.send_signal(signal.SIGCONT)
        for go, come, outcome in ((freeze, thaw, None), (bus().stop, bus().restart, larkspur.NotReady)):
            with self.subTest(outcome), larkspur.Store(self.root) as store:
                install = lambda: store.install(VPN, self.good, version="1", identifier="d1")
                install()
                go()
                start = time.monotonic()
                install()
                store.delete("1")
                self.assertLess(time.monotonic() - start, 4)
                self.assertTrue(in_child(lambda: self.assertIs(self.outcome(self.good), outcome)))
                come()
                listener = Listener()
                self.addCleanup(listener.close)
                install()
                self.assertEqual(listener.received(1), [CHANGE])

    def fill(self, place, options, archive, outcome, seconds):
        """On a full volume the tool asks what to do, and waits while its input is open."""
        reading, writing = os.pipe()
        os.dup2(reading, 0)
        mount_volume(self.directory / place, options)
        self.assertIsNone(self.outcome(self.good))
        saved, start = snapshot(self.root / "._saved"), time.monotonic()
        threading.Timer(seconds, os.close, [writing]).start()
        self.assertIs(self.outcome(archive, "2"), outcome)
        self.assertGreaterEqual(time.monotonic() - start, seconds)
        # Only the saved copy comes after the tree and its record.
        done = place == "root/._saved"
        with larkspur.Store(self.root) as store:
            self.assertEqual([service.version for service in store.services()], ["2"] * done)
        self.assertEqual((self.root / VPN).exists(), done)
        self.assertEqual(snapshot(self.root / "._saved"), {VPN: "d755"} if done else saved)

    def test_full_volumes(self):
        large = make_zip(self.directory / "large.zip", Entry("x", bytes(3 << 20)))
        many = make_zip(self.directory / "many.zip", *(Entry(str(n)) for n in range(4000)))
        refused, failed, small, few = (larkspur.UnzipFailed, larkspur.InternalError, "size=1m",
                                       "nr_inodes=100")  # fmt: skip
        for row in (("home", small, large, refused, 0), ("home", small, large, refused, 1),
                    ("home", few, many, refused, 0), ("root", small, large, failed, 0),
                    ("root", few, many, failed, 0), ("root/._saved", small, large, failed, 0)):
            with self.subTest(row):
                self.assertTrue(in_child(self.fill, *row))

    def test_saved_copy_as_the_archive_is_deleted_before_it_is_copied(self):
        saved = self.root / "._saved" / VPN
        self.assertIsNone(self.outcome(self.good))
        self.assertIs(self.outcome(saved / "good.zip", "2"), larkspur.InternalError)
        self.assertEqual(snapshot(self.root / VPN), {"a": "d755", "a/x": "f444 X"})
        self.assertEqual(os.listdir(saved), [])


if __name__ == "__main__":
    main()
