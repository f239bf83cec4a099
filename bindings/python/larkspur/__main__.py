# SPDX-License-Identifier: Apache-2.0
"""The operator's tool: `python3 -m larkspur ROOT COMMAND`.

Exit status: 0 done, 1 failed or, for verify, problems found, 2 wrong usage.
"""

import argparse
import dataclasses
import io
import json
import sys
from collections.abc import Callable

from . import Error, LibraryNotFound, Service, Store, _verify, use_hooks

_Command = Callable[[argparse.Namespace], int]
_COLUMNS = ["TYPE", "VERSION", "IDENTIFIER", "CONTENT TYPE", "SHA256"]


def _reading(arguments: argparse.Namespace) -> Store:
    use_hooks(change=lambda name: None)  # It announces nothing and needs no bus.
    return Store(arguments.root, create=False)


def _list(arguments: argparse.Namespace) -> int:
    with _reading(arguments) as store:
        services = store.services()
    if arguments.json:
        records = [dataclasses.asdict(service) for service in services]
        print(json.dumps(records, default=str, indent=2))
        return 0
    rows = sorted(_row(service) for service in services)
    if sys.stdout.isatty():
        rows.insert(0, _COLUMNS)
        widths = [max(map(len, column)) for column in zip(*rows)]
        rows = [["  ".join(map(str.ljust, row, widths)).rstrip()] for row in rows]
    for row in rows:
        print("\t".join(row))
    return 0


def _find(arguments: argparse.Namespace) -> int:
    with _reading(arguments) as store:
        print(_printable(store.find(arguments.version)))
    return 0


def _check(arguments: argparse.Namespace) -> int:
    with _reading(arguments) as store:
        store.check(arguments.archive)
    return 0


def _install(arguments: argparse.Namespace) -> int:
    with Store(arguments.root) as store:
        # A bad archive would cost the service its tree.
        store.check(arguments.archive)
        store.install(
            arguments.type,
            arguments.archive,
            version=arguments.version,
            identifier=arguments.identifier,
            sha256=arguments.sha256,
            force=arguments.force,
        )
    return 0


def _delete(arguments: argparse.Namespace) -> int:
    with Store(arguments.root, create=False) as store:
        store.delete(arguments.version)
    return 0


def _verify_root(arguments: argparse.Namespace) -> int:
    status = 0
    for path, wrong in _verify.problems(arguments.root):
        print(f"{_printable(path)}: {wrong}")
        status = 1
    return status


def _row(service: Service) -> list[str]:
    values = dataclasses.astuple(service)[: len(_COLUMNS)]
    return ["-" if value is None else _printable(value) for value in values]


def _printable(text: str) -> str:
    """The text with line breaks and control characters escaped."""
    return "".join(
        c if c.isprintable() and c != "\\" else c.encode("unicode_escape").decode() for c in text
    )


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m larkspur",
        description="Inspects and changes the services of a managed root.",
    )
    parser.add_argument("root", metavar="ROOT", help="the managed root")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")

    def command(name: str, run: _Command, text: str) -> argparse.ArgumentParser:
        added = commands.add_parser(name, help=text, description=text)
        added.set_defaults(run=run)
        return added

    listing = command("list", _list, "list the services")
    listing.add_argument("--json", action="store_true", help="as JSON, with paths")
    find = command("find", _find, "print the type of the service that VERSION installed")
    find.add_argument("version", metavar="VERSION")
    check = command("check", _check, "check an archive; change nothing")
    check.add_argument("archive", metavar="ARCHIVE")
    install = command("install", _install, "install or update a service; create a missing root")
    install.add_argument("type", metavar="TYPE")
    install.add_argument("archive", metavar="ARCHIVE")
    install.add_argument("--version", required=True, help="the declaration's version key")
    install.add_argument("--identifier", required=True, help="the declaration's identifier key")
    install.add_argument("--sha256", help="the digest to record; computed by default")
    install.add_argument("--force", action="store_true", help="skip the check for a rename or another declaration's service")
    delete = command("delete", _delete, "delete the service that VERSION installed")
    delete.add_argument("version", metavar="VERSION")
    command("verify", _verify_root, "list problems on disk")
    return parser


def main() -> int:
    """Runs the command line; returns the exit status."""
    arguments = _parser().parse_args()
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")
    try:
        status: int = arguments.run(arguments)
        return status
    except Error as error:
        lines = [f"{type(error).__name__} ({error.code}): {error.message}"]
        lines += error.detail.splitlines()
    except (LibraryNotFound, OSError) as problem:
        lines = [str(problem)]
    for line in lines:
        print(f"larkspur: {_printable(line)}", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
