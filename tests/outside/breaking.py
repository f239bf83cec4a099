# SPDX-License-Identifier: Apache-2.0
# Breaks an operation at one of its system calls, by strace, and reports what the root then
# contains.

import ctypes
import os
import re
import signal
import subprocess

import larkspur
from support import VPN, Entry, make_zip, record, snapshot

OLD = "com.example.old"
DELETED, INSTALLED = "(v1 v1 v1|- - v1|- - -)", "v2 - {0}|v2 v2 ({0}|v2|-|other)"
# The type under which v1 is installed first, if any, and the states allowed after a broken call.
OPERATIONS = {
    "new": (None, f"- - -; (- - -|{INSTALLED.format('-')})"),
    "update": (VPN, f"- - -; (v1 v1 v1|{INSTALLED.format('v1')})"),
    "rename": (OLD, f"{DELETED}; (- - -|{INSTALLED.format('-')})"),
    "delete": (VPN, f"- - -; {DELETED}"),
}
BEGIN, END = "/the operation begins", "/the operation ends"
# Calls that touch the process alone, or that strace does not know.
NO_POINT = re.compile(r"\W|syscall_|mmap|munmap|mprotect|brk|futex|rt_|sigalt|getpid|prlimit|exit")


# The calls of the operation and one after its return, each with its number for `when=`.
def points(calls):
    seen, begun = [], False
    for line in calls.splitlines():
        call = line.partition("(")[0]
        seen.append(call)
        if begun and not NO_POINT.match(call):
            yield call, seen.count(call)
        if END in line:
            return
        begun = begun or BEGIN in line


# A root with up to two versions of a service, and their archives.
class World:
    def __init__(self, place):
        self.place, self.root, self.versions = place, place / "root", {}
        nothing = lambda *_: None
        larkspur.use_hooks(log=nothing, change=nothing, event=nothing)
        for name in ("v1", "v2"):
            (place / name).mkdir()
            entries = Entry("a", name.encode()), Entry(f"{name}/large", name.encode() * 50_000)
            saved = make_zip(place / name / "x.zip", *entries).read_bytes().decode("latin-1")
            tree = {"a": f"f444 {name}", name: "d755", f"{name}/large": f"f444 {name * 50_000}"}
            self.versions[name] = tree, name, {"x.zip": f"f444 {saved}"}

    # Installs v1 under the type `before`.
    def make(self, before):
        if before:
            self.install("v1", before)

    def install(self, version, type=VPN, store=None):
        archive = self.place / version / "x.zip"
        with store or larkspur.Store(self.root) as store:
            store.install(type, archive, version=version, identifier="d", sha256="s")

    # Runs it in a child under strace; returns the code of its error, or -9, and its calls.
    def run(self, operation, *injections):
        child = os.fork()
        if child == 0:
            self._run_in_child(operation)
        os.waitpid(child, os.WUNTRACED)
        command = ["strace", "-y", "-p", str(child), *(f"--inject={way}" for way in injections)]
        with subprocess.Popen(command, stderr=subprocess.PIPE, encoding="latin-1") as strace:
            strace.stderr.readline()  # "Process 123 attached"
            os.kill(child, signal.SIGCONT)
            calls = strace.stderr.read()
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), calls

    def _run_in_child(self, operation):
        libc, code = ctypes.CDLL(None), 1
        try:
            libc.prctl(0x59616D61, ctypes.c_ulong(-1), 0, 0, 0)  # Any process may trace this one.
            store = larkspur.Store(self.root)
            os.kill(os.getpid(), signal.SIGSTOP)
            os.access(BEGIN, 0)
            store.delete("v1") if operation == "delete" else self.install("v2", store=store)
            code = 0
        except larkspur.Error as error:
            code = error.code
        finally:
            os.access(END, 0)
            libc.exit(code)  # Writes the counters of a coverage build.

    # Tree, record and saved copy under OLD, then under VPN, by version: "- - -; v2 v2 v1".
    def state(self):
        names = []
        for type in (OLD, VPN):
            recorded = (record(self.root / type) or {}).get("declarationVersionKey")
            found = snapshot(self.root / type), recorded, snapshot(self.root / "._saved" / type)
            for part, content in enumerate(found):
                known = [name for name, all in self.versions.items() if all[part] == content]
                names += known or ["other" if content else "-"]
        return "{} {} {}; {} {} {}".format(*names)

    # What is wrong now, or after the next install.
    def problem(self, allowed):
        found = self.state()
        self.install("v2")
        healed = f"{self.state()} in {sorted(os.listdir(self.root))}"
        whole = r"- - (v1|-); v2 v2 v2 in \['\._saved', 'com\.example\.vpn'\]"
        is_right = re.fullmatch(allowed, found) and re.fullmatch(whole, healed)
        return None if is_right else f"{found}, then {healed}"
