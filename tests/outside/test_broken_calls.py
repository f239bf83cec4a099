# SPDX-License-Identifier: Apache-2.0
"""Kills an operation at each of its system calls, or makes the call fail."""

import math
import os
import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

from breaking import OPERATIONS, World, points
from support import OutsideTest, main

# A quick run breaks a sample of the calls, spread over all of them; `scripts/deep` breaks each.
EVERY_POINT = "LARKSPUR_SWEEP_EVERY_POINT" in os.environ
ERRORS = [f"error={error}" for error in ("ENOSPC", "EIO", "EACCES", "EMFILE", "ENOMEM")]
OLD_WAY = "renameat2:error=EINVAL"
NEW, OLD, LOST = "v2 v2 v2", "v1 v1 v1", "- - v1"


@unittest.skipUnless(shutil.which("strace"), "strace is missing")
class BrokenCalls(OutsideTest):
    scratch_allowed = math.inf

    def setUp(self):
        super().setUp()
        self.world, self.scratch = World(self.directory), self.directory / "tmp"

    def run_broken(self, operation, *injections):
        for entry in (*self.root.glob("*"), *self.scratch.glob("*")):
            shutil.rmtree(entry, ignore_errors=True)  # The tool of a killed library may still write.
        self.world.make(OPERATIONS[operation][0])
        return self.world.run(operation, *injections)

    def expect(self, allowed):
        left = [*self.scratch.iterdir(), *self.root.glob(".larkspur-*")]
        self.assertFalse([path for path in left if path.stat().st_mode & 0o77], "open to others")
        self.assertIsNone(self.world.problem(allowed))

    def break_each_call(self, ways, *always):
        for operation in OPERATIONS:
            found = [*points(self.run_broken(operation, *always)[1])]
            sample = found if EVERY_POINT else found[:: len(found) // 30 + 1]
            statuses = []
            for at, (call, number) in enumerate(sample):
                for way in ways if EVERY_POINT else [ways[at % len(ways)]]:
                    broken = f"{call}:{way}:when={number}"
                    with self.subTest(f"{operation}, {broken}"):
                        statuses.append(self.run_broken(operation, *always, broken)[0])
                        self.check(operation, broken, statuses[-1], always)
            # Not all of them: how often the library waits for the tool varies.
            self.assertGreater(len(statuses) - statuses.count(64), 7)
            print(self.id(), operation, len(statuses), "points,", statuses.count(64), "done")

    def check(self, operation, broken, status, always):
        allowed, now = OPERATIONS[operation][1], self.world.state()
        if status == -9:
            self.assertNotRegex(now, "v1 .*; v2")
        else:
            self.assertIn(status % 64, (0, 2, 4, 7, 8, 34))
            changed = "; - " in now if operation == "delete" else "; v2" in now or status == 64
            self.assertEqual(status >= 64, changed)
            self.assertLessEqual(len([*self.scratch.iterdir()]), 1)
        if status == 64 and operation != "delete":
            # The pass that sets the modes skips what it cannot read, unless out of resources.
            skips = re.match("(openat|getdents64):error=(ENOSPC|EIO|EACCES)", broken)
            v2 = "(v2|other)" if skips else "v2"
            allowed = f"{allowed.partition(';')[0]}; {v2} v2 {v2}"
        elif operation == "update" and (status != -9 or always):
            allowed += f"|- - -; {LOST}"
        self.expect(allowed)

    def test_killed(self):
        self.break_each_call(["signal=KILL"])

    def test_killed_without_exchange(self):
        self.break_each_call(["signal=KILL"], OLD_WAY)

    def test_failed(self):
        self.break_each_call(ERRORS)

    def test_across_mounts(self):
        self.scratch = Path(tempfile.mkdtemp(prefix="larkspur-outside.", dir="/dev/shm"))
        self.addCleanup(shutil.rmtree, self.scratch)
        os.environ["HOME"] = os.environ["TMPDIR"] = str(self.scratch)
        if "EXDEV" not in self.run_broken("update")[1]:
            self.skipTest("/dev/shm is no mount of its own here")
        self.break_each_call(["signal=KILL"])
        self.break_each_call(ERRORS)

    @unittest.skipIf(sys.maxsize < 1 << 32, "32-bit systems have other names for these calls")
    def test_fallbacks(self):
        by_hand, again = r"write\([^\n]*= 65536", r"(renameat\([^\n]*\n){%d}"
        staged = r"renameat2\([^\n]*/root/\.larkspur-\w+/[^\n]*RENAME_EXCHANGE\) = 0"
        # The state then, scratch and staging directories that stay, what is called, what fails.
        for state, left, called, *ways in (
            (NEW, 0, again % 2, OLD_WAY, "renameat2:error=ENOSYS"),
            (LOST, 1, again % 3, f"{OLD_WAY} renameat:error=EIO:when=3"),
            (LOST, 1, again % 3, f"{OLD_WAY} renameat:error=EIO:when=3+"),
            (LOST, 1, "INJ", "renameat2:error=EXDEV", "flock:error=EIO:when=1",
             "syncfs:error=EIO:when=1", "clone,clone3,vfork:error=EAGAIN"),
            (NEW, 0, "INJ", "mkdirat:error=EEXIST:when=2",
             "getdents64,syncfs,poll,waitid:error=EINTR:when=1"),
            (OLD, 0, "INJ", "mkdirat:error=EEXIST"),
            (LOST, 1, "fremovexattr", "mkdirat:error=ENOSPC:when=2+", "mkdirat:error=EDQUOT:when=2+"),
            (NEW, 0, staged, "renameat:error=EXDEV:when=1"),
            (NEW, 0, r"vfork\((.|\n)*waitid\(P_PID,", "pidfd_open:error=ENOSYS"),
            *((NEW, 0, by_hand, f"copy_file_range:error={error}") for error in
              ("EXDEV", "EINVAL", "ENOSYS", "EOPNOTSUPP", "EBADF", "EPERM", "ETXTBSY")),
            ("v2 v2 v1", 1, "statx.*INJ", "statx:error=EIO"),
        ):  # fmt: skip
            for way in ways:
                with self.subTest(way):
                    status, calls = self.run_broken("update", *way.split())
                    self.assertEqual(status == 64, state == NEW)
                    self.assertRegex(calls, called)
                    paths = [*self.scratch.iterdir(), *self.root.glob(".larkspur-*")]
                    self.assertEqual(len(paths), left, paths)
                    self.expect(f"- - -; {state}")

    def test_new_tree_is_flushed_before_the_exchange(self):
        """Its own file system, after the last change to it, and only once."""
        for moved_or_copied in ((), ["renameat:error=EXDEV:when=1"]):
            calls = self.run_broken("update", *moved_or_copied)[1].partition("EXCHANGE) = 0")[0]
            self.assertRegex(calls, r'\nsyncfs\(\d+<(.*)>\) += 0\n((close|newfstatat|---).*\n)*'
                                    r'renameat2\(.*, "\1", .*$')  # fmt: skip
            self.assertEqual(calls.count("syncfs("), 1)


if __name__ == "__main__":
    main()
