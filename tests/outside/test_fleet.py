# SPDX-License-Identifier: Apache-2.0
# The Ansible collection: its module alone, and on three hosts, one of them over ssh.

import contextlib
import importlib.util
import io
import json
import os
import re
import runpy
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

from support import VPN, Entry, OutsideTest, make_zip, record, snapshot

sys.path.append("/usr/lib/python3/dist-packages")  # Debian's Ansible, for other interpreters too.
SOURCE = Path(__file__).resolve().parents[2]
ENGINE = shutil.which("ansible-playbook")
SSHD = shutil.which("sshd", path=f"{os.environ['PATH']}:/usr/sbin")
ABSENT = {"state": "absent"}


def versions(root):
    records = {path.name: record(path) for path in Path(root).glob("[!.]*")}
    return {name: found["declarationVersionKey"] for name, found in records.items() if found}


@unittest.skipUnless(importlib.util.find_spec("ansible"), "ansible is missing")
class ModuleTest(OutsideTest):
    # Runs the module in this process; returns what it reports.
    def run_module(self, check=False, **wanted):
        from ansible.module_utils import basic

        wanted = {"root": str(self.root), "_ansible_tmpdir": str(self.directory), **wanted}
        wanted = {"ANSIBLE_MODULE_ARGS": wanted | {"_ansible_check_mode": check}}
        basic._ANSIBLE_ARGS, basic._ANSIBLE_PROFILE = json.dumps(wanted).encode(), "legacy"
        with contextlib.redirect_stdout(io.StringIO()) as output, self.assertRaises(SystemExit):
            module = SOURCE / "bindings/ansible/plugins/modules/service.py"
            runpy.run_path(str(module), run_name="__main__")
        return json.loads(output.getvalue())

    def test_check_mode_and_repetition(self):
        wanted = dict(type=VPN, version="v2", identifier="d1", archive=str(self.archive()))
        first = self.run_module(check=True, **wanted)
        self.assertFalse(self.root.exists())
        self.install(type="old")
        before = snapshot(self.root)
        renamed = self.run_module(check=True, **wanted)
        self.assertTrue(self.run_module(check=True, **ABSENT, version="v1")["changed"])
        self.assertEqual(snapshot(self.root), before)
        done = self.run_module(**wanted)
        self.assertEqual((first["deleted"], first["service"]), ([], done["service"]))
        self.assertEqual((done["deleted"], done["changed"], renamed), (["old"], True, done))
        self.assertEqual([*done["diff"]["before"]], ["old"])
        tree = (self.root / VPN).stat().st_ino
        self.assertFalse(self.run_module(**wanted)["changed"])
        self.assertEqual((self.root / VPN).stat().st_ino, tree)

    def test_refusals_change_nothing(self):
        for type, version in {"a": "v1", "b": "v1", "c": "v3"}.items():
            self.install(version, type, identifier=f"of {type}")
        second = max("ab", key=os.listdir(self.root).index)  # A deletion of v1 takes the first.
        (self.root / "bare").mkdir()
        archive, none = self.directory / "config.zip", self.directory / "none"
        (bad := self.directory / "bad.zip").touch()
        shutil.copy(archive, pattern := self.directory / "[x].zip")
        good = dict(type="c", version="v4", identifier="of c", archive=str(archive))
        before = snapshot(self.root)
        for wanted, message in (
            (good | {"identifier": "of a"}, "UpdateServiceFailed: c belongs to declaration of c"),
            (good | {"identifier": f"of {second}", "type": "d"}, "has version v1 as well"),
            (good | {"archive": str(none)}, "no such archive on the managed host"),
            (good | {"archive": str(pattern)}, "contains pattern characters"),
            (good | {"type": "a/b"}, "is not a service type"),
            (good | {"root": "relative"}, "not an absolute path"),
            (good | {"archive": str(bad), "root": str(none)}, "UnzipFailed: "),
            (ABSENT | {"type": second}, "has version v1 as well"),
            (ABSENT | {"type": "bare"}, "no readable record"),
            (ABSENT | {"type": ""}, "is not a service type"),
        ):
            for check in True, False:
                self.assertIn(message, self.run_module(check, **wanted).get("msg", wanted))
        self.assertFalse(none.exists())
        self.assertEqual(snapshot(self.root), before)

        for wanted, changed in (
            (ABSENT | {"type": "a", "version": "v3"}, False),
            (ABSENT | {"type": "a", "root": str(none)}, False),
            (ABSENT | {"version": "v1"}, True),
            (good | {"identifier": "of d", "force": True}, True),
        ):
            self.assertEqual(self.run_module(**wanted)["changed"], changed, wanted)
        self.assertEqual(versions(self.root), {"c": "v4"})


