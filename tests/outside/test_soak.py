# SPDX-License-Identifier: Apache-2.0
"""A long run leaks nothing. LARKSPUR_SOAK_CYCLES sets its length."""

import ctypes
import os
from pathlib import Path

import larkspur
from support import VPN, Entry, OutsideTest, directory, main, snapshot

CYCLES = int(os.environ.get("LARKSPUR_SOAK_CYCLES", 300))


class Heap(ctypes.Structure):
    _fields_ = [("members", ctypes.c_size_t * 10)]  # struct mallinfo2


def in_use():
    """Bytes on the heap, descriptors and children."""
    mallinfo = ctypes.CDLL(None).mallinfo2
    mallinfo.restype = Heap
    heap = mallinfo().members
    children = Path("/proc/thread-self/children").read_text().split()
    return heap[4] + heap[7], len(os.listdir("/proc/self/fd")), len(children)


class Soak(OutsideTest):
    def test_long_run_leaks_nothing(self):
        archive = self.archive(Entry("a", b"A"), directory("b/", 0), Entry("b/c", b"C"))
        with larkspur.Store(self.root) as store:
            for cycle in range(CYCLES):
                if cycle == CYCLES // 10:
                    before = in_use()
                store.install(VPN, archive, version="1", identifier="d", sha256="s")
                store.delete("1")
            after = in_use()
        print(f"{CYCLES} cycles: heap {after[0] - before[0]:+} bytes")
        self.assertLessEqual(after[0], before[0] + 4096)
        self.assertEqual(after[1], before[1])
        self.assertLessEqual(after[2], 2, "more than the bus and one tool")
        self.assertEqual(snapshot(self.root), {"._saved": "d755"})


if __name__ == "__main__":
    main()
