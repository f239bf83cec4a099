# SPDX-License-Identifier: Apache-2.0
"""Malicious archives: the result of each, and that nothing outside the service changes.

SECURITY.md explains the surprising results.
"""

import contextlib
import os
import pty
import resource
import shutil
import signal
import stat
import zipfile
from pathlib import PurePath

import larkspur
from support import CHANGED, VPN, Entry, OutsideTest, directory, link, main, make_zip, snapshot

GOOD = [Entry("a", b"A"), Entry("b/c", b"C")]
X, Y, ENCRYPTED = b"X", b"Y", Entry("x", bytes(20), flags=1)
LONG, DEEP = "n" * 255, ("d" * 199 + "/") * 20
MANY = [str(number) for number in range(10000, 15000)]
# What the tool warns about, or worse.
REFUSED = {
    "wrong checksum": [Entry("a", X), Entry("x", X, checksum=1)],
    "2,000 wrong checksums": [Entry(name, X, checksum=1) for name in MANY[:2000]],
    "names of 60,000 bytes": [Entry("n" * 60000 + end) for end in ("1", "2", "3", "")],
    "damaged stream": [Entry("x", b"\7XX", method=8)],
    "unknown method": [Entry("x", X, method=99)],
    "no entries": [],
    "encrypted": [ENCRYPTED],
    "absolute": [Entry("/etc/x", X)],
    "file, then directory": [Entry("x", X), Entry("x/y", Y)],
    "directory, then file": [Entry("x/y", Y), Entry("x", X)],
    "backslash, made on DOS": [Entry("a\\x", X, system=0)],
    "name of 256 bytes": [Entry("x", X), Entry(LONG + "n", X)],
    "path of 8,001 bytes": [Entry(DEEP * 2 + "x", X)],
    "through a link": [link("l", "../.."), Entry("l/x", X)],
}
# Entries, and the files that they become; the last one of a name wins.
ACCEPTED = [
    (Entry("../x", X), "x"), (Entry("a/../../y", Y), "a/y"),
    (Entry("twice", X), "twice"), (Entry("twice", Y), "twice"), (Entry("TWICE", X), "TWICE"),
    (Entry("\x1b[J\a\x7f", X), "[J"), (Entry("n\n", X), "n"), (Entry("n", Y), "n"),
    (Entry(b"z\0b", X), "z"), (Entry(b"caf\xe9\xff", X), os.fsdecode(b"caf\xe9")),
    (Entry("né", X, flags=0x800, extra=b"UT\5\0\1\0\0\0\0"), "né"),
    (Entry("caf\xe9", X, flags=0x800, system=0), os.fsdecode(b"caf+\xae")),
    (Entry("b\\x", X), "b\\x"), (Entry(LONG, X), LONG), (Entry(DEEP + "x", X), DEEP + "x"),
    (link("l", ""), "l"), (Entry("p", mode=stat.S_IFIFO), "p"), (Entry("d", X, stat.S_IFBLK), "d"),
    (directory("closed/", 0), "closed"), (Entry("closed/x", X), "closed/x"),
    (Entry("set-id", X, stat.S_IFREG | 0o7777), "set-id"),
]  # fmt: skip


def tree(entries):
    """The snapshot of a tree with these entries, and all their parents."""
    items = {}
    for entry, path in entries:
        items |= {str(parent): "d755" for parent in PurePath(path).parents[:-1]}
        items[path] = f"f444 {entry.data.decode()}"
    return items


