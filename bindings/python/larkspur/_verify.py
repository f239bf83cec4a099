# SPDX-License-Identifier: Apache-2.0
"""Finds problems below a root by reading the disk only."""

import json
import os
import stat
from collections.abc import Iterator

_SAVED = "._saved"
_STAGING = ".larkspur-"
_RECORD = "user.Larkspur"
_KEYS = {"declarationVersionKey", "declarationIdentifierKey", "contentType", "hashSHA256"}

Problem = tuple[str, str]
"""A path and its problem."""


def problems(root: str) -> Iterator[Problem]:
    """The problems below the root; raises OSError when the root cannot be listed."""
    names = sorted(os.listdir(root))
    for name in names:
        path = os.path.join(root, name)
        if name == _SAVED:
            yield from _saved_without_tree(root, path)
        elif name.startswith(_STAGING):
            yield path, "left over from an interrupted install or deletion"
        elif not _is_directory(path):
            yield path, "not a directory"
        else:
            yield from _service_problems(root, name)


def _service_problems(root: str, name: str) -> Iterator[Problem]:
    path = os.path.join(root, name)
    wrong = _record_problem(path)
    if wrong:
        yield path, wrong
    yield from _tree_problems(path)
    saved = os.path.join(root, _SAVED, name)
    if not wrong and not _is_saved_copy(saved):
        yield saved, "saved copy missing"


def _record_problem(path: str) -> str:
    try:
        record = json.loads(os.getxattr(path, _RECORD))
    except OSError as problem:
        return f"tree without a record: {problem.strerror}"
    except (ValueError, RecursionError):
        return "record is not JSON"
    if not isinstance(record, dict):
        return "record is not a JSON object"
    missing = sorted(key for key in _KEYS if not isinstance(record.get(key), str))
    return f"record without {', '.join(missing)}" if missing else ""


def _tree_problems(top: str) -> Iterator[Problem]:
    pending = [top]
    while pending:
        path = pending.pop()
        try:
            mode = os.lstat(path).st_mode
            if stat.S_ISLNK(mode):
                yield path, "link"
            elif stat.S_ISDIR(mode):
                yield from _mode_problem(path, mode, 0o755)
                pending += sorted((entry.path for entry in os.scandir(path)), reverse=True)
            elif stat.S_ISREG(mode):
                yield from _mode_problem(path, mode, 0o444)
            else:
                yield path, "neither a file nor a directory"
        except OSError as problem:
            yield path, f"cannot be read: {problem.strerror}"


def _mode_problem(path: str, mode: int, wanted: int) -> Iterator[Problem]:
    if stat.S_IMODE(mode) != wanted:
        yield path, f"mode {stat.S_IMODE(mode):04o}, not {wanted:04o}"


def _saved_without_tree(root: str, saved: str) -> Iterator[Problem]:
    try:
        names = sorted(os.listdir(saved))
    except OSError as problem:
        yield saved, f"cannot be read: {problem.strerror}"
        return
    for name in names:
        if not os.path.lexists(os.path.join(root, name)):
            yield os.path.join(saved, name), "saved copy without a tree"


def _is_saved_copy(path: str) -> bool:
    try:
        return [stat.S_ISREG(os.lstat(entry).st_mode) for entry in os.scandir(path)] == [True]
    except OSError:
        return False


def _is_directory(path: str) -> bool:
    return os.path.isdir(path) and not os.path.islink(path)
