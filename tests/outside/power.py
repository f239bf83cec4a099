# SPDX-License-Identifier: Apache-2.0
"""What is on the disk when the power is cut: at each system call of an operation, and after it.

The file below a loop volume holds what has reached the device. Run as root in a mount namespace that
takes every mount with it when it goes:

    LARKSPUR_LIBRARY=build/dev/liblarkspur.so PYTHONPATH=bindings/python \\
        unshare --mount --propagation private python3 tests/outside/power.py ext4 xfs btrfs
"""

import contextlib
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter
from pathlib import Path

import larkspur
from support import VPN, Entry, make_zip, record, snapshot

OLD = "com.example.old"
INSTALL = f"install({VPN!r}, 'v2/config.zip', version='v2', identifier='d', sha256='v2')"
DELETED = "v1 v1 v1|- - v1|- - -"
MADE = "v2 - {0}|v2 v2 ({0}|-|empty|part|v2)"
# What is done; the type of v1 before; what a cut on the way may leave, and what is there after the
# return: tree, record and saved copy of the old type, then of the other.
OPERATIONS = {
    "update": (INSTALL, VPN, f"- - -; (v1 v1 v1|{MADE.format('v1')})", "- - -; v2 v2 v2"),
    "rename": (INSTALL, OLD, f"({DELETED}); - - -|- - -; (empty - -|{MADE.format('-')})",
               "- - -; v2 v2 v2"),
    "delete": ("delete('v1')", VPN, f"- - -; ({DELETED})", "- - -; - - -"),
}  # fmt: skip
BEGIN, END = "/the operation begins", "/the operation ends"
# Calls that touch the process alone, or that strace does not know.
NO_POINT = re.compile(r"\W|syscall_|mmap|munmap|mprotect|brk|futex|rt_|getpid|prlimit|exit")

WORK = Path(tempfile.mkdtemp(prefix="larkspur-power."))
PREPARED, LIVE, EARLY, LATE = (WORK / name for name in ("prepared", "live", "early", "late"))
VOLUME = WORK / "volume"
ROOT = VOLUME / "root"


def program(operation):
    """The command whose system calls between two marks are the points."""
    code = f"""import os, larkspur
larkspur.use_hooks(log=print, change=print, event=print)
with larkspur.Store("root") as store:
    os.access({BEGIN!r}, 0)
    store.{OPERATIONS[operation][0]}
    os.access({END!r}, 0)"""
    return [sys.executable, "-c", code]


def traced(operation, *options):
    """Runs the program on a fresh volume, which stays mounted for the body."""
    command = ["strace", "-o", WORK / "trace", *options, *program(operation)]
    return subprocess.run(command, cwd=VOLUME, stdout=subprocess.PIPE)


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def copy(image, target):
    run("cp", "--sparse=always", image, target)


@contextlib.contextmanager
def mounted(image):
    run("mount", "-o", "loop", image, VOLUME)
    try:
        yield
    finally:
        end = time.monotonic() + 20  # A tool whose parent was killed may still be at work there.
        while subprocess.run(["umount", VOLUME], stderr=subprocess.DEVNULL).returncode:
            if time.monotonic() > end:
                raise TimeoutError(f"{VOLUME} stays busy")
            time.sleep(0.02)


def install(version, type=VPN):
    with larkspur.Store(ROOT) as store:
        archive = VOLUME / version / "config.zip"
        store.install(type, archive, version=version, identifier="d", sha256=version)


def prepare(system, operation):
    """An image with v1 installed, and both archives."""
    LIVE.unlink(missing_ok=True)
    run("truncate", "--size=320M", LIVE)
    run(f"mkfs.{system}", "-q", LIVE)
    with mounted(LIVE):
        (VOLUME / "tmp").mkdir()
        for version in ("v1", "v2"):
            (VOLUME / version).mkdir()
            large = Entry(f"{version}/large", version.encode() * 50_000)
            make_zip(VOLUME / version / "config.zip", Entry("settings", version.encode()), large)
        install("v1", OPERATIONS[operation][1])
    copy(LIVE, PREPARED)


