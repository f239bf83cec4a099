# SPDX-License-Identifier: Apache-2.0
"""The Ansible collection: its module alone, and on three hosts, one of them over ssh."""

import contextlib
import io
import json
import os
import re
import runpy
import shutil
import socket
import subprocess
import sys
import unittest
from pathlib import Path

import larkspur
from support import VPN, Entry, OutsideTest, main, make_zip, record, snapshot

sys.path.append("/usr/lib/python3/dist-packages")  # Debian's Ansible, for other interpreters too.
try:
    from ansible.module_utils import basic
except ImportError:
    basic = None

SOURCE = Path(__file__).resolve().parents[2]
ENGINE = shutil.which("ansible-playbook")
SSHD = shutil.which("sshd", path=f"{os.environ['PATH']}:/usr/sbin")
ABSENT = {"state": "absent"}


def versions(root):
    records = {path.name: record(path) for path in Path(root).glob("[!.]*")}
    return {name: found["declarationVersionKey"] for name, found in records.items() if found}


@unittest.skipUnless(basic, "ansible is missing")
class ModuleTest(OutsideTest):
    def run_module(self, check=False, **wanted):
        """Runs the module in this process; returns what it reports."""
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
        self.assertEqual(done["deleted"], ["old"])
        self.assertEqual(renamed, done)
        tree = (self.root / VPN).stat().st_ino
        self.assertFalse(self.run_module(**wanted)["changed"])
        self.assertEqual((self.root / VPN).stat().st_ino, tree)

    def test_refusals_change_nothing(self):
        for type, version in {"a": "v1", "b": "v1", "c": "v3"}.items():
            self.install(version, type, identifier=f"of {type}")
        with larkspur.Store(self.root) as store:
            second = "b" if store.find("v1") == "a" else "a"
        (self.root / "bare").mkdir()
        names = ("config.zip", "bad.zip", "[x].zip")
        archive, bad, pattern = (self.directory / name for name in names)
        bad.touch()
        shutil.copy(archive, pattern)
        good = dict(type="c", version="v4", identifier="of c", archive=str(archive))
        before, none = snapshot(self.root), self.directory / "none"
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
            for check in (True, False):
                result = self.run_module(check, **wanted)
                self.assertIn(message, result["msg"] if result.get("failed") else result)
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
    def setUp(self):
        super().setUp()
        collection = self.directory / "ansible_collections/corvid/larkspur"
        collection.parent.mkdir(parents=True)
        collection.symlink_to(SOURCE / "bindings/ansible")
        # Uses the playbook of the documentation.
        page = (SOURCE / "docs/fleet.md").read_text()
        self.playbook = re.search("```yaml\n(.*?)```", page, re.S).group(1)
        self.hosts = {"one": self.ssh_host()}
        for name in ("one", "two", "three"):
            host = self.hosts.setdefault(name, {"ansible_connection": "local"})
            host.update(root=f"{self.directory}/{name}", incoming=f"{self.directory}/in-{name}")

    def ssh_host(self):
        """Starts an sshd for this user, with a key and a configuration of its own."""
        top, separation = self.directory, Path("/run/sshd")
        command = ["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", top / "key"]
        subprocess.run(command, check=True)
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = listener.getsockname()[1]
        (top / "known").write_text(f"[127.0.0.1]:{port} {(top / 'key.pub').read_text()}")
        names = "LARKSPUR_LIBRARY", "PYTHONPATH", "DBUS_SYSTEM_BUS_ADDRESS", "HOME", "TMPDIR"
        passed = " ".join(f'"{name}={os.environ[name]}"' for name in names)
        (top / "sshd_config").write_text(
            f"Port {port}\nListenAddress 127.0.0.1\nHostKey {top}/key\nPidFile none\n"
            f"AuthorizedKeysFile {top}/key.pub\nPasswordAuthentication no\nStrictModes no\n"
            f"Subsystem sftp internal-sftp\nSetEnv {passed}\n"
        )
        if os.geteuid() == 0 and not separation.exists():
            separation.mkdir(mode=0o755)
            self.addCleanup(separation.rmdir)
        command = ["setpriv", "--pdeathsig", "KILL", SSHD, "-D", "-E", top / "log"]
        daemon = subprocess.Popen([*command, "-f", top / "sshd_config"])
        self.addCleanup(daemon.wait)
        self.addCleanup(daemon.kill)
        options = f"-F none -o ConnectionAttempts=60 -o UserKnownHostsFile={top}/known"
        host = {"connection": "ssh", "host": "127.0.0.1", "port": port, "ssh_args": options}
        host["ssh_private_key_file"] = f"{top}/key"
        return {f"ansible_{name}": value for name, value in host.items()}

    def play(self, expected, *options, others={}, playbook=None, **wanted):
        """Runs the playbook; expects (changed, failed) of each host but `others`."""
        wanted["ansible_remote_tmp"] = f"{self.directory}/remote"
        wanted["ansible_python_interpreter"] = sys.executable
        inventory, file = self.directory / "inventory.json", self.directory / "play.yml"
        inventory.write_text(json.dumps({"all": {"hosts": self.hosts, "vars": wanted}}))
        file.write_text(playbook or self.playbook)
        environment = {"ANSIBLE_COLLECTIONS_PATH": str(self.directory), "ANSIBLE_PIPELINING": "1"}
        environment |= os.environ | {"ANSIBLE_HOME": f"{self.directory}/engine"}
        done = subprocess.run([ENGINE, "-i", inventory, *options, file], env=environment,
                              capture_output=True, text=True)  # fmt: skip
        recap = r"^(\w+) .*changed=(\d+) +unreachable=0 +failed=(\d+)"
        recap = re.findall(recap, done.stdout, re.M)
        found = {host: (int(changed), int(failed)) for host, changed, failed in recap}
        expected = dict.fromkeys(self.hosts, expected) | others
        self.assertEqual(found, expected, done.stdout + done.stderr)
        return done.stdout

    def installed(self):
        return [versions(host["root"]) for host in self.hosts.values()]

    def test_life_of_a_service(self):
        first = dict(type=VPN, version="v1", identifier="d1", archive=str(self.archive()))
        self.play((2, 0), **first)
        self.assertEqual(self.installed(), [{VPN: "v1"}] * 3)
        self.play((0, 0), **first)

        # The bad archive is reported by its host, which keeps its tree; the others go on.
        bad = make_zip(self.directory / "bad.zip", Entry("settings", b"off", checksum=1))
        before = snapshot(self.hosts["three"]["root"])
        self.hosts["three"]["archive"] = str(bad)
        output = self.play((1, 0), others={"three": (1, 1)}, **first | {"version": "v2"})
        self.assertRegex(output, r'three.*"code": 4, .*"detail": "[^"]*bad CRC')
        self.assertEqual(self.installed(), [{VPN: "v2"}, {VPN: "v2"}, {VPN: "v1"}])
        self.assertEqual(snapshot(self.hosts["three"]["root"]), before)

        del self.hosts["three"]["archive"]
        last = first | {"version": "v3", "type": f"{VPN}.new"}
        output = self.play((1, 0), "--diff", **last)
        self.assertIn('-    "com.example.vpn": {', output)
        self.assertEqual(self.installed(), [{f"{VPN}.new": "v3"}] * 3)
        self.play((1, 0), playbook=self.playbook + "        state: absent\n", **last)
        self.assertEqual(self.installed(), [{}] * 3)


if __name__ == "__main__":
    main()
