# SPDX-License-Identifier: Apache-2.0
"""An Ansible module that installs, updates, renames or deletes one service."""

DOCUMENTATION = r"""
module: service
short_description: Install, update, rename or delete the configuration tree of a managed service
version_added: "1.1.0"
author: Larkspur developers
description:
  - Works on one service below a managed root, with the Python package C(larkspur) on the managed host.
  - Changes nothing when the record of the service has the wanted version, identifier and digest. The
    tree itself is not compared with the archive; C(python3 -m larkspur ROOT verify) checks it.
  - Checks the archive before it changes anything, so a bad archive does not remove the service's tree.
options:
  root:
    description: The managed root, an absolute path. An install creates a missing one.
    type: path
    required: true
  type:
    description:
      - The service type, which is also the name of the directory below the root.
      - Required for C(state=present).
    type: str
  archive:
    description:
      - The zip archive, a path on the managed host. Copy it there first, with M(ansible.builtin.copy)
        for instance, and not into the root. A link is followed.
      - The name must not contain C([), C(*), C(?) or a backslash.
      - Required for C(state=present).
    type: path
  version:
    description:
      - The version key of the declaration. It must be unique to the service, since deletions and
        renames find a service by its version.
      - Required for C(state=present). For C(state=absent), give I(version) or I(type); given both, only a
        service that has both is deleted.
    type: str
  identifier:
    description:
      - The identifier key of the declaration. Services of other types that have it are deleted by the
        install, which is how a service is renamed.
      - Required for C(state=present).
    type: str
  state:
    description: Whether the service should exist.
    type: str
    choices: [present, absent]
    default: present
  force:
    description:
      - Replace a service that belongs to another declaration, and leave services of other types alone.
      - Does not install again what the record says is installed.
    type: bool
    default: false
attributes:
  check_mode:
    support: full
    description: >-
      The archive is checked in check mode too, so it must be on the managed host.
      Reserved service types are refused only by the install.
  diff_mode:
    support: full
    description: Shows the records before and after.
requirements:
  - Python 3.11 or later
  - python3-larkspur
notes:
  - The library announces changes on the system bus of the managed host, and does not work without one.
  - Tasks that work on the same root must not run at the same time.
  - The environment variable C(LARKSPUR_LIBRARY) selects another library file.
"""

EXAMPLES = r"""
- name: Copy the archive
  ansible.builtin.copy:
    src: vpn-42.zip
    dest: /var/lib/acme/incoming/
    mode: "0600"
  check_mode: false

- name: Install or update the service
  corvid.larkspur.service:
    root: /var/lib/acme/services
    type: com.example.vpn
    archive: /var/lib/acme/incoming/vpn-42.zip
    version: version-42
    identifier: declaration-7

- name: Delete the service that a version installed
  corvid.larkspur.service:
    root: /var/lib/acme/services
    version: version-42
    state: absent

- name: Delete a service, whatever its version
  corvid.larkspur.service:
    root: /var/lib/acme/services
    type: com.example.vpn
    state: absent
"""

RETURN = r"""
service:
  description:
    - The record of the service, in check mode the expected one; a value is null if the record
      lacks it.
  returned: when I(state) is present
  type: dict
  sample:
    type: com.example.vpn
    version: version-42
    identifier: declaration-7
    content_type: application/zip
    sha256: 5df6e0e2761359d30a8275058e299fcc0381534545f55cf43e41983f5d4c9456
deleted:
  description: The types of the deleted services, also of renamed ones.
  returned: success
  type: list
  elements: str
error:
  description: The class of the failure in the Python package.
  returned: when the library refuses or fails
  type: str
  sample: UnzipFailed
code:
  description: The code of the failure in the C interface.
  returned: when the library refuses or fails
  type: int
  sample: 4
detail:
  description: The error lines that the call logged.
  returned: when the library refuses or fails
  type: str
errno:
  description: The system's error number, or null.
  returned: when the library or the system fails
  type: int
"""

import os
import tempfile
import traceback

from ansible.module_utils.basic import AnsibleModule, missing_required_lib

try:
    import larkspur
except Exception:  # Also a SyntaxError of an interpreter too old for the package.
    larkspur = None
    IMPORT_FAILURE = traceback.format_exc()

CONTENT_TYPE = "application/zip"


def records(services):
    keys = ("type", "version", "identifier", "content_type", "sha256")
    return {service.type: {key: getattr(service, key) for key in keys} for service in services}