class HostileArchives(OutsideTest):
    scratch_allowed = 1

    def setUp(self):
        super().setUp()
        # Options that would change what the tool unpacks.
        os.environ.update(UNZIP="-j -: -K -aa", UNZIPOPT="-j -: -K -aa", LC_ALL="C")
        self.next, self.changes = self.directory / "next.zip", []
        nothing = lambda *_: None
        larkspur.use_hooks(log=nothing, change=self.changes.append, event=nothing)
        self.good = make_zip(self.next, *GOOD).read_bytes()

    def expect(self, archive, error, tree):
        """Checks and installs the bytes or entries over a good version."""
        self.next.write_bytes(self.good)
        self.install("v1", archive=self.next)
        self.next.write_bytes(archive) if isinstance(archive, bytes) else make_zip(self.next, *archive)
        before = snapshot(self.directory)
        self.changes.clear()
        with larkspur.Store(self.root) as store:
            with self.assertRaises(error) if error else contextlib.nullcontext():
                store.check(self.next)
            self.assertEqual((snapshot(self.directory), self.changes), (before, []))
            with self.assertRaises(error) if error else contextlib.nullcontext():
                self.install("v2", archive=self.next)
            services = [(service.type, service.version) for service in store.services()]
        self.assertEqual((services, self.changes),
                         ([], []) if error else ([(VPN, "v2")], [CHANGED + VPN]))  # fmt: skip
        after = {path: kind for path, kind in before.items() if not path.startswith(f"root/{VPN}")}
        if not error:
            after[f"root/._saved/{VPN}/next.zip"] = f"f444 {self.next.read_bytes().decode('latin-1')}"
            after |= {f"root/{VPN}": "d755"} | {f"root/{VPN}/{path}": tree[path] for path in tree}
        scratch = [*self.directory.glob("tmp/*")]
        self.assertEqual([path.stat().st_mode & 0o777 for path in scratch], [0o700] * bool(error))
        for path in scratch:
            shutil.rmtree(path)
        self.assertEqual(snapshot(self.directory), after)

    def test_refused(self):
        raw = {f"cut at {end}": self.good[:end] for end in range(0, len(self.good), 29)}
        raw |= {"script": b"#!/bin/sh\n", "200 bytes in front": b"j" * 200 + self.good,
                "100,000 bytes behind": self.good + b"j" * 100_000}  # fmt: skip
        for name, archive in (REFUSED | raw).items():
            with self.subTest(name):
                self.expect(archive, larkspur.UnzipFailed, None)
        secret = self.directory / "secret"
        secret.touch(0o400)
        for name, target in (("l", "/nowhere"), ("l", str(secret)), ("a/b/l", ".."), ("a/l", "x")):
            with self.subTest(name, target=target):
                links = [Entry("x", X), link(name, target)]
                self.expect(links, larkspur.SymbolicLinksNotAllowed, None)

    def test_accepted(self):
        good = tree((entry, entry.name) for entry in GOOD)
        self.expect(self.good + b"j", None, good)
        self.expect([entry for entry, _ in ACCEPTED], None, tree(ACCEPTED))
        files = [Entry(name, X) for name in MANY]
        self.expect(files, None, tree(zip(files, MANY)))
        # The tool takes a name for a pattern first, and adds ".zip" if there is no such file.
        for name, meant in (("[ab]x.zip", "ax.zip"), ("svc", "svc.zip")):
            (self.directory / name).mkdir()
            make_zip(self.directory / meant, *GOOD)
            self.install("v3", archive=self.directory / name, sha256="s")
            self.assertEqual(snapshot(self.root / VPN), good)

    def test_passwords_are_not_asked_for_at_a_terminal(self):
        make_zip(self.next, ENCRYPTED)
        child, terminal = pty.fork()
        if child == 0:
            signal.alarm(20)
            with contextlib.suppress(larkspur.UnzipFailed):
                self.install(archive=self.next)
                os._exit(1)
            os._exit(0)
        self.assertRaises(OSError, os.read, terminal, 1)  # It closes with its last user.
        os.close(terminal)
        self.assertEqual(os.waitpid(child, 0)[1], 0)

    def test_killed_tool_counts_as_success(self):
        with zipfile.ZipFile(self.next, "w", zipfile.ZIP_DEFLATED) as archive:
            archive.writestr("x", bytes(1 << 20))
        limits = resource.getrlimit(resource.RLIMIT_FSIZE)
        self.addCleanup(resource.setrlimit, resource.RLIMIT_FSIZE, limits)
        resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 16, limits[1]))
        self.install(archive=self.next)
        self.assertEqual((self.root / VPN / "x").stat().st_size, 1 << 16)


if __name__ == "__main__":
    main()
