# SPDX-License-Identifier: Apache-2.0
# Readers see whole trees while client processes install and delete their services.

import contextlib
import multiprocessing
import os
from pathlib import Path

import larkspur
from support import Entry, OutsideTest, make_zip

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
        with contextlib.suppress(FileNotFoundError), contextlib.ExitStack() as closing:
            top = os.open(self.root / type, os.O_RDONLY)
            closing.callback(os.close, top)
            try:
                texts = [file.read_text() for file in Path(f"/proc/self/fd/{top}/d").iterdir()]
            except FileNotFoundError:
                # A partial tree, unless it was replaced; a new service is empty.
                texts = os.listdir(top)
            if os.path.samestat(os.fstat(top), os.stat(self.root / type)):
                return texts
        return []

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
