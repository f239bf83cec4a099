# SPDX-License-Identifier: Apache-2.0
# What is on the disk when the power is cut: at each system call of an operation, and after it.
#
# The file below a loop volume holds what has reached the device. `scripts/deep power` runs this as
# root, with the file systems as arguments, in a mount namespace that takes the mounts with it.

import contextlib
import fcntl
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from breaking import OPERATIONS, World, points

WORK = Path(tempfile.mkdtemp(prefix="larkspur-power."))
VOLUME, PREPARED, LIVE, BEFORE, AFTER = (
    WORK / name for name in ("volume", "prepared", "live", "before", "after")
)
# What the return promises: tree, record and saved copy under the old type, then under the other.
RETURNED = {"update": "- - -; v2 v2 v2", "rename": "- - -; v2 v2 v2", "delete": "- - -; - - -"}
HEALED = r"- - (v1|-); v2 v2 v2 in \['._saved', 'com.example.vpn'\]"


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def copy(image, target):
    run("cp", "--sparse=always", image, target)


@contextlib.contextmanager
def mounted(image):
    run("mount", "-o", "loop", image, VOLUME)
    yield
    end = time.monotonic() + 20  # A tool whose parent was killed may still be at work there.
    while subprocess.run(["umount", VOLUME], stderr=subprocess.DEVNULL).returncode:
        if time.monotonic() > end:
            raise TimeoutError(f"{VOLUME} stays busy")
        time.sleep(0.02)


# Commits the journal for another file: all names, but not the contents that still wait.
def commit(system):
    with open(VOLUME / "another", "w") as file:
        os.fsync(file.fileno())
        if system == "btrfs":  # Whose fsync writes of one file alone: START_SYNC and WAIT_SYNC.
            transaction = fcntl.ioctl(file, 0x80089418, bytes(8))
            fcntl.ioctl(file, 0x40089416, transaction)


# Cuts the power at each point, before and after the journal is committed for another file.
def sweep(system, operation):
    failures = cuts = 0
    PREPARED.unlink(missing_ok=True)
    run("truncate", "--size=320M", PREPARED)
    run(f"mkfs.{system}", "-q", PREPARED)
    with mounted(PREPARED):
        (VOLUME / "tmp").mkdir()
        world = World(VOLUME)
        world.install("v1", OPERATIONS[operation][0])
    copy(PREPARED, LIVE)
    with mounted(LIVE):
        found = [*points(world.run(operation)[1])]
    for point in found:
        copy(PREPARED, LIVE)
        with mounted(LIVE):
            status, _ = world.run(operation, "{}:signal=KILL:when={}".format(*point))
            copy(LIVE, BEFORE)
            commit(system)
            copy(LIVE, AFTER)
        # The number of calls that wait for the tool varies: not every run meets its end.
        has_returned = point == found[-1] or status >= 0
        allowed = RETURNED[operation] if has_returned else f"(?!v1 .*; v2){OPERATIONS[operation][1]}"
        for image in BEFORE, AFTER:
            with mounted(image):
                state = world.state()
                world.install("v2")
                healed = f"{world.state()} in {sorted(os.listdir(world.root))}"
            cuts += 1
            if not re.fullmatch(allowed, state) or not re.fullmatch(HEALED, healed):
                failures += 1
                when = f"{image.name} the commit at {point}"
                print(f"{system} {operation}, {when}: {state}, then {healed}")
    print(f"{system} {operation}: {cuts} cuts, {failures} failures", flush=True)
    return failures


def main():
    os.environ.update(HOME=f"{VOLUME}/tmp", TMPDIR=f"{VOLUME}/tmp")
    run("mount", "-t", "tmpfs", "power", WORK)
    VOLUME.mkdir()
    failures = sum(sweep(system, name) for system in sys.argv[1:] for name in RETURNED)
    run("umount", WORK)
    WORK.rmdir()
    sys.exit(failures > 0)


if __name__ == "__main__":
    main()