def result(root, before, after):
    diff = {"before": before, "after": after, "before_header": root, "after_header": root}
    deleted = [name for name in before if name not in after]
    return {"changed": before != after, "deleted": deleted, "diff": diff}


def require_found(store, service, chosen):
    """Refuses if a deletion by version, which takes the first match, would delete another service."""
    if service.version is None:
        raise larkspur.BadArgument(
            f"the record of {service.type} has no version to delete it by; install it with force"
        )
    found = store.find(service.version)
    if found not in chosen:
        raise larkspur.BadArgument(
            f"{found} has version {service.version} as well, and would be deleted for {service.type}"
        )


def usable_archive(module, archive):
    archive = os.path.realpath(archive)
    if set(os.path.basename(archive)) & set("[*?\\"):
        module.fail_json(msg=f"the name of the archive contains pattern characters: {archive}")
    if not os.path.isfile(archive):
        module.fail_json(msg=f"there is no such archive on the managed host: {archive}")
    return archive


def present(module, root, type, archive, version, identifier, force):
    archive = usable_archive(module, archive)
    wanted = dict(type=type, version=version, identifier=identifier, content_type=CONTENT_TYPE,
                  sha256=module.sha256(archive))  # fmt: skip
    # A bad archive must not create a missing root.
    at = root if os.path.isdir(root) else tempfile.mkdtemp(dir=module.tmpdir)
    with larkspur.Store(at) as store:
        store.path_of(type)
        services = store.services()
        if records(services).get(type) == wanted:
            return {**result(root, {type: wanted}, {type: wanted}), "service": wanted}
        replaced = [service for service in services if service.type == type]
        renamed = []
        if not force:
            # Refuses like the library, but before renamed services are deleted.
            if replaced and replaced[0].identifier not in (None, identifier):
                raise larkspur.UpdateServiceFailed(
                    f"{type} belongs to declaration {replaced[0].identifier}, not to {identifier}"
                )
            renamed = [s for s in services if s.identifier == identifier and s.type != type]
            renamed = [s for s in renamed if s.version is not None]  # The library keeps the others.
        for service in renamed:
            require_found(store, service, records(renamed))
        store.check(archive)
    if not module.check_mode:
        with larkspur.Store(root) as store:
            store.install(type, archive, version=version, identifier=identifier,
                          sha256=wanted["sha256"], force=force)  # fmt: skip
            wanted = records(store.services()).get(type)
    return {**result(root, records(replaced + renamed), {type: wanted}), "service": wanted}


def absent(module, root, type, version):
    if not os.path.isdir(root):
        return result(root, {}, {})
    with larkspur.Store(root) as store:
        services = store.services()
        is_there = type is not None and os.path.lexists(store.path_of(type))
        if is_there and type not in records(services):
            raise larkspur.BadArgument(
                f"{type} has no readable record to delete it by; install it with force"
            )
        chosen = [s for s in services if type in (None, s.type) and version in (None, s.version)]
        for service in chosen:
            require_found(store, service, records(chosen))
            if not module.check_mode:
                store.delete(service.version)
    return result(root, records(chosen), {})


def main():
    module = AnsibleModule(
        argument_spec={
            "root": {"type": "path", "required": True},
            "type": {"type": "str"},
            "archive": {"type": "path"},
            "version": {"type": "str"},
            "identifier": {"type": "str"},
            "state": {"type": "str", "choices": ["present", "absent"], "default": "present"},
            "force": {"type": "bool", "default": False},
        },
        required_if=[
            ("state", "present", ("type", "archive", "version", "identifier")),
            ("state", "absent", ("type", "version"), True),
        ],
        supports_check_mode=True,
    )
    if larkspur is None:
        module.fail_json(msg=missing_required_lib("larkspur"), exception=IMPORT_FAILURE)
    wanted = dict(module.params)
    act = {"present": present, "absent": absent}[wanted.pop("state")]
    if act is absent:
        wanted = {key: wanted[key] for key in ("root", "type", "version")}
    if not os.path.isabs(wanted["root"]):
        module.fail_json(msg=f"the root is not an absolute path: {wanted['root']}")
    try:
        module.exit_json(**act(module, **wanted))
    except larkspur.Error as error:
        kind = type(error).__name__
        module.fail_json(msg=f"{kind}: {error.message}", error=kind, code=error.code,
                         detail=error.detail, errno=error.errno)  # fmt: skip
    except (larkspur.LibraryNotFound, OSError) as problem:
        module.fail_json(msg=str(problem), errno=getattr(problem, "errno", None))


if __name__ == "__main__":
    main()
