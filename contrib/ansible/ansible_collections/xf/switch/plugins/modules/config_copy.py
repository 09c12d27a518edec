"""Has a switch copy its configuration, with xfcopy."""

DOCUMENTATION = r"""
module: config_copy
short_description: Has a switch copy its configuration
description:
  - Asks the SNMP agent of a switch for a copy, with C(xfcopy), and waits for
    its end. Runs where C(xfcopy) is installed, not on the switch; delegate it.
  - A copy that succeeded is a change, always. With I(record) it is not made
    again while a record of it is fresh.
  - In check mode nothing is copied; the agent is asked for its copies, so that
    one which does not answer or does not know the user is found.
options:
  agent:
    description: The agent's address, as snmpcmd(1) has it.
    type: str
    required: true
  source:
    description: C(running), C(startup) or the URL of a file.
    type: str
    default: running
  destination:
    description: C(running), C(startup), C(fabric), C(all) or a URL.
    type: str
    required: true
  password:
    description: The password for the server.
    type: str
  vrf:
    description: The VRF that the switch reaches the server in.
    type: str
  notify:
    description: Have the agent send a notification at the end.
    type: bool
    default: false
  timeout:
    description: Seconds to wait for the end. The copy itself goes on then.
    type: int
    default: 900
  wait_busy:
    description: Seconds to wait for the end of another copy.
    type: int
    default: 0
  record:
    description: A file here that tells of the last success of this copy.
    type: path
  fresh:
    description: A record younger than so many seconds makes a copy needless.
    type: int
    default: 72000
  version:
    description:
      - Version of SNMP. Without any of the options from here on, C(xfcopy)
        takes all of them from snmp.conf(5).
    type: str
    choices: ["1", "2c", "3"]
  user:
    description: The user of SNMPv3.
    type: str
  level:
    description: What of SNMPv3 protects the request.
    type: str
    choices: [noAuthNoPriv, authNoPriv, authPriv]
  auth_protocol:
    description: For example C(SHA-256).
    type: str
  auth_password:
    description: Passphrase for it.
    type: str
  privacy_protocol:
    description: For example C(AES).
    type: str
  privacy_password:
    description: Passphrase for it.
    type: str
  context:
    description: The context of SNMPv3.
    type: str
  community:
    description: The community of SNMPv1 and SNMPv2c.
    type: str
  executable:
    description: The program.
    type: path
    default: xfcopy
author: The libconfigcopymib project
"""

EXAMPLES = r"""
- name: Save what runs as the startup configuration
  xf.switch.config_copy:
    agent: "{{ inventory_hostname }}"
    destination: startup
  delegate_to: localhost
"""

RETURN = r"""
outcome:
  description: How it ended, see xfcopy(1); C(fresh) and C(check) besides.
  type: str
  returned: always, but for wrong options
text:
  description: That in words.
  type: str
  returned: if a copy was asked for
advice:
  description: What to do next.
  type: str
  returned: if a copy was asked for
cause:
  description: Why the copy failed, as the MIB calls it.
  type: str
  returned: if a copy was asked for
elapsed:
  description: Seconds that it took.
  type: float
  returned: if a copy was asked for
switches:
  description: Those that a copy to the fabric failed on.
  type: list
  returned: if a copy was asked for
"""

import json
import os
import tempfile
import time

from ansible.module_utils.basic import AnsibleModule

# Settings of snmp.conf(5), by the options that they come from.
SNMP = {
    "version": "defVersion", "user": "defSecurityName",
    "level": "defSecurityLevel", "auth_protocol": "defAuthType",
    "auth_password": "defAuthPassphrase", "privacy_protocol": "defPrivType",
    "privacy_password": "defPrivPassphrase", "context": "defContext",
    "community": "defCommunity"}

