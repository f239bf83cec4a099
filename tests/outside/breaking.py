# SPDX-License-Identifier: Apache-2.0
"""Breaks an operation at one of its system calls, by strace, and tells what the root contains."""

import ctypes
import os
import re
import signal
import subprocess
import unittest
from collections import Counter
from pathlib import Path

import larkspur
from support import CHANGED, VPN, Entry, make_zip, record, snapshot

OLD, OTHER = "com.example.old", "com.example.other"
DELETED, INSTALLED = "(v1 v1 v1|- - v1|- - -)", "v2 - {0}|v2 v2 ({0}|v2|-|other)"
# The type of v1 before, and the states that a broken call may leave, see World.state.
OPERATIONS = {
    "new": (None, f"- - -; (- - -|{INSTALLED.format('-')})"),
    "update": (VPN, f"- - -; (v1 v1 v1|{INSTALLED.format('v1')})"),
    "rename": (OLD, f"{DELETED}; (- - -|{INSTALLED.format('-')})"),
    "delete": (VPN, f"- - -; {DELETED}"),
}
BEGIN, END = "/the operation begins", "/the operation ends"
# Calls that touch the process alone, or that strace does not know.
NO_POINT = re.compile(r"\W|syscall_|mmap|munmap|mprotect|brk|futex|rt_|getpid|prlimit|exit")


def points(calls):
    """The calls of the operation and one after its return, each with its number for `when=`."""
    counts, begun = Counter(), False
    for line in calls.splitlines():
        call = line.partition("(")[0]
        counts[call] += 1
        if begun and not NO_POINT.match(call):
            yield call, counts[call]
        if END in line:
            return
        begun = begun or BEGIN in line


class World:
    """A root with one service in up to two versions, and another service."""

    def __init__(self, place):
        self.place, self.root = Path(place), Path(place, "root")
        self.changes, self.versions = [], {}
        nothing = lambda *_: None
        larkspur.use_hooks(log=nothing, change=self.changes.append, event=nothing)
        for name in ("v1", "v2"):
            entries = Entry("settings", name.encode()), Entry(f"{name}/large", name.encode() * 50000)
            archive = make_zip(self.place / f"{name}.zip", *entries).read_bytes().decode("latin-1")
            tree = {"settings": f"f444 {name}", name: "d755", f"{name}/large": f"f444 {name * 50000}"}
            self.versions[name] = tree, name, {f"{name}.zip": f"f444 {archive}"}

    def make(self, before):
        """Makes the root, with v1 under the type `before`."""
        (self.root / OTHER).mkdir(parents=True)
        os.setxattr(self.root / OTHER, "user.Larkspur", b'{"declarationVersionKey":"v0"}')
        if before:
            self.install("v1", before)

    def install(self, version, type=VPN, store=None):
        archive = self.place / f"{version}.zip"
        with store or larkspur.Store(self.root) as store:
            store.install(type, archive, version=version, identifier="d", sha256="s")

    def run(self, operation, *injections):
        """Runs it in a child under strace; returns its status and its calls.

        The status is the code of its error, plus 64 if it posted the change; negative after a signal.
        """
        child = os.fork()
        if child == 0:
            self._run_when_traced(operation)
        os.waitpid(child, os.WUNTRACED)
        command = ["strace", "-y", "-p", str(child), *(f"--inject={way}" for way in injections)]
        with subprocess.Popen(command, stderr=subprocess.PIPE, text=True, errors="replace") as strace:
            attached = "attached" in strace.stderr.readline()
            os.kill(child, signal.SIGCONT if attached else signal.SIGKILL)
            calls = strace.stderr.read()
        status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        if not attached:
            raise unittest.SkipTest("strace cannot trace here")
        return status, calls

    def _run_when_traced(self, operation):
        libc, code = ctypes.CDLL(None), 63
        try:
            libc.prctl(0x59616D61, ctypes.c_ulong(-1), 0, 0, 0)  # Any process may trace this one.
            self.changes.clear()
            store = larkspur.Store(self.root)
            os.kill(os.getpid(), signal.SIGSTOP)
            os.access(BEGIN, 0)
            store.delete("v1") if operation == "delete" else self.install("v2", store=store)
            code = 0
        except larkspur.Error as error:
            code = error.code
        finally:
            os.access(END, 0)
            libc.exit(code + 64 * (CHANGED + VPN in self.changes))  # Writes the counters of a coverage build.

    def state(self):
        """Tree, record and saved copy under OLD, then under VPN, by version: "- - -; v2 v2 v1"."""
        names = []
        for type in (OLD, VPN):
            recorded = (record(self.root / type) or {}).get("declarationVersionKey")
            found = snapshot(self.root / type), recorded, snapshot(self.root / "._saved" / type)
            for part, content in enumerate(found):
                known = [name for name, all in self.versions.items() if all[part] == content]
                names += known or ["other" if content else "-"]
        return "{} {} {}; {} {} {}".format(*names)

    def problem(self, allowed):
        """What is wrong now or after the next install; None if nothing is."""
        found = self.state()
        recorded = [type for type in (OLD, OTHER, VPN) if record(self.root / type)]
        with larkspur.Store(self.root) as store:
            listed = sorted(service.type for service in store.services())
        self.install("v2")
        healed = f"{self.state()} {sorted(os.listdir(self.root))}"
        whole = "- - (v1|-); v2 v2 v2 " + re.escape(str(["._saved", OTHER, VPN]))
        if re.fullmatch(allowed, found) and listed == recorded and re.fullmatch(whole, healed):
            return None
        return f"{found} and {listed}, then {healed}"
