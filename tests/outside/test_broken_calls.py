# SPDX-License-Identifier: Apache-2.0
# Kills an operation at each of its system calls, or makes the call fail.

import os
import re
import shutil
from pathlib import Path

from breaking import OPERATIONS, World, points
from support import OutsideTest

# A quick run breaks a sample of the calls, spread over all of them; `scripts/deep` breaks each.
EVERY_POINT = "LARKSPUR_SWEEP_EVERY_POINT" in os.environ
KILL, OLD_WAY = ["signal=KILL"], "renameat2:error=EINVAL"
ERRORS = [f"error={error}" for error in ("ENOSPC", "EIO", "EACCES", "EMFILE", "ENOMEM")]
DECLINED = "EXDEV", "EINVAL", "ENOSYS", "EOPNOTSUPP", "EBADF", "EPERM", "ETXTBSY"
NEW, OLD, LOST = "v2 v2 v2", "v1 v1 v1", "- - v1"


class BrokenCalls(OutsideTest):
    scratch_allowed = 2

    def setUp(self):
        super().setUp()
        if os.system("strace -o /dev/null true") != 0:
            self.skipTest("strace cannot run here")
        self.world, self.scratch = World(self.directory), self.directory / "tmp"

    def run_broken(self, operation, *injections):
        for entry in (*self.root.glob("*"), *self.scratch.glob("*")):
            shutil.rmtree(entry, ignore_errors=True)  # A killed host's tool may still write.
        self.world.make(OPERATIONS[operation][0])
        return self.world.run(operation, *injections)

    def expect(self, allowed, numbers):
        left = [*self.scratch.iterdir(), *self.root.glob(".larkspur-*")]
        self.assertFalse([path for path in left if path.stat().st_mode & 0o77], "open to others")
        self.assertIn(len(left), numbers, left)
        self.assertIsNone(self.world.problem(allowed))

    def break_each_call(self, ways, *always):
        for operation in OPERATIONS:
            found = [*points(self.run_broken(operation, *always)[1])]
            self.assertGreater(len(found), 60)
            every = EVERY_POINT or operation == "delete"
            for at, (call, number) in enumerate(found[:: 1 if every else 4]):
                for way in ways if EVERY_POINT else [ways[at % len(ways)]]:
                    broken = f"{call}:{way}:when={number}"
                    with self.subTest(f"{operation}, {broken}"):
                        status, _ = self.run_broken(operation, *always, broken)
                        self.check(operation, broken, status, always)

    def check(self, operation, broken, status, always):
        allowed = OPERATIONS[operation][1]
        self.assertIn(status, (0, -9, 2, 4, 7, 8, 34))
        if status == 0 and operation != "delete":
            # The pass that sets the modes skips what it cannot read, unless out of resources.
            skips = re.match("(openat|getdents64):error=(ENOSPC|EIO|EACCES)", broken)
            v2 = "(v2|other)" if skips else "v2"
            allowed = f"{allowed.partition(';')[0]}; {v2} v2 {v2}"
        elif operation == "update" and (status != -9 or always):
            allowed += f"|- - -; {LOST}"
        elif status == -9:
            allowed = f"(?!v1 .*; v2){allowed}"
        self.expect(allowed, range(3))

    def test_killed(self):
        self.break_each_call(KILL)
        self.break_each_call(KILL, OLD_WAY)

    def test_failed(self):
        self.break_each_call(ERRORS)

    def test_across_mounts(self):
        self.scratch = Path("/dev/shm") / self.directory.name
        self.scratch.mkdir()
        self.addCleanup(shutil.rmtree, self.scratch)
        os.environ["HOME"] = os.environ["TMPDIR"] = str(self.scratch)
        if "EXDEV" not in self.run_broken("update")[1]:
            self.skipTest("/dev/shm is not a separate mount here")
        self.break_each_call(KILL)
        self.break_each_call(ERRORS)

    def test_fallbacks(self):
        # State afterwards, directories left over, calls that must appear, calls that fail.
        for state, left, called, *ways in (
            (NEW, 0, r"(renameat\(.*\n){2}", OLD_WAY),
            (LOST, 1, r"(renameat\(.*\n){3}", f"{OLD_WAY} renameat:error=EIO:when=3",
             f"{OLD_WAY} renameat:error=EIO:when=3+"),
            (LOST, 1, "INJ", "renameat2:error=EXDEV", "flock:error=EIO:when=1",
             "syncfs:error=EIO:when=1", "clone,clone3,vfork:error=EAGAIN"),
            (LOST, 1, "fremovexattr", "mkdirat:error=ENOSPC:when=2+",
             "mkdirat:error=EDQUOT:when=2+"),
            (NEW, 0, "INJ", "mkdirat:error=EEXIST:when=2",
             "getdents64,syncfs,poll,waitid:error=EINTR:when=1"),
            (OLD, 0, "INJ", "mkdirat:error=EEXIST"),
            (NEW, 0, r"vfork\((.|\n)*waitid\(P_PID,", "pidfd_open:error=ENOSYS"),
            (NEW, 0, r"write\(.*= 65536", *(f"copy_file_range:error={code}" for code in DECLINED)),
        ):  # fmt: skip
            for way in ways:
                with self.subTest(way):
                    status, calls = self.run_broken("update", *way.split())
                    self.assertEqual(status == 0, state == NEW)
                    self.assertRegex(calls, called)
                    self.expect(f"- - -; {state}", [left])

    # An update flushes twice: the tree's volume right before the exchange, and once at the end.
    def test_flushes(self):
        for copied in ((), ["renameat:error=EXDEV:when=1"]):
            calls, _, rest = self.run_broken("update", *copied)[1].partition("EXCHANGE) = 0")
            self.assertRegex(calls, r'\nsyncfs\(\d+<(.*)>\) += 0\n((close|\w*stat\w*|---).*\n)*'
                             r'renameat2\(.*, "\1", .*$')  # fmt: skip
            self.assertEqual((calls.count("syncfs("), rest.count("syncfs(")), (1, 1))
