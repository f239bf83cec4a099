# SPDX-License-Identifier: Apache-2.0
# Readers see whole trees while client processes install and delete their services.

import multiprocessing
import os

import larkspur
from support import Entry, OutsideTest, main, make_zip, snapshot

CLIENTS, ROUNDS, FILES = 3, 12, 20


class ReadersTest(OutsideTest):
    # Installs a new version each round, and deletes every third.
    def client(self, type):
        with larkspur.Store(self.root) as store:
            for number in range(ROUNDS):
                version = f"{type}-{number}"
                files = [Entry(f"d/{file}", version.encode()) for file in range(FILES)]
                archive = make_zip(self.directory / f"{type}.zip", *files)
                store.install(type, archive, version=version, identifier=type)
                if number % 3 == 0:
                    store.delete(version)

    # The contents of a service's files; nothing if the tree changed meanwhile.
    def reading(self, type):
        texts, path = [], self.root / type
        try:
            top = os.open(path, os.O_RDONLY | os.O_DIRECTORY)
        except FileNotFoundError:
            return []
        try:
            for name in os.listdir(f"/proc/self/fd/{top}/d"):
                with open(f"/proc/self/fd/{top}/d/{name}") as file:
                    texts.append(file.read())
        except FileNotFoundError:
            # A partial tree, unless it was replaced; a new service is empty.
            texts = texts or os.listdir(top)
        finally:
            is_same = path.exists() and os.path.samestat(os.fstat(top), path.stat())
            os.close(top)
        return texts if is_same else []

    def test_readers_see_whole_trees(self):
        fork = multiprocessing.get_context("fork")
        types = [f"com.example.service{number}" for number in range(CLIENTS)]
        clients = [fork.Process(target=self.client, args=[type], daemon=True) for type in types]
        for client in clients:
            client.start()
        whole = 0
        while any(client.is_alive() for client in clients):
            for type in types:
                if texts := self.reading(type):
                    self.assertEqual((len(texts), len(set(texts))), (FILES, 1), texts)
                    whole += 1
        self.assertEqual({client.exitcode for client in clients}, {0})
        self.assertGreater(whole, CLIENTS)
        for type in types:
            last = {"d": "d755"} | {f"d/{n}": f"f444 {type}-{ROUNDS - 1}" for n in range(FILES)}
            self.assertEqual(snapshot(self.root / type), last)


if __name__ == "__main__":
    main()
