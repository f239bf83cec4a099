# SPDX-License-Identifier: Apache-2.0
# The C interface, the Python package on it and its tool, on the built library.

import ctypes
import gc
import hashlib
import json
import os
import subprocess
import sys
import unittest.mock
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import larkspur
from larkspur import LogLevel, Service, Store, _library
from support import BAD, CHANGED, VPN, Listener, OutsideTest, snapshot


class PackageTest(OutsideTest):
    def test_life_of_a_service(self):
        listener = Listener()
        self.addCleanup(listener.close)
        archive = self.archive().rename(self.directory / os.fsdecode(b"\xe9.zip"))
        digest = hashlib.sha256(archive.read_bytes()).hexdigest()
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.directory)
        mask = os.umask(0o077)
        with Store("rü/a".encode()) as store:
            os.umask(mask)
            self.assertEqual(store.root, root := self.directory / "rü/a")
            self.assertEqual(snapshot(root.parent.parent)["rü/a"], "d755")
            store.check(archive)
            self.assertEqual(store.services(), [])
            store.install(VPN, archive, version="v1", identifier="d1")
            store.install(VPN, bytes(archive), version="ü", identifier="d1", sha256="écrit")
            self.assertEqual((path := store.path_of(VPN), store.find("ü")), (root / VPN, VPN))
            expected = Service(VPN, "ü", "d1", "application/zip", "écrit", path)
            self.assertEqual(store.services(), [expected])
            store.install(VPN, archive, version="v3", identifier="d3", force=True)
            self.assertEqual(store.services()[0].sha256, digest)
            tree = {"settings": "f444 on", "d": "d755", "d/deep": "f444 !"}
            self.assertEqual(snapshot(path), tree)
            self.assertEqual(os.listdir(root / "._saved" / VPN), [archive.name])
            text = b'{"declarationVersionKey":"v4","hashSHA256":3,"contentType":"a\\u0000b"}'
            os.setxattr(path, "user.Larkspur", text)
            self.assertEqual(store.services(), [Service(VPN, "v4", None, None, None, path)])
            store.delete("v4")
            self.assertEqual(snapshot(root), {"._saved": "d755"})
        self.assertEqual(listener.received(4), [CHANGED + VPN] * 4)
        project = Path(larkspur.__file__).parents[1] / "pyproject.toml"
        self.assertIn(f'version = "{larkspur.version()}"', project.read_text())

    def expect(self, failure, action, *arguments):
        with self.subTest(failure), self.assertRaises(larkspur.Error) as caught:
            action(*arguments)
        error = caught.exception
        self.assertRegex(f"{type(error).__name__}: {error.message}", failure)
        self.assertEqual(error.errno is not None, failure.startswith("SystemFailure"))
        return error

    def test_failures(self):
        self.install()
        before, archive, store = snapshot(self.root), self.archive(), Store(self.root)
        (bad := self.directory / "bad.zip").write_bytes(BAD)
        os.truncate(huge := os.memfd_create("huge"), 1 << 62)
        surrogate, reserved = "\udced\udca0\udc80", "service_type is a reserved name"

        def install(type=VPN, archive=archive, **changes):
            keys = dict(version="v2", identifier="d1", sha256="s") | changes
            store.install(type, archive, **keys)

        for failure, action, *arguments in (
            ("InvalidMIMEType: ", lambda: install(content_type="text/plain")),
            ("ServiceNotFound: Managed service not found for v9$", store.find, "v9"),
            ("UpdateServiceFailed: ", lambda: install(identifier="d2")),
            ("ReservedServiceType: ", install, "com.corvid.x"),
            ("BadArgument: service_type contains a slash", install, "a/b"),
            ("BadArgument: service_type is empty", install, ""),
            ("BadArgument: service_type is longer than 255 bytes", install, "a" * 256),
            ("BadArgument: service_type is not UTF-8", install, surrogate),
            *((f"BadArgument: {reserved}", install, name)
              for name in (".", "..", "._saved", ".larkspur-abcdef")),
            *((f"BadArgument: {name} is not UTF-8", lambda name=name: install(**{name: surrogate}))
              for name in ("version", "identifier", "sha256", "content_type")),
            ("BadArgument: version is not UTF-8", store.delete, surrogate),
            ("BadArgument: root is not UTF-8", Store, b"/\xff"),
            ("BadArgument: archive is too large", install, VPN, f"/proc/self/fd/{huge}"),
            ("BadArgument: .* is not a service type", store.path_of, ".."),
            ("BadArgument: version contains a NUL", store.find, "v1\0"),
            ("BadArgument: version is not a valid string", store.find, "\ud800"),
            ("BadArgument: root is empty", Store, ""),
            ("BadArgument: hooks cannot change while a store is open", larkspur.use_hooks),
            ("SystemFailure: .*cannot create directory", Store, bad / "below"),
            ("SystemFailure: ", lambda: Store(self.root / "none", create=False)),
            ("SystemFailure: ", lambda: install(archive="/none", sha256=None)),
        ):  # fmt: skip
            self.expect(failure, action, *arguments)
        error = self.expect("UnzipFailed: ", store.check, bad)
        self.assertIn("End-of-central-directory signature not found", error.detail)
        self.assertEqual(snapshot(self.root), before)
        os.rename(self.root, self.directory / "away")
        self.assertIn("Scanning directory", self.expect("InternalError: ", store.services).detail)
        store.close()
        store.close()

    def test_c_arguments(self):
        opened, name, found = ctypes.c_void_p(1), ctypes.c_char_p(b""), _library.ServiceList()
        store, type, reference = ctypes.byref(opened), ctypes.byref(name), ctypes.byref
        hooks, options = _library.HooksStruct, _library.OptionsStruct
        hooks_size, options_size = ctypes.sizeof(hooks), ctypes.sizeof(options)

        def refused(message, name, *arguments):
            self.expect(f"BadArgument: {message}$", _library.call, f"larkspur_{name}", *arguments)

        refused("root is NULL", "open", None, store)
        refused("root is not an absolute path", "open", b"a/b", store)
        self.assertIsNone(opened.value)
        refused("store is NULL", "open", b"/", None)
        refused("hooks is NULL", "use_hooks", None)
        refused(r"size is .*", "use_hooks", reference(hooks(size=hooks_size - 1)))
        refused("log_level .*", "use_hooks", reference(hooks(size=hooks_size, log_level=3)))
        _library.call("larkspur_open", bytes(self.root), store)
        refused("store is NULL", "delete", None, b"v")
        refused("archive is NULL", "check_archive", opened, None)
        refused("archive is empty", "check_archive", opened, b"")
        refused("service_type is NULL", "find", opened, b"v", None)
        refused("version is NULL", "find", opened, None, type)
        refused("services is NULL", "services", opened, None)
        refused("store is NULL", "services", None, reference(found))
        self.assertEqual((name.value, bool(found)), (None, False))
        refused("options is NULL", "install", opened, None)
        refused("size is .*", "install", opened, reference(options(size=options_size - 1)))
        good = options(options_size + 100, b"a", bytes(self.archive()), b"v", b"d", b"s")
        _library.call("larkspur_install", opened, reference(good))
        for closing in opened, None:
            _library.library().larkspur_close(closing)

    def test_detail(self):
        lines = []
        larkspur.use_hooks(log=lambda _, __, text: lines.append(text))
        with Store(self.root) as store:
            for shift in "", "x":  # It is not cut inside a character.
                path = f"/{shift}" + f"/{'é' * 120}" * 5
                error = self.expect("UnzipFailed: ", store.check, path)
                self.assertGreaterEqual(len(error.detail.encode()), 1022)
            for number in range(10, 30):
                (self.root / str(number)).mkdir()
            kept = self.expect("ServiceNotFound: ", store.find, "v").detail.splitlines()
        self.assertEqual(kept, lines[-len(kept) :])
        self.assertGreater(len(kept), 5)

    def test_hooks(self):
        calls = []
        log = lambda level, category, text: calls.append((level, category, text.split(":")[0]))
        event = lambda *event: calls.append(event)
        larkspur.use_hooks(log=log, change=calls.append, event=event, log_level=LogLevel.INFO)
        del log, event
        gc.collect()
        self.install()
        size = (self.archive().stat().st_size + 5) // 10 * 10
        line = LogLevel.INFO, "PersistData", "Serializing"
        self.assertLess({CHANGED + VPN, line, ("Other", True, size, 1)}, {*calls})

    def test_store_that_is_closed_during_a_call(self):
        os.mkfifo(fifo := self.directory / "fifo.zip")
        store = Store(self.root)
        with ThreadPoolExecutor() as pool:
            checked = pool.submit(store.check, fifo)
            with open(fifo, "wb"):  # Waits until the tool has opened it.
                store.close()
                self.expect("BadArgument: the store is closed", store.services)
            self.assertIsInstance(checked.exception(), larkspur.UnzipFailed)


