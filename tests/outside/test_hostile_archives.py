# SPDX-License-Identifier: Apache-2.0
# Malicious archives: the result of each, and that nothing outside the service changes. SECURITY.md
# explains the surprising results.

import contextlib
import os
import shutil
import stat
import subprocess
import sys
from pathlib import PurePath

import larkspur
from support import VPN, Entry, OutsideTest, directory, link, snapshot

X, Y, ENCRYPTED = b"X", b"Y", Entry("x", bytes(20), flags=1)
LONG, DEEP = "n" * 255, ("d" * 199 + "/") * 20
MANY = [str(number) for number in range(10000, 15000)]
REFUSED = [
    b"PK\5\6" + bytes(18), [Entry(name, X, checksum=1) for name in MANY[:2000]],
    [Entry("a", X), Entry("x", X, checksum=1)], [Entry("x", b"\7XX", method=8)],
    [Entry("x", X, method=99)], [ENCRYPTED], [Entry("/etc/x", X)],
    [Entry("x", X), Entry("x/y", Y)], [Entry("x/y", Y), Entry("x", X)],
    [Entry("DOS\\x", X, system=0)], [link("l", "../.."), Entry("l/x", X)],
    [Entry("x", X), Entry(LONG + "n", X)], [Entry(DEEP * 2 + "x", X)],
    [Entry("n" * 60_000 + end) for end in ("1", "2", "3", "4")],
]  # fmt: skip
# Entries, and the files that they become; of two with one name the last one wins.
ACCEPTED = [
    (Entry("../x", X), "x"), (Entry("a/../../y", Y), "a/y"), (Entry("Unix\\x", X), "Unix\\x"),
    (Entry("twice", X), "twice"), (Entry("twice", Y), "twice"), (Entry("TWICE", X), "TWICE"),
    (Entry("\x1b[J\a\x7f", X), "[J"), (Entry("n\n", X), "n"), (Entry("n", Y), "n"),
    (Entry(b"z\0b", X), "z"), (Entry(b"caf\xe9\xff", X), os.fsdecode(b"caf\xe9")),
    (Entry("né", X, flags=0x800, extra=b"UT\5\0\1\0\0\0\0"), "né"),
    (Entry("café", X, flags=0x800, system=0), os.fsdecode(b"caf+\xae")),
    (Entry(LONG, X), LONG), (Entry(DEEP + "x", X), DEEP + "x"), (link("l", ""), "l"),
    (Entry("p", mode=stat.S_IFIFO), "p"), (Entry("d", X, stat.S_IFBLK), "d"),
    (directory("closed/", 0), "closed"), (Entry("closed/x", X), "closed/x"),
    (Entry("set-id", X, stat.S_IFREG | 0o7777), "set-id"),
]  # fmt: skip


class HostileArchives(OutsideTest):
    scratch_allowed = 1

    def setUp(self):
        super().setUp()
        # Options that would change what the tool unpacks.
        os.environ.update(UNZIP="-j -: -K -aa", UNZIPOPT="-j -: -K -aa", LC_ALL="C")
        self.good, self.next = self.archive().read_bytes(), self.directory / "config.zip"

    # Checks and installs the bytes or entries over a good version.
    def expect(self, archive, error=None, tree={}):
        self.install("v1")
        self.next.write_bytes(archive) if isinstance(archive, bytes) else self.archive(*archive)
        before, new = snapshot(self.directory), f"root/{VPN}"
        expecting = lambda: self.assertRaises(error) if error else contextlib.nullcontext()
        with larkspur.Store(self.root) as store, expecting():
            store.check(self.next)
        self.assertEqual(snapshot(self.directory), before)
        with expecting():
            self.install("v2", archive=self.next)
        for path in self.directory.glob("tmp/*"):
            self.assertEqual((error is None, path.stat().st_mode & 0o777), (False, 0o700))
            shutil.rmtree(path)
        after = {path: kind for path, kind in before.items() if not path.startswith(new)}
        if not error:
            after |= {new: "d755"} | {f"{new}/{path}": kind for path, kind in tree.items()}
            after[f"root/._saved/{VPN}/config.zip"] = f"f444{before['config.zip'][4:]}"
        self.assertEqual(snapshot(self.directory), after)

    def test_refused(self):
        cut = [self.good[:end] for end in range(0, len(self.good), 29)]
        for archive in (*REFUSED, *cut, b"j" * 200 + self.good, self.good + b"j" * 100_000):
            with self.subTest(str(archive)[:99]):
                self.expect(archive, larkspur.UnzipFailed)
        secret = self.directory / "secret"
        secret.touch(0o400)
        for name, target in (("l", "/nowhere"), ("l", str(secret)), ("a/b/l", ".."), ("a/l", "x")):
            with self.subTest(name, target=target):
                self.expect([Entry("x", X), link(name, target)], larkspur.SymbolicLinksNotAllowed)

    def test_accepted(self):
        good = {"settings": "f444 on", "d": "d755", "d/deep": "f444 !"}
        self.expect(self.good + b"j", tree=good)
        tree = {path: f"f444 {entry.data.decode()}" for entry, path in ACCEPTED}
        tree |= {str(parent): "d755" for path in tree for parent in PurePath(path).parents[:-1]}
        self.expect([entry for entry, _ in ACCEPTED], tree=tree)
        self.expect([Entry(name, X) for name in MANY], tree=dict.fromkeys(MANY, "f444 X"))
        # The tool takes a name for a pattern first, and adds ".zip" if there is no such file.
        for name, meant in (("[ab]x.zip", "ax.zip"), ("svc", "svc.zip")):
            (self.directory / name).mkdir()
            (self.directory / meant).write_bytes(self.good)
            self.install("v3", archive=self.directory / name, sha256="s")
            self.assertEqual(snapshot(self.root / VPN), good)

    def test_passwords_are_not_asked_for_at_a_terminal(self):
        self.archive(ENCRYPTED)
        install = f"{sys.executable} -m larkspur {self.root} install {VPN} {self.next}"
        command = ["script", "-qec", f"{install} --version v1 --identifier d1", "/dev/null"]
        end = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=20)
        self.assertRegex(end.stdout, b"^larkspur: UnzipFailed")  # And no prompt.
