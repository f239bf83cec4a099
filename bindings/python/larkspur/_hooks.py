# SPDX-License-Identifier: Apache-2.0
"""Python functions in place of log, notification center and analytics."""

import ctypes
import enum
from collections.abc import Callable

from . import _library


class LogLevel(enum.IntEnum):
    """The level of a log line; each level includes those before it."""

    ERROR = 0
    INFO = 1
    DEBUG = 2


LogHook = Callable[[LogLevel, str, str], None]
"""Takes level, category and message of one log line."""
ChangeHook = Callable[[str], None]
"""Takes the name of a change: "kLarkspurChanged_" and the service type."""
EventHook = Callable[[str, bool, int, int], None]
"""Takes service type, enabled, size of the archive and number of managed services."""

# Keeps the functions that the library calls alive.
_in_use: _library.HooksStruct | None = None


def use_hooks(
    *,
    log: LogHook | None = None,
    change: ChangeHook | None = None,
    event: EventHook | None = None,
    log_level: LogLevel = LogLevel.ERROR,
) -> None:
    """Sets the hooks of the whole process, before a store is opened.

    None means the system's service: journal, system bus, journal. Hooks run on the threads that
    call the library, must return soon and must not call it. An exception in a hook goes to
    `sys.unraisablehook`, and the call continues. Raises BadArgument while a store is open.
    """
    global _in_use
    hooks = _library.HooksStruct(ctypes.sizeof(_library.HooksStruct))
    if log:
        hooks.log = _log_function(log)
    if change:
        hooks.change = _change_function(change)
    if event:
        hooks.event = _event_function(event)
    hooks.log_level = log_level
    _library.call("larkspur_use_hooks", ctypes.byref(hooks))
    _in_use = hooks


def _log_function(hook: LogHook) -> object:
    def log(_context: object, level: int, category: bytes, message: bytes) -> None:
        hook(LogLevel(level), _library.decoded(category), _library.decoded(message))

    return _library.LogFunction(log)


def _change_function(hook: ChangeHook) -> object:
    def change(_context: object, name: bytes) -> None:
        hook(_library.decoded(name))

    return _library.ChangeFunction(change)


def _event_function(hook: EventHook) -> object:
    def event(_context: object, service: bytes, enabled: int, size: int, number: int) -> None:
        hook(_library.decoded(service), bool(enabled), size, number)

    return _library.EventFunction(event)