class ToolTest(OutsideTest):
    def expect(self, status, output, *arguments, errors=r"\A\Z"):
        command = [sys.executable, "-m", "larkspur", self.root, *arguments]
        done = subprocess.run(command, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout), (status, output), done.stderr)
        self.assertRegex(done.stderr, errors)

    def test_commands(self):
        archive, version = self.archive(), "v\x1b\n"
        for command in ["list"], ["find", "v"], ["check", archive], ["delete", "v"], ["verify"]:
            self.expect(1, "", *command, errors="No such file")
        self.assertFalse(self.root.exists())
        install = ["install", VPN, archive, "--version", version, "--identifier", "d1"]
        self.expect(0, "", *install, "--sha256", "s")
        self.expect(0, f"{VPN}\tv\\x1b\\n\td1\tapplication/zip\ts\n", "list")
        self.expect(0, f"{VPN}\n", "find", version)
        listed = dict(type=VPN, version=version, identifier="d1", content_type="application/zip",
                      sha256="s", path=f"{self.root}/{VPN}")  # fmt: skip
        self.expect(0, json.dumps([listed], indent=2) + "\n", "list", "--json")
        self.expect(0, "", "check", archive)
        with unittest.mock.patch.dict(os.environ, LARKSPUR_LIBRARY="/none"):
            self.expect(1, "", "list", errors="larkspur: .*/none")
            self.expect(0, "", "verify")
        with unittest.mock.patch.dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS="unix:path=/none"):
            self.expect(1, "", "delete", version, errors=r"NotReady \(33\)")
            self.expect(0, f"{VPN}\n", "find", version)
        archive.write_bytes(BAD)
        refused = r"UnzipFailed \(4\): Failed unzip .*\n(.*\n)*.*End-of-central-directory"
        self.expect(1, "", "check", archive, errors=refused)
        self.expect(1, "", *install, errors=refused)
        self.expect(0, "", "delete", version)
        self.expect(1, "", "delete", "v", errors=r"\Alarkspur: ServiceNotFound \(2\): .* v\n")
        self.expect(2, "", "install", VPN, errors="usage: ")

    def test_list_is_a_table_on_a_terminal(self):
        self.install(type="a", version="version-1", sha256="s")
        command = f"{sys.executable} -m larkspur {self.root} list"
        output = subprocess.check_output(["script", "-qec", command, "/dev/null"])
        self.assertEqual(output.split(b"\r\n"), [
            b"TYPE  VERSION    IDENTIFIER  CONTENT TYPE     SHA256",
            b"a     version-1  d1          application/zip  s", b""])  # fmt: skip

    def test_verify(self):
        for name in "abcdefg":
            self.install(type=name, version=name, identifier=name)
        root, key = self.root, "user.Larkspur"
        missing = "contentType, declarationIdentifierKey, declarationVersionKey, hashSHA256"
        lines = (f"{root}/{line}\n" for _, line in (
            ((root / "f").rename(root / ".larkspur-abcd"), "._saved/f: saved copy without a tree"),
            (0, ".larkspur-abcd: left over from an interrupted install or deletion"),
            (os.removexattr(root / "a", key), "a: tree without a record: No data available"),
            (os.setxattr(root / "b", key, b'{"contentType":1}'), f"b: record without {missing}"),
            (os.chmod(root / "c/d", 0o700), "c/d: mode 0700, not 0755"),
            (os.chmod(root / "c/settings", 0o4644), "c/settings: mode 4644, not 0444"),
            ((root / "d/link").symlink_to("/"), "d/link: link"),
            (os.mkfifo(root / "d/pipe"), "d/pipe: neither a file nor a directory"),
            ((root / "._saved/e/config.zip").unlink(), "._saved/e: saved copy missing"),
            (os.setxattr(root / "g", key, b"{"), "g: record is not JSON"),
            ((root / "h").touch(), "h: not a directory"),
        ))  # fmt: skip
        self.expect(1, "".join(lines), "verify")