OPTIONS = {
    "agent": {"required": True},
    "source": {"default": "running"},
    "destination": {"required": True},
    "password": {"no_log": True},
    "vrf": {},
    "notify": {"type": "bool", "default": False},
    "timeout": {"type": "int", "default": 900},
    "wait_busy": {"type": "int", "default": 0},
    "record": {"type": "path"},
    "fresh": {"type": "int", "default": 72000},
    "version": {"choices": ["1", "2c", "3"]},
    "user": {},
    "level": {"choices": ["noAuthNoPriv", "authNoPriv", "authPriv"]},
    "auth_protocol": {},
    "auth_password": {"no_log": True},
    "privacy_protocol": {},
    "privacy_password": {"no_log": True},
    "context": {},
    "community": {"no_log": True},
    "executable": {"type": "path", "default": "xfcopy"}}


# Those that Net-SNMP reads with quotes or without; the others are words.
TEXTS = ("user", "auth_password", "privacy_password", "context", "community")


def setting(name, value):
    """A line of snmp.conf."""
    if name in TEXTS:
        value = value.replace("\\", "\\\\").replace('"', '\\"')
        value = f'"{value}"'
    return f"{SNMP[name]} {value}\n"


def snmp_environment(module):
    """Leads xfcopy to a snmp.conf of its own, which nobody else reads: what is
    on a command line is seen by everybody."""
    given = {name: module.params[name] for name in SNMP
             if module.params[name] is not None}
    if not given:
        return {}
    if any("\n" in value for value in given.values()):
        module.fail_json(msg="an option of SNMP has more than one line")
    folder = tempfile.mkdtemp(dir=module.tmpdir)
    with open(os.path.join(folder, "snmp.conf"), "w") as file:
        file.writelines(setting(*each) for each in given.items())
    return {"SNMPCONFPATH": folder, "SNMP_PERSISTENT_DIR": folder}


def xfcopy(module, *words):
    """The events that the program tells, of which the last one is the end."""
    environment = snmp_environment(module)
    if module.params["password"] is not None:
        environment["XFCOPY_PASSWORD"] = module.params["password"]
    program = module.get_bin_path(module.params["executable"], required=True)
    _, output, error = module.run_command([program, "--json", *words],
                                          environ_update=environment)
    events = [json.loads(line) for line in output.splitlines()]
    if not events or events[-1]["event"] != "end":
        module.fail_json(msg=error.strip() or "xfcopy did not tell the end")
    return events


def finish(module, events, **result):
    """Ends the module with what the last event tells."""
    end = {name: value for name, value in events[-1].items()
           if name not in ("event", "agent")}
    for event in events:
        if event["event"] == "warning":
            module.warn(event["text"])
    if end["outcome"] == "done":
        module.exit_json(**{**end, **result})
    words = [end["text"] or end["outcome"], end["advice"]]
    module.fail_json(msg=". ".join(each for each in words if each), **end)


def is_fresh(module):
    path = module.params["record"]
    try:
        with open(path) as file:
            same = json.load(file) == record_of(module)
        return same and \
            time.time() - os.stat(path).st_mtime < module.params["fresh"]
    except (OSError, ValueError):
        return False


def record_of(module):
    return {name: module.params[name]
            for name in ("agent", "source", "destination", "vrf")}


def keep_record(module):
    with tempfile.NamedTemporaryFile("w", dir=module.tmpdir,
                                     delete=False) as file:
        json.dump(record_of(module), file)
    module.atomic_move(file.name, module.params["record"])


def check(module):
    """Whether the agent would be reached; the copy itself would be a change."""
    finish(module, xfcopy(module, "list", module.params["agent"]),
           changed=True, outcome="check")


def copy(module):
    given = module.params
    words = [f"--timeout={given['timeout']}",
             f"--wait-busy={given['wait_busy']}"]
    if given["vrf"] is not None:
        words.append(f"--vrf={given['vrf']}")
    if given["notify"]:
        words.append("--notify")
    events = xfcopy(module, *words, "copy", given["agent"], given["source"],
                    given["destination"])
    if given["record"] and events[-1]["outcome"] == "done":
        keep_record(module)
    finish(module, events, changed=True,
           switches=[each for each in events if each["event"] == "switch"])


def main():
    module = AnsibleModule(argument_spec=OPTIONS, supports_check_mode=True)
    if module.params["record"] and is_fresh(module):
        module.exit_json(changed=False, outcome="fresh")
    if module.check_mode:
        check(module)
    copy(module)


if __name__ == "__main__":
    main()