def points(operation):
    """Each call with its number among those of its name, and whether the operation has returned."""
    copy(PREPARED, LIVE)
    with mounted(LIVE):
        traced(operation).check_returncode()
    counts, begun = Counter(), False
    for line in (WORK / "trace").read_text().splitlines():
        call = line.partition("(")[0]
        counts[call] += 1
        if END in line:
            yield call, counts[call], True
            return
        if begun and not NO_POINT.match(call):
            yield call, counts[call], False
        begun = begun or BEGIN in line


def version_of(place, whole):
    items = snapshot(place)
    if not items:
        return "empty" if place.exists() else "-"
    return next((version for version in ("v1", "v2") if items == whole(version)), "other")


def tree(version):
    large = version * 50_000
    return {"settings": f"f444 {version}", version: "d755", f"{version}/large": f"f444 {large}"}


def saved_copy(version):
    archive = (VOLUME / version / "config.zip").read_bytes().decode("latin-1")
    return {"config.zip": f"f444 {archive}"}


def state(type):
    """The versions of tree, record and saved copy. Also "-" for nothing, "empty", "part" of a copy
    on the way, and "other" for all else."""
    kept, saved = record(ROOT / type), ROOT / "._saved" / type
    version = kept.get("declarationVersionKey") if kept else "-"
    whole = dict(declarationVersionKey=version, declarationIdentifierKey="d", hashSHA256=version)
    if kept and kept != whole | {"contentType": "application/zip"}:
        version = "other"
    copied = version_of(saved, saved_copy)
    if copied == "other" and [*snapshot(saved)] == ["config.zip"]:
        content = (saved / "config.zip").read_bytes().decode("latin-1")
        copied = "part" if saved_copy("v2")["config.zip"].startswith(f"f444 {content}") else "other"
    return f"{version_of(ROOT / type, tree)} {version} {copied}"


def wrong(operation, returned):
    """What is wrong on the mounted volume, or nothing."""
    _, _, allowed, result = OPERATIONS[operation]
    found = f"{state(OLD)}; {state(VPN)}"
    if not re.fullmatch(result if returned else allowed, found):
        return found
    entries = {path.name for path in ROOT.iterdir()}
    if returned and entries != {"._saved"} | ({VPN} if "v2" in result else set()):
        return entries
    install("v2")
    entries = {path.name for path in ROOT.iterdir()}
    if not re.fullmatch("- - (v1|-); v2 v2 v2", healed := f"{state(OLD)}; {state(VPN)}"):
        return f"{found}, then {healed}"
    return entries if entries != {"._saved", VPN} else None


def sweep(system, operation):
    """Cuts the power at each point, before and after a commit of the journal for something else."""
    prepare(system, operation)
    numbers = Counter()
    for call, number, returned in points(operation):
        copy(PREPARED, LIVE)
        with mounted(LIVE):
            kill = f"inject={call}:signal=KILL:when={number}"
            end = traced(operation, "-e", f"trace={call}", "-e", kill)
            copy(LIVE, EARLY)
            with open(VOLUME / "unrelated", "w") as file:
                os.fsync(file.fileno())
            copy(LIVE, LATE)
        if end.returncode not in (0, -signal.SIGKILL):
            raise RuntimeError(f"{call} {number}: status {end.returncode}, {end.stdout}")
        returned = returned or end.returncode == 0
        numbers["points"] += 1
        numbers["returns"] += returned
        for image in EARLY, LATE:
            with mounted(image):
                problem = wrong(operation, returned)
            numbers["cuts"] += 1
            numbers["failures"] += problem is not None
            if problem:
                print(f"{system} {operation}: {call} {number} {image.name}: {problem}", flush=True)
    print(f"{system} {operation}:", *(f"{n} {what}" for what, n in numbers.items()), flush=True)
    return numbers["failures"]


def nothing(*_):
    """A hook, so that neither bus nor journal is needed."""


def main():
    os.environ.update(HOME=f"{VOLUME}/tmp", TMPDIR=f"{VOLUME}/tmp", PYTHONDONTWRITEBYTECODE="1")
    larkspur.use_hooks(log=nothing, change=nothing, event=nothing)
    failures = 0
    try:
        run("mount", "-t", "tmpfs", "power", WORK)
        VOLUME.mkdir()
        for system in sys.argv[1:]:
            for operation in OPERATIONS:
                failures += sweep(system, operation)
        run("umount", WORK)
    finally:
        WORK.rmdir()
    sys.exit(failures > 0)


if __name__ == "__main__":
    main()
