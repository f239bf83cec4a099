# SPDX-License-Identifier: Apache-2.0
# Hosts with unusual settings, with full volumes, and a long-running one.

import ctypes
import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

import larkspur
from support import VPN, Entry, OutsideTest, make_zip, record, snapshot

LIBC = ctypes.CDLL(None)
CYCLES = int(os.environ.get("LARKSPUR_SOAK_CYCLES", 300))


class Hosts(OutsideTest):
    scratch_allowed = 2  # From the two installs on a full root.

    def setUp(self):
        super().setUp()
        if os.geteuid() or subprocess.run(["unshare", "--mount", "true"], check=False).returncode:
            self.skipTest("other users and volumes need root and mount namespaces")

    # Mounts a file system that only this process sees.
    def mount(self, name, options="size=10m"):
        LIBC.unshare(0x20000)  # CLONE_NEWNS
        mount = f"mkdir -p {name}; mount --make-rprivate / && mount -t tmpfs -o {options} x {name}"
        subprocess.run(mount, shell=True, check=True, cwd=self.directory)

    def unprivileged_owner(self):
        os.umask(0)
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        del os.environ["HOME"]
        subprocess.run(["chown", "-R", "65534", self.directory], check=True)
        os.setuid(65534)

    def closed_standard_streams(self):
        os.umask(0o77)
        self.mount("home")
        os.closerange(0, 3)

    # Closes every descriptor after start-up, and uses the numbers for other files.
    def reused_descriptors(self):
        larkspur.Store(self.root).close()
        os.closerange(3, 100)
        while os.open(os.devnull, os.O_RDWR) < 40:
            pass

    # Installs, updates and deletes in a root that does not exist, nor do its parents.
    def everything(self, prepare):
        archive = self.archive()
        state = lambda: [*os.listdir("/proc/self/fd"), *(
            line for line in Path("/proc/self/status").read_text().splitlines()
            if line.startswith(("Umask", "SigB", "SigI", "SigC")))]  # fmt: skip
        prepare()
        with larkspur.Store(self.root / "deep/er") as store:
            before = state()
            for version in ("1", "2"):
                store.install(VPN, archive, version=version, identifier="d1")
            modes = sorted(kind.split()[0] for kind in snapshot(self.root).values())
            store.delete("2")
            self.assertEqual(state(), before)
        self.assertEqual(modes, ["d755"] * 6 + ["f444"] * 3)

    def test_settings_make_no_difference(self):
        for prepare in (self.unprivileged_owner, self.closed_standard_streams,
                        self.reused_descriptors):  # fmt: skip
            self.in_fork(self.everything, prepare)
            shutil.rmtree(self.root)

    # Updates on a full volume; the tool may ask what to do, until its input ends.
    def fill(self, place, options, archive, seconds):
        self.mount(place, options)
        self.install()
        saved, start = snapshot(self.root / "._saved"), time.monotonic()
        error = larkspur.UnzipFailed if place == "home" else larkspur.InternalError
        with subprocess.Popen(["sleep", str(seconds)], stdout=subprocess.PIPE) as other:
            os.dup2(other.stdout.fileno(), 0)
            self.assertRaises(error, self.install, "2", archive=archive)
        self.assertGreaterEqual(time.monotonic() - start, seconds)
        with larkspur.Store(self.root) as store:
            versions = [service.version for service in store.services()]
        found = versions, (self.root / VPN).exists(), snapshot(self.root / "._saved")
        # The saved copy comes after the tree and its record.
        updated = ["2"], True, {VPN: "d755"}
        self.assertEqual(found, updated if place == "root/._saved" else ([], False, saved))

    def test_full_volumes(self):
        large = "size=1m", make_zip(self.directory / "large.zip", Entry("x", bytes(3 << 20)))
        many = "nr_inodes=100", make_zip(self.directory / "m", *map(Entry, map(str, range(4000))))
        for place, volume, seconds in (("home", large, 1), ("home", many, 0), ("root", large, 0),
                                       ("root", many, 0), ("root/._saved", large, 0)):  # fmt: skip
            with self.subTest(place, volume=volume):
                self.in_fork(self.fill, place, *volume, seconds)

    def test_saved_copy_is_deleted_before_it_is_copied(self):
        self.install()
        saved = self.root / "._saved" / VPN
        self.assertRaises(larkspur.InternalError, self.install, "2", archive=saved / "config.zip")
        self.assertEqual(record(self.root / VPN)["declarationVersionKey"], "2")
        self.assertEqual(os.listdir(saved), [])

    def test_long_run_leaks_nothing(self):
        archive, used = self.archive(), []
        members = {"_fields_": [("members", ctypes.c_size_t * 10)]}
        LIBC.mallinfo2.restype = type("mallinfo2", (ctypes.Structure,), members)
        with larkspur.Store(self.root) as store:
            for cycle in range(CYCLES):
                store.install(VPN, archive, version="1", identifier="d", sha256="s")
                store.delete("1")
                if cycle in (CYCLES // 10, CYCLES - 1):
                    heap = LIBC.mallinfo2().members
                    children = Path("/proc/thread-self/children").read_text().split()
                    used.append((heap[4] + heap[7], len(os.listdir("/proc/self/fd") + children)))
        self.assertLessEqual(used[1][0] - used[0][0], 4096)
        self.assertLessEqual(used[1][1] - used[0][1], 2, "more than one exiting tool")
