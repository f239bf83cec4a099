# SPDX-License-Identifier: Apache-2.0
"""A managed root and the operations on it."""

import ctypes
import hashlib
import itertools
import os
import threading
import warnings
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Self

from . import _library
from ._errors import BadArgument, system_failures
from ._library import AnyPath, decoded, encoded, encoded_path


@dataclass(frozen=True, slots=True)
class Service:
    """A service and its record; None for members that the record lacks."""

    type: str
    version: str | None
    identifier: str | None
    content_type: str | None
    sha256: str | None
    path: Path


class Store:
    """A managed root; as a context manager it closes itself.

    Each operation runs on its caller's thread, without the GIL, and raises an Error when it fails.
    Threads may share a store as long as they work on different services.
    """

    def __init__(self, root: AnyPath, *, create: bool = True) -> None:
        """Opens the root, and creates a missing one unless `create` is false."""
        self._lock = threading.Lock()
        self._calls = 0
        self._handle: ctypes.c_void_p | None = None
        self._closing = True
        self._root = encoded_path("root", root)
        if not create:
            with system_failures("the root cannot be opened"):
                os.stat(self._root)
        handle = ctypes.c_void_p()
        _library.call("larkspur_open", self._root, ctypes.byref(handle))
        self._handle = handle
        self._closing = False

    @property
    def root(self) -> Path:
        """The managed root."""
        return Path(os.fsdecode(self._root))

    def path_of(self, type: str) -> Path:
        """The path of the service's tree, whether it exists or not."""
        name = encoded("type", type)
        if name in (b"", b".", b"..") or b"/" in name:
            raise BadArgument(f"{type!r} is not a service type")
        return Path(os.fsdecode(os.path.join(self._root, name)))

    def check(self, archive: AnyPath) -> None:
        """Raises UnzipFailed or SymbolicLinksNotAllowed as an install would; changes nothing.

        Installing such an archive removes the service's tree, so check first.
        """
        self._call("larkspur_check_archive", encoded_path("archive", archive))

    def install(
        self,
        type: str,
        archive: AnyPath,
        *,
        version: str,
        identifier: str,
        sha256: str | None = None,
        content_type: str = "application/zip",
        force: bool = False,
    ) -> None:
        """Installs or updates a service from a zip archive.

        `version` and `identifier` are the keys of its declaration. `sha256` is recorded as it is;
        None computes it. `force` skips the check for a rename or another declaration's service.
        """
        path = encoded_path("archive", archive)
        options = _library.OptionsStruct(
            ctypes.sizeof(_library.OptionsStruct),
            encoded("type", type),
            path,
            encoded("version", version),
            encoded("identifier", identifier),
            _digest(path) if sha256 is None else encoded("sha256", sha256),
            encoded("content_type", content_type),
            force,
        )
        self._call("larkspur_install", ctypes.byref(options))

    def services(self) -> list[Service]:
        """All services with a readable record, in the order of the directory."""
        found = _library.ServiceList()
        self._call("larkspur_services", ctypes.byref(found))
        try:
            entries = itertools.takewhile(bool, (found[i] for i in itertools.count()))
            return [self._service(entry.contents) for entry in entries]
        finally:
            _library.library().larkspur_free_services(found)

    def find(self, version: str) -> str:
        """The type of the first service that `version` installed; ServiceNotFound without one."""
        found = ctypes.c_char_p()
        self._call("larkspur_find", encoded("version", version), ctypes.byref(found))
        try:
            return decoded(found.value or b"")
        finally:
            _library.library().larkspur_free(found)

    def delete(self, version: str) -> None:
        """Deletes the first service that `version` installed; ServiceNotFound without one."""
        self._call("larkspur_delete", encoded("version", version))

    def close(self) -> None:
        """Closes the store when the calls on other threads have ended; does not wait for them."""
        with self._lock:
            self._closing = True
            self._close_unused()

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __del__(self) -> None:
        # Not closed here: this may run inside a hook, where the library cannot close a store.
        if getattr(self, "_handle", None) is not None:
            # Not by repr: at exit pathlib may no longer work.
            warnings.warn(f"unclosed Store({self._root!r})", ResourceWarning, source=self)

    def __repr__(self) -> str:
        return f"{type(self).__name__}({str(self.root)!r})"

    def _call(self, function: str, *arguments: object) -> None:
        with self._lock:
            if self._closing:
                raise BadArgument("the store is closed")
            self._calls += 1
        try:
            _library.call(function, self._handle, *arguments)
        finally:
            with self._lock:
                self._calls -= 1
                if self._closing:
                    self._close_unused()

    def _close_unused(self) -> None:
        if self._handle is not None and self._calls == 0:
            _library.library().larkspur_close(self._handle)
            self._handle = None

    def _service(self, entry: _library.ServiceStruct) -> Service:
        def text(value: bytes | None) -> str | None:
            return None if value is None else decoded(value)

        return Service(
            type=decoded(entry.type),
            version=text(entry.version),
            identifier=text(entry.identifier),
            content_type=text(entry.content_type),
            sha256=text(entry.sha256),
            path=Path(os.fsdecode(os.path.join(self._root, entry.type))),
        )


def _digest(archive: bytes) -> bytes:
    with system_failures("the archive cannot be read"), open(archive, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest().encode()
