# SPDX-License-Identifier: Apache-2.0
"""The C interface: its structs and functions, and the conversion of strings."""

import ctypes
import functools
import os
from ctypes import POINTER, c_char_p, c_int, c_longlong, c_size_t, c_void_p
from typing import Any

from ._errors import BadArgument, LibraryNotFound, error_of, system_failures

AnyPath = str | bytes | os.PathLike[str] | os.PathLike[bytes]

# use_errno preserves the library's errno, whatever a hook does.
LogFunction = ctypes.CFUNCTYPE(None, c_void_p, c_int, c_char_p, c_char_p, use_errno=True)
ChangeFunction = ctypes.CFUNCTYPE(None, c_void_p, c_char_p, use_errno=True)
EventFunction = ctypes.CFUNCTYPE(
    None, c_void_p, c_char_p, c_int, c_longlong, c_longlong, use_errno=True
)


class ErrorStruct(ctypes.Structure):
    _fields_ = [
        ("code", c_int),
        ("system_errno", c_int),
        ("message", ctypes.c_char * 256),
        ("detail", ctypes.c_char * 1024),
    ]


class OptionsStruct(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("service_type", c_char_p),
        ("archive", c_char_p),
        ("version", c_char_p),
        ("identifier", c_char_p),
        ("sha256", c_char_p),
        ("content_type", c_char_p),
        ("force", c_int),
    ]


class HooksStruct(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("context", c_void_p),
        ("log", LogFunction),
        ("change", ChangeFunction),
        ("event", EventFunction),
        ("log_level", c_int),
    ]


class ServiceStruct(ctypes.Structure):
    _fields_ = [
        ("type", c_char_p),
        ("version", c_char_p),
        ("identifier", c_char_p),
        ("content_type", c_char_p),
        ("sha256", c_char_p),
    ]


ServiceList = POINTER(POINTER(ServiceStruct))

_SIGNATURES: dict[str, tuple[Any, list[Any]]] = {
    "larkspur_version": (c_char_p, []),
    "larkspur_use_hooks": (c_int, [POINTER(HooksStruct), POINTER(ErrorStruct)]),
    "larkspur_open": (c_int, [c_char_p, POINTER(c_void_p), POINTER(ErrorStruct)]),
    "larkspur_close": (None, [c_void_p]),
    "larkspur_check_archive": (c_int, [c_void_p, c_char_p, POINTER(ErrorStruct)]),
    "larkspur_install": (c_int, [c_void_p, POINTER(OptionsStruct), POINTER(ErrorStruct)]),
    "larkspur_delete": (c_int, [c_void_p, c_char_p, POINTER(ErrorStruct)]),
    "larkspur_find": (c_int, [c_void_p, c_char_p, POINTER(c_char_p), POINTER(ErrorStruct)]),
    "larkspur_services": (c_int, [c_void_p, POINTER(ServiceList), POINTER(ErrorStruct)]),
    "larkspur_free_services": (None, [ServiceList]),
    "larkspur_free": (None, [c_void_p]),
}


@functools.cache
def library() -> ctypes.CDLL:
    """Loads the library on first use."""
    name = os.environ.get("LARKSPUR_LIBRARY") or "liblarkspur.so.1"
    try:
        loaded = ctypes.CDLL(name)
        for symbol, (result, arguments) in _SIGNATURES.items():
            function = getattr(loaded, symbol)
            function.restype, function.argtypes = result, arguments
    except (OSError, AttributeError) as problem:
        raise LibraryNotFound(f"the Larkspur library cannot be used: {problem}") from problem
    return loaded


def call(function: str, *arguments: object) -> None:
    """Calls a function without the GIL and raises the error that it reports."""
    error = ErrorStruct()
    code: int = getattr(library(), function)(*arguments, ctypes.byref(error))
    if code:
        raise error_of(code, decoded(error.message), decoded(error.detail), error.system_errno)


def version() -> str:
    """The version of the library in use, for instance "1.1.0"."""
    return decoded(library().larkspur_version())


def decoded(text: bytes) -> str:
    return text.decode(errors="surrogateescape")


def encoded(name: str, text: str) -> bytes:
    """Encodes the string argument `name`."""
    try:
        return _whole(name, text.encode(errors="surrogateescape"))
    except UnicodeEncodeError as problem:
        raise BadArgument(f"{name} is not a valid string: {problem}") from problem


def encoded_path(name: str, path: AnyPath) -> bytes:
    """Encodes the argument `name` as an absolute path; keeps links and ".."."""
    try:
        raw = _whole(name, os.fsencode(path))
    except UnicodeEncodeError as problem:
        raise BadArgument(f"{name} is not a valid path: {problem}") from problem
    if not raw:
        raise BadArgument(f"{name} is empty")
    if os.path.isabs(raw):
        return raw
    with system_failures("the working directory is gone"):
        return os.path.join(os.getcwdb(), raw)


def _whole(name: str, raw: bytes) -> bytes:
    # C would ignore everything after it.
    if b"\0" in raw:
        raise BadArgument(f"{name} contains a NUL character")
    return raw