@unittest.skipUnless(ENGINE and SSHD, "ansible-playbook or sshd is missing")
@unittest.skipIf("LD_PRELOAD" in os.environ, "sshd does not run under a sanitizer")
class FleetTest(OutsideTest):
    scratch_allowed = 1  # Ansible's own, in HOME.

    def setUp(self):
        super().setUp()
        collection = self.directory / "ansible_collections/corvid/larkspur"
        collection.parent.mkdir(parents=True)
        collection.symlink_to(SOURCE / "bindings/ansible")
        # Uses the playbook of the documentation.
        page = (SOURCE / "docs/fleet.md").read_text()
        self.playbook = re.search("```yaml\n(.*?)```", page, re.S).group(1)
        self.hosts = {name: {"ansible_connection": "local"} for name in ("two", "three")}
        # Each connection to "one" starts an sshd for this user, and uses it through pipes.
        key, settings = self.directory / "key", self.directory / "sshd_config"
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True)
        names = "LARKSPUR_LIBRARY", "PYTHONPATH", "DBUS_SYSTEM_BUS_ADDRESS", "HOME", "TMPDIR"
        passed = " ".join(f'"{name}={os.environ[name]}"' for name in names)
        settings.write_text(f"HostKey {key}\nAuthorizedKeysFile {key}.pub\nStrictModes no\n"
                            f"Subsystem sftp internal-sftp\nSetEnv {passed}\n")  # fmt: skip
        if os.geteuid() == 0 and not os.path.exists("/run/sshd"):
            os.mkdir("/run/sshd", 0o755)
            self.addCleanup(os.rmdir, "/run/sshd")
        options = "-F none -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null"
        options += f" -i {key} -o 'ProxyCommand={SSHD} -i -f {settings}'"
        self.hosts["one"] = {"ansible_ssh_args": options}

    # Runs the playbook; expects (changed, failed, installed) of each host but `others`.
    def play(self, expected, others={}, playbook=None, **wanted):
        inventory, file = self.directory / "inventory.json", self.directory / "play.yml"
        wanted |= {place: f"{self.directory}/{place}-{{{{ inventory_hostname }}}}"
                   for place in ("root", "incoming")}  # fmt: skip
        inventory.write_text(json.dumps({"all": {"hosts": self.hosts, "vars": wanted}}))
        file.write_text(playbook or self.playbook)
        settings = {"ANSIBLE_COLLECTIONS_PATH": str(self.directory), "ANSIBLE_PIPELINING": "1",
                    "ANSIBLE_PYTHON_INTERPRETER": sys.executable}  # fmt: skip
        done = subprocess.run([ENGINE, "-i", inventory, file], capture_output=True, text=True,
                              env=os.environ | settings)  # fmt: skip
        recap = r"^(\w+) .*changed=(\d+) +unreachable=0 +failed=(\d+)"
        found = {host: (int(changed), int(failed), versions(self.directory / f"root-{host}"))
                 for host, changed, failed in re.findall(recap, done.stdout, re.M)}  # fmt: skip
        expected = dict.fromkeys(self.hosts, expected) | others
        self.assertEqual(found, expected, done.stdout + done.stderr)
        return done.stdout

    def test_life_of_a_service(self):
        first = dict(type=VPN, version="v1", identifier="d1", archive=str(self.archive()))
        self.play((2, 0, {VPN: "v1"}), **first)
        self.play((0, 0, {VPN: "v1"}), **first)

        # The bad archive is reported by its host, which keeps its tree; the others go on.
        bad = make_zip(self.directory / "bad.zip", Entry("settings", b"off", checksum=1))
        before = snapshot(self.directory / "root-three")
        self.hosts["three"]["archive"] = str(bad)
        others = {"three": (1, 1, {VPN: "v1"})}
        output = self.play((1, 0, {VPN: "v2"}), others, **first | {"version": "v2"})
        self.assertRegex(output, r'three.*"code": 4, .*"detail": "[^"]*bad CRC')
        self.assertEqual(snapshot(self.directory / "root-three"), before)

        del self.hosts["three"]["archive"]
        last = first | {"version": "v3", "type": "new"}
        self.play((1, 0, {"new": "v3"}), **last)
        self.play((1, 0, {}), playbook=self.playbook + "        state: absent\n", **last)
