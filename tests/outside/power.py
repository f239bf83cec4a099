# SPDX-License-Identifier: Apache-2.0
# What is on the disk when the power is cut: at each system call of an operation, and after it.
#
# The file below a loop volume holds what has reached the device. `scripts/deep power` runs this as
# root, with the file systems as arguments, in a mount namespace, whose end removes the mounts.

import contextlib
import fcntl
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from breaking import OPERATIONS, World, points

WORK = Path(tempfile.mkdtemp(prefix="larkspur-power."))
VOLUME, PREPARED, LIVE, *CUTS = (WORK / name for name in ("volume", "new", "live", "cut", "late"))
# What the return promises: tree, record and saved copy under the old type, then under the other.
RETURNED = {"update": "- - -; v2 v2 v2", "rename": "- - -; v2 v2 v2", "delete": "- - -; - - -"}


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


# Mounts an image, or a copy of it.
@contextlib.contextmanager
def mounted(image, copy=None):
    if copy:
        run("cp", "--sparse=always", image, copy)
    run("mount", "-o", "loop", copy or image, VOLUME)
    yield
    for _ in range(1000):  # A tool whose parent was killed may still be at work there.
        if subprocess.run(["umount", VOLUME], stderr=subprocess.DEVNULL).returncode == 0:
            return
        time.sleep(0.02)
    raise TimeoutError(f"{VOLUME} stays busy")


# Commits the journal by syncing another file: names reach the disk, unflushed contents do not.
def commit(system):
    with open(VOLUME / "another", "w") as file:
        os.fsync(file.fileno())
        if system == "btrfs":  # Its fsync writes one file only: START_SYNC, WAIT_SYNC.
            transaction = fcntl.ioctl(file, 0x80089418, bytes(8))
            fcntl.ioctl(file, 0x40089416, transaction)


# An image with v1 installed.
def prepare(system, before):
    PREPARED.unlink(missing_ok=True)
    run("truncate", "--size=320M", PREPARED)
    run(f"mkfs.{system}", "-q", PREPARED)
    with mounted(PREPARED):
        (VOLUME / "tmp").mkdir()
        world = World(VOLUME)
        world.make(before)
        return world


# Cuts the power at each point, before and after the journal is committed for another file.
def sweep(system, operation):
    before, allowed = OPERATIONS[operation]
    allowed = f"(?!v1 .*; v2){allowed}"
    world, cuts, failures = prepare(system, before), 0, 0
    with mounted(PREPARED, LIVE):
        found = [*points(world.run(operation)[1])]
    for point in found:
        with mounted(PREPARED, LIVE):
            status, _ = world.run(operation, "{}:signal=KILL:when={}".format(*point))
            run("cp", "--sparse=always", LIVE, CUTS[0])
            commit(system)
            run("cp", "--sparse=always", LIVE, CUTS[1])
        # The number of calls that wait for the tool varies, so a run may miss the last.
        has_returned = point == found[-1] or status == 0
        for image in CUTS:
            with mounted(image):
                problem = world.problem(RETURNED[operation] if has_returned else allowed)
            cuts += 1
            if problem:
                failures += 1
                print(f"{system} {operation}, {image.name} at {point}: {problem}")
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
