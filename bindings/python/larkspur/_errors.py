# SPDX-License-Identifier: Apache-2.0
"""One exception class per code of the C interface."""

import contextlib
from collections.abc import Iterator


class Error(Exception):
    """A call that failed.

    `code` is the code of the C interface, `message` one sentence, `detail` the error lines that the
    call logged, and `errno` the system's error number, or None.
    """

    code: int = 0

    def __init__(self, message: str, detail: str = "", errno: int | None = None) -> None:
        super().__init__(message)
        self.message = message
        self.detail = detail
        self.errno = errno
        if detail:
            self.add_note(detail)


class InvalidMIMEType(Error):
    """The content type is not application/zip."""

    code = 1


class ServiceNotFound(Error):
    """No installed service matches."""

    code = 2


class UpdateServiceFailed(Error):
    """The service belongs to another declaration."""

    code = 3


class UnzipFailed(Error):
    """The archive could not be unpacked; the service's tree is gone."""

    code = 4


class ReservedServiceType(Error):
    """The service type uses a reserved prefix."""

    code = 5


class SymbolicLinksNotAllowed(Error):
    """The archive contains a symbolic link; the service's tree is gone."""

    code = 6


class InternalError(Error):
    """A disk or record operation failed; see `detail`."""

    code = 7


class UnexpectedError(Error):
    """A state that should be impossible."""

    code = 8


class BadArgument(Error, ValueError):
    """An argument is not allowed, or the store is closed."""

    code = 32


class NotReady(Error):
    """There is no notification center, or the root disappeared."""

    code = 33


class SystemFailure(Error):
    """A system call failed; see `errno`."""

    code = 34


class NoMemory(Error):
    """Out of memory."""

    code = 35


class LibraryNotFound(ImportError):
    """The library cannot be loaded, or has no C interface."""


def error_of(code: int, message: str, detail: str, errno: int) -> Error:
    """The exception for a failed call."""
    for kind in (*Error.__subclasses__(), Error):
        if kind.code == code:
            break
    error = kind(message, detail, errno or None)
    error.code = code
    return error


@contextlib.contextmanager
def system_failures(what: str) -> Iterator[None]:
    """Turns an OSError into a SystemFailure."""
    try:
        yield
    except OSError as problem:
        raise SystemFailure(f"{what}: {problem.strerror}", errno=problem.errno) from problem
