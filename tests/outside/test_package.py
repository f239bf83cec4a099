# SPDX-License-Identifier: Apache-2.0
"""The Python package and its tool, on the built library."""

import gc
import hashlib
import json
import os
import pty
import subprocess
import sys
import threading
import tomllib
import unittest.mock
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import larkspur
from larkspur import LogLevel, Service, Store
from support import CHANGED, VPN, Listener, OutsideTest, link, main, record, snapshot

BAD = b"not an archive"


class PackageTest(OutsideTest):
    def test_life_of_a_service(self):
        listener = Listener()
        self.addCleanup(listener.close)
        archive = self.archive()
        digest = hashlib.sha256(archive.read_bytes()).hexdigest()
        with Store(self.root) as store:
            store.check(archive)
            self.assertEqual(store.services(), [])
            store.install(VPN, archive, version="v1", identifier="d1")
            store.install(VPN, bytes(archive), version="v2", identifier="d1", sha256="écrit")
            path = self.root / VPN
            self.assertEqual(store.path_of(VPN), path)
            self.assertEqual(store.find("v2"), VPN)
            expected = Service(VPN, "v2", "d1", "application/zip", "écrit", path)
            self.assertEqual(store.services(), [expected])
            store.install(VPN, archive, version="v3", identifier="d3", force=True)
            self.assertEqual(store.services()[0].sha256, digest)
            tree = {"settings": "f444 on", "d": "d755", "d/deep": "f444 !"}
            self.assertEqual(snapshot(path), tree)
            os.setxattr(path, "user.Larkspur", b'{"declarationVersionKey":3}')
            self.assertEqual(store.services(), [Service(VPN, None, None, None, None, path)])
            os.setxattr(path, "user.Larkspur", b'{"declarationVersionKey":"v4"}')
            store.delete("v4")
            self.assertEqual(snapshot(self.root), {"._saved": "d755"})
        self.assertEqual(listener.received(4), [CHANGED + VPN] * 4)

    def test_each_failure_has_its_class(self):
        self.install()
        before, archive = snapshot(self.root), self.archive()
        (bad := self.directory / "bad.zip").write_bytes(BAD)
        store, closed = Store(self.root), Store(self.root)
        self.addCleanup(store.close)
        closed.close()
        closed.close()

        def install(type=VPN, archive=archive, **changes):
            keys = {"version": "v2", "identifier": "d1", "sha256": "s"} | changes
            return lambda: store.install(type, archive, **keys)

        for kind, action in (
            (larkspur.InvalidMIMEType, install(content_type="text/plain")),
            (larkspur.ServiceNotFound, lambda: store.find("v9")),
            (larkspur.UpdateServiceFailed, install(identifier="d2")),
            (larkspur.UnzipFailed, lambda: store.check(bad)),
            (larkspur.ReservedServiceType, install("com.corvid.x")),
            (larkspur.SymbolicLinksNotAllowed, lambda: store.check(self.archive(link("l", "/")))),
            (larkspur.BadArgument, install("a/b")),
            (larkspur.BadArgument, lambda: store.path_of("..")),
            (larkspur.BadArgument, lambda: store.find("v1\0")),
            (larkspur.BadArgument, lambda: store.find("\ud800")),
            (larkspur.BadArgument, lambda: store.check("a\0")),
            (larkspur.BadArgument, lambda: Store("")),
            (larkspur.BadArgument, lambda: Store(b"\xff")),
            (larkspur.BadArgument, lambda: closed.services()),
            (larkspur.BadArgument, lambda: larkspur.use_hooks()),
            (larkspur.SystemFailure, lambda: Store(bad / "below")),
            (larkspur.SystemFailure, lambda: Store(self.root / "none", create=False)),
            (larkspur.SystemFailure, install(archive="/none", sha256=None)),
        ):
            with self.subTest(kind), self.assertRaises(kind) as caught:
                action()
            error = caught.exception
            self.assertTrue(error.message)
            cause = "End-of-central-directory signature not found"
            self.assertEqual(cause in error.detail, kind is larkspur.UnzipFailed)
            self.assertEqual(error.errno is not None, kind is larkspur.SystemFailure)
        self.assertEqual(snapshot(self.root), before)
        with self.assertRaises(larkspur.InternalError) as caught:
            os.rename(self.root, self.directory / "away")
            store.services()
        self.assertIn("Scanning directory", caught.exception.detail)

    def test_names_are_bytes(self):
        os.rename(self.archive(), odd := self.directory / os.fsdecode(b"\xe9.zip"))
        os.chdir(self.directory)
        with Store("rü".encode()) as store:
            self.assertEqual(store.root, root := self.directory / "rü")
            store.install(VPN, odd, version="ü", identifier="d")
            self.assertEqual(store.find("ü"), VPN)
        self.assertEqual(os.listdir(root / "._saved" / VPN), [odd.name])

    def test_hooks(self):
        calls = []
        larkspur.use_hooks(
            log=lambda level, category, text: calls.append((level, category, text.split(":")[0])),
            change=lambda name: calls.append(name),
            event=lambda *event: calls.append(event),
            log_level=LogLevel.INFO,
        )
        self.addCleanup(larkspur.use_hooks)
        gc.collect()
        self.install()
        self.assertIn(CHANGED + VPN, calls)
        size = (len(self.archive().read_bytes()) + 5) // 10 * 10
        self.assertIn(("Other", True, size, 1), calls)
        self.assertIn((LogLevel.INFO, "PersistData", "Serializing"), calls)
        raised = []
        larkspur.use_hooks(change=lambda name: 1 // 0)
        with unittest.mock.patch("sys.unraisablehook", lambda what: raised.append(what.exc_type)):
            self.install("v2")
        self.assertEqual(raised, [ZeroDivisionError])
        self.assertEqual(record(self.root / VPN)["declarationVersionKey"], "v2")

    def test_other_threads_run_during_a_call(self):
        os.mkfifo(fifo := self.directory / "fifo.zip")
        with Store(self.root) as store, ThreadPoolExecutor() as pool:
            checked = pool.submit(store.check, fifo)
            with open(fifo, "wb"):  # Waits until the tool has opened it.
                pass
            self.assertIsInstance(checked.exception(), larkspur.UnzipFailed)

    def test_store_that_is_closed_during_a_call(self):
        changed, closed = threading.Event(), threading.Event()
        larkspur.use_hooks(change=lambda name: (changed.set(), closed.wait()))
        self.addCleanup(larkspur.use_hooks)
        store, keys = Store(self.root), {"version": "v1", "identifier": "d1"}
        with ThreadPoolExecutor() as pool:
            installed = pool.submit(store.install, VPN, self.archive(), **keys)
            changed.wait()
            store.close()
            self.assertRaises(larkspur.BadArgument, store.services)
            closed.set()
            self.assertIsNone(installed.result())
        self.assertEqual(record(self.root / VPN)["declarationVersionKey"], "v1")

    def test_version(self):
        project = Path(larkspur.__file__).parents[1] / "pyproject.toml"
        version = tomllib.loads(project.read_text())["project"]["version"]
        self.assertEqual(larkspur.version(), version)


class ToolTest(OutsideTest):
    def expect(self, status, output, *arguments, errors="", **options):
        done = self.tool(*arguments, **options)
        self.assertEqual((done.returncode, done.stdout), (status, output), done.stderr)
        self.assertRegex(done.stderr, errors or r"\A\Z")

    def test_commands(self):
        root, archive = str(self.root), str(self.archive())
        for command in (["list"], ["find", "v"], ["check", archive], ["delete", "v"], ["verify"]):
            self.expect(1, "", root, *command, errors="No such file")
        self.assertFalse(self.root.exists())
        install = ["install", VPN, archive, "--version", "v\x1b\n", "--identifier", "d1"]
        self.expect(0, "", root, *install, "--sha256", "s")
        self.expect(0, f"{VPN}\tv\\x1b\\n\td1\tapplication/zip\ts\n", root, "list")
        self.expect(0, f"{VPN}\n", root, "find", "v\x1b\n")
        listed = json.loads(self.tool(root, "list", "--json").stdout)
        keys = ("type", "version", "identifier", "content_type", "sha256", "path")
        values = (VPN, "v\x1b\n", "d1", "application/zip", "s", f"{root}/{VPN}")
        self.assertEqual(listed, [dict(zip(keys, values))])
        self.expect(0, "", root, "verify")
        self.expect(0, "", root, "check", archive)
        Path(archive).write_bytes(BAD)
        refused = r"UnzipFailed \(4\): Failed unzip .*\n(.*\n)*.*End-of-central-directory"
        self.expect(1, "", root, "check", archive, errors=refused)
        self.expect(1, "", root, *install, errors=refused)
        self.expect(0, "", root, "delete", "v\x1b\n")
        self.expect(1, "", root, "delete", "v", errors=r"\Alarkspur: ServiceNotFound \(2\): .* v\n")
        self.expect(2, "", root, "install", VPN, errors="usage: ")

    def test_list_is_a_table_on_a_terminal(self):
        self.install(type="a", version="version-1", sha256="s")
        terminal, other = pty.openpty()
        command = [sys.executable, "-m", "larkspur", self.root, "list"]
        subprocess.run(command, stdout=other, check=True)
        os.close(other)
        lines = os.read(terminal, 4096).decode().splitlines()
        os.close(terminal)
        self.assertEqual(lines, ["TYPE  VERSION    IDENTIFIER  CONTENT TYPE     SHA256",
                                 "a     version-1  d1          application/zip  s"])  # fmt: skip

    def test_verify(self):
        for name in "abcdefg":
            self.install(type=name, version=name, identifier=name)
        root = self.root
        os.removexattr(root / "a", "user.Larkspur")
        os.setxattr(root / "b", "user.Larkspur", b'{"contentType":1}')
        os.chmod(root / "c/settings", 0o4644)
        os.chmod(root / "c/d", 0o700)
        (root / "d/link").symlink_to("/")
        os.mkfifo(root / "d/pipe")
        (root / "._saved/e/config.zip").unlink()
        (root / "f").rename(root / ".larkspur-abcdef")
        os.setxattr(root / "g", "user.Larkspur", b"{")
        (root / "h").touch()
        missing = "contentType, declarationIdentifierKey, declarationVersionKey, hashSHA256"
        expected = f"""\
._saved/f: saved copy without a tree
.larkspur-abcdef: left over from an interrupted install or deletion
a: tree without a record: No data available
b: record without {missing}
c/d: mode 0700, not 0755
c/settings: mode 4644, not 0444
d/link: link
d/pipe: neither a file nor a directory
._saved/e: saved copy missing
g: record is not JSON
h: not a directory
"""
        lines = (f"{root}/{line}" for line in expected.splitlines(keepends=True))
        self.expect(1, "".join(lines), str(root), "verify")

    def test_without_library_or_bus(self):
        self.install()
        for variable, command, errors in (
            ("LARKSPUR_LIBRARY", ["list"], "larkspur: .*/none"),
            ("DBUS_SYSTEM_BUS_ADDRESS", ["delete", "v1"], r"NotReady \(33\)"),
        ):
            with unittest.mock.patch.dict(os.environ, {variable: "/none"}):
                self.expect(1, "", str(self.root), *command, errors=errors)
                self.expect(0, "", str(self.root), "verify")
        with unittest.mock.patch.dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS="unix:path=/none"):
            self.expect(0, f"{VPN}\n", str(self.root), "find", "v1")


if __name__ == "__main__":
    main()
