# SPDX-License-Identifier: Apache-2.0
"""What is on the disk when the power is cut: at each system call of an operation, and after it.

The file below a loop volume holds what has reached the device. `scripts/deep power` runs this as
root, with the file systems as arguments, in a mount namespace that takes the mounts with it.
"""

import contextlib
import fcntl
import itertools
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
# What is done; the type that v1 has before; what a cut on the way may leave, and what the return
# promises: tree, record and saved copy under the old type, then under the other.
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
PREPARED, LIVE, BEFORE, AFTER = (WORK / name for name in ("prepared", "live", "before", "after"))
VOLUME = WORK / "volume"
ROOT = VOLUME / "root"


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def copy(image, target):
    run("cp", "--sparse=always", image, target)


def nothing(*_):
    """A hook in place of the bus and the journal."""


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


def traced(operation, *options):
    """Carries it out in a program of its own, under strace, on the mounted volume."""
    code = f"""import os, larkspur
larkspur.use_hooks(log=print, change=print, event=print)
with larkspur.Store("root") as store:
    os.access({BEGIN!r}, 0)
    store.{OPERATIONS[operation][0]}
    os.access({END!r}, 0)"""
    command = ["strace", "-o", WORK / "trace", *options, sys.executable, "-c", code]
    return subprocess.run(command, cwd=VOLUME, stdout=subprocess.PIPE)


def commit(system):
    """Commits the journal for another file: all names, but not the contents that still wait."""
    with open(VOLUME / "another", "w") as file:
        os.fsync(file.fileno())
        if system == "btrfs":  # Whose fsync writes of one file alone: START_SYNC and WAIT_SYNC.
            transaction = fcntl.ioctl(file, 0x80089418, bytes(8))
            fcntl.ioctl(file, 0x40089416, transaction)


def points(operation):
    """Each call with its number among those of its name; the last one follows the return."""
    copy(PREPARED, LIVE)
    with mounted(LIVE):
        traced(operation).check_returncode()
    counts, begun = Counter(), False
    for line in (WORK / "trace").read_text().splitlines():
        call = line.partition("(")[0]
        counts[call] += 1
        if END in line:
            return (yield call, counts[call], True)
        if begun and not NO_POINT.match(call):
            yield call, counts[call], False
        begun = begun or BEGIN in line


def whole(version):
    """Tree, record and saved copy of a version."""
    large = f"{version}/large"
    tree = {"settings": f"f444 {version}", version: "d755", large: f"f444 {version * 50_000}"}
    kept = {"declarationVersionKey": version, "declarationIdentifierKey": "d",
            "contentType": "application/zip", "hashSHA256": version}  # fmt: skip
    archive = (VOLUME / version / "config.zip").read_bytes().decode("latin-1")
    return tree, kept, {"config.zip": f"f444 {archive}"}


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


def state(type):
    """The versions of tree, record and saved copy: "v2 v2 part", "- - -"."""
    tree, saved = (snapshot(path) if path.exists() else None
                   for path in (ROOT / type, ROOT / "._saved" / type))  # fmt: skip
    versions = {version: whole(version) for version in ("v1", "v2")}
    names = []
    for at, found in enumerate((tree, record(ROOT / type), saved)):
        other = "-" if found is None else "other" if found else "empty"
        names.append(next((name for name, all in versions.items() if all[at] == found), other))
    if names[2] == "other" and [*saved] == ["config.zip"]:
        modeless = [files["config.zip"][5:] for files in (versions["v2"][2], saved)]
        names[2] = "part" if modeless[0].startswith(modeless[1]) else "other"
    return " ".join(names)


def wrong(operation, returned):
    """What is wrong on the mounted volume, now and after the next install."""
    _, _, allowed, result = OPERATIONS[operation]
    found, entries = f"{state(OLD)}; {state(VPN)}", set(os.listdir(ROOT))
    if not re.fullmatch(result if returned else allowed, found):
        return found
    if returned and entries != {"._saved", *([VPN] if "v2" in result else [])}:
        return f"{found} with {entries}"
    install("v2")
    healed, entries = f"{state(OLD)}; {state(VPN)}", set(os.listdir(ROOT))
    if not re.fullmatch("- - (v1|-); v2 v2 v2", healed) or entries != {"._saved", VPN}:
        return f"{found}, then {healed} with {entries}"
    return None


def sweep(system, operation):
    """Cuts the power at each point, before and after the journal is committed for another file."""
    prepare(system, operation)
    title = f"{system} {operation}"
    numbers = Counter(failures=0)
    for call, number, returned in points(operation):
        copy(PREPARED, LIVE)
        with mounted(LIVE):
            kill = f"inject={call}:signal=KILL:when={number}"
            end = traced(operation, "-e", f"trace={call}", "-e", kill)
            copy(LIVE, BEFORE)
            commit(system)
            copy(LIVE, AFTER)
        if end.returncode not in (0, -signal.SIGKILL):
            raise RuntimeError(f"{call} {number}: status {end.returncode}, {end.stdout}")
        numbers["points"] += 1
        for image in BEFORE, AFTER:
            with mounted(image):
                # The number of calls that wait for the tool varies: not every run meets its end.
                problem = wrong(operation, returned or end.returncode == 0)
            numbers["cuts"] += 1
            if problem:
                numbers["failures"] += 1
                print(f"{title}, {image.name} the commit at {call} {number}: {problem}")
    print(f"{title}:", ", ".join(f"{n} {what}" for what, n in numbers.items()), flush=True)
    return numbers["failures"]


def main():
    os.environ.update(HOME=f"{VOLUME}/tmp", TMPDIR=f"{VOLUME}/tmp", PYTHONDONTWRITEBYTECODE="1")
    larkspur.use_hooks(log=nothing, change=nothing, event=nothing)
    run("mount", "-t", "tmpfs", "power", WORK)
    try:
        VOLUME.mkdir()
        failures = sum(sweep(*case) for case in itertools.product(sys.argv[1:], OPERATIONS))
    finally:
        run("umount", WORK)
        WORK.rmdir()
    sys.exit(failures > 0)


if __name__ == "__main__":
    main()
