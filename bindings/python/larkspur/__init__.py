# SPDX-License-Identifier: Apache-2.0
"""Installs, updates, looks up and deletes the configuration trees of managed services.

    with larkspur.Store("/var/lib/acme/services") as store:
        store.check("vpn.zip")
        store.install("com.example.vpn", "vpn.zip", version="version-42", identifier="decl-7")

The package needs the library liblarkspur.so.1, and loads it on first use; the environment
variable LARKSPUR_LIBRARY names another file. `python3 -m larkspur` is the operator's tool.
"""

from ._errors import (
    BadArgument,
    Error,
    InternalError,
    InvalidMIMEType,
    LibraryNotFound,
    NoMemory,
    NotReady,
    ReservedServiceType,
    ServiceNotFound,
    SymbolicLinksNotAllowed,
    SystemFailure,
    UnexpectedError,
    UnzipFailed,
    UpdateServiceFailed,
)
from ._hooks import ChangeHook, EventHook, LogHook, LogLevel, use_hooks
from ._library import version
from ._store import Service, Store

__all__ = [
    "BadArgument",
    "ChangeHook",
    "Error",
    "EventHook",
    "InternalError",
    "InvalidMIMEType",
    "LibraryNotFound",
    "LogHook",
    "LogLevel",
    "NoMemory",
    "NotReady",
    "ReservedServiceType",
    "Service",
    "ServiceNotFound",
    "Store",
    "SymbolicLinksNotAllowed",
    "SystemFailure",
    "UnexpectedError",
    "UnzipFailed",
    "UpdateServiceFailed",
    "use_hooks",
    "version",
]
