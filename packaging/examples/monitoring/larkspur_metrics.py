#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes what a root holds, and what is wrong there, for node_exporter's textfile collector:
larkspur_metrics.py ROOT FILE.prom"""

import os
import subprocess
import sys

import larkspur


def label(value: str | None) -> str:
    text = (value or "").encode(errors="replace").decode()
    return text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")


def services(root: str) -> list[str]:
    # Looking must write no log lines, and needs no bus.
    larkspur.use_hooks(log=lambda level, category, message: None, change=lambda name: None)
    with larkspur.Store(root, create=False) as store:
        found = store.services()
    lines = [f"larkspur_services {len(found)}"]
    for service in found:
        name = f'service="{label(service.type)}"'
        version = f'version="{label(service.version)}"'
        lines.append(f"larkspur_service_info{{{name},{version}}} 1")
        try:
            changed = os.stat(service.path).st_ctime
        except FileNotFoundError:
            continue  # deleted meanwhile
        lines.append(f"larkspur_service_changed_timestamp_seconds{{{name}}} {changed:.0f}")
    return lines


def problems(root: str) -> list[str]:
    tool = [sys.executable, "-m", "larkspur", root, "verify"]
    result = subprocess.run(tool, capture_output=True, text=True)
    counts: dict[str, int] = {}
    for line in result.stdout.splitlines():
        parts = os.path.relpath(line.partition(": ")[0], root).split("/")
        name = parts[1] if parts[0] == "._saved" and len(parts) > 1 else parts[0]
        counts[name] = counts.get(name, 0) + 1
    lines = [f"larkspur_problems {sum(counts.values())}"]
    for name, count in sorted(counts.items()):
        lines.append(f'larkspur_service_problems{{service="{label(name)}"}} {count}')
    if result.returncode not in (0, 1) or result.stderr:
        raise RuntimeError(result.stderr)
    return lines


def main() -> None:
    root, target = sys.argv[1:]
    lines = services(root) + problems(root)
    temporary = f"{target}.{os.getpid()}"  # no reader meets half of it
    with open(temporary, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")
    os.replace(temporary, target)


main()
