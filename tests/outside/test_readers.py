# SPDX-License-Identifier: Apache-2.0
"""Readers see whole trees while client processes install and delete their services."""

import os
import signal

import larkspur
from support import Entry, OutsideTest, main, make_zip, snapshot

CLIENTS, ROUNDS, FILES = 3, 12, 20


class ReadersTest(OutsideTest):
    def client(self, type):
        """Installs a new version each round, and deletes every third; ends the process."""
        status = 1
        try:
            with larkspur.Store(self.root) as store:
                for number in range(ROUNDS):
                    version = f"{type}-{number}"
                    files = [Entry(f"d/{file}", version.encode()) for file in range(FILES)]
                    archive = make_zip(self.directory / f"{type}.zip", *files)
                    store.install(type, archive, version=version, identifier=type)
                    if number % 3 == 0:
                        store.delete(version)
            status = 0
        finally:
            os._exit(status)

    def reading(self, type):
        """The contents of a service's files; None if the tree changed meanwhile."""
        try:
            top = os.open(self.root / type, os.O_RDONLY | os.O_DIRECTORY)
        except FileNotFoundError:
            return None
        texts = []
        try:
            for name in os.listdir(below := os.open("d", os.O_RDONLY, dir_fd=top)):
                file = os.open(name, os.O_RDONLY, dir_fd=below)
                texts.append(os.read(file, 100))
                os.close(file)
            os.close(below)
            return texts if os.path.samestat(os.fstat(top), os.stat(self.root / type)) else None
        except FileNotFoundError:
            # A partial tree, unless it was replaced; a new service is empty.
            now = os.stat(self.root / type) if os.path.exists(self.root / type) else None
            is_same = now is not None and os.path.samestat(os.fstat(top), now)
            return texts if is_same and os.listdir(top) else None
        finally:
            os.close(top)

    def test_readers_see_whole_trees(self):
        types = [f"com.example.service{number}" for number in range(CLIENTS)]
        clients = {}
        self.addCleanup(lambda: [os.kill(process, signal.SIGKILL) for process in clients])
        for type in types:
            if (process := os.fork()) == 0:
                self.client(type)
            clients[process] = type
        whole = 0
        while clients:
            for type in types:
                if texts := self.reading(type):
                    self.assertEqual((len(texts), len(set(texts))), (FILES, 1), texts)
                    whole += 1
            process, status = os.waitpid(-1, os.WNOHANG)
            if process:
                self.assertEqual(status, 0, clients.pop(process))
        self.assertGreater(whole, CLIENTS)
        for type in types:
            last = {"d": "d755"} | {f"d/{n}": f"f444 {type}-{ROUNDS - 1}" for n in range(FILES)}
            self.assertEqual(snapshot(self.root / type), last)


if __name__ == "__main__":
    main()
