#!/usr/bin/python
# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

DOCUMENTATION = r'''
---
module: tavo_info
short_description: Facts of the Neuron USB interfaces of a host
version_added: 0.1.0
author: the tavo-util developers (@tavo-util)
description:
  - Reads what is asked for, and changes nothing.
  - A part that cannot be read is told in I(problems) with state and hint, and the others are returned; the task fails when none could be read.
extends_documentation_fragment:
  - tavo.util.interface
options:
  gather:
    description:
      - What to read.
      - C(devices) lists all interfaces of the host, C(configuration) reads the bridge's block, C(status) the state and the counters of the Neuron,
        C(domain) its domain table without keys, C(doctor) looks for what is wrong.
      - C(interface) and C(doctor) look at the flash chip unless I(restart_neuron) is false; that B(restarts the Neuron).
      - C(flash) reads the whole chip and tells its SHA-256, which B(holds the Neuron in reset) for seconds for each MiB.
    type: list
    elements: str
    choices: [devices, configuration, status, domain, interface, doctor, flash]
    default: [devices]
  restart_neuron:
    description:
      - Whether C(interface) and C(doctor) may look at the flash chip. Without it they tell nothing of the chip, and the Neuron goes on running.
    type: bool
    default: true
attributes:
  check_mode:
    description: Works as otherwise; nothing is changed either way.
    support: full
  diff_mode:
    description: There is nothing to show.
    support: none
'''

EXAMPLES = r'''
- name: Which interfaces are attached to this host
  tavo.util.tavo_info:
  register: attached

- name: What an interface is, without a restart of its Neuron
  tavo.util.tavo_info:
    device: usb:1-4.2
    gather: [configuration, status, domain]
'''

RETURN = r'''
devices:
  description: The attached interfaces.
  returned: when gathered
  type: list
  elements: dict
  sample: [{serial: '00001234', path: 1-4.2, vid_pid: '04B4:0004', access: ok, scb0: spi}]
configuration:
  description: The fields of the configuration block.
  returned: when gathered
  type: dict
status:
  description: Node state, cause of the last reset, error log and counters.
  returned: when gathered
  type: dict
domain:
  description: The domain table, in I(domains).
  returned: when gathered
  type: dict
interface:
  description: Neuron and program ID, node state, and flash maker and size where the chip was looked at.
  returned: when gathered
  type: dict
doctor:
  description: The outcome of each look, with a hint for what is wrong, in I(checks).
  returned: when gathered
  type: dict
flash:
  description: SHA-256 and size in bytes of the whole chip.
  returned: when gathered
  type: dict
  sample: {bytes: 1048576, sha256: 62de1f23dde1bcabceae12fadc42c203e02da61d990f3d06fa2e8a5688ad472b}
via:
  description: What did the work, C(tool) or C(package).
  returned: success
  type: str
problems:
  description: What could not be read, each with I(part), I(msg), I(state), I(hint) and I(exit_status).
  returned: always
  type: list
  elements: dict
state:
  description: What is known of the interface, in the words of the tool.
  returned: failed
  type: str
hint:
  description: What to do next.
  returned: failed
  type: str
exit_status:
  description: The exit code of the tool, whatever did the work.
  returned: failed
  type: int
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.tavo.util.plugins.module_utils.answers import DONE, FAILED, NO_DEVICE, failure_of
from ansible_collections.tavo.util.plugins.module_utils.interface import ARGUMENTS, Interface

PARTS = ['devices', 'configuration', 'status', 'domain', 'interface', 'doctor', 'flash']


def is_answer(part, answer):
    """No interface at all is an empty list, and what the doctor finds is what was asked for."""
    if part == 'devices' and answer['exit_status'] == NO_DEVICE:
        return True
    return answer['exit_status'] == DONE or part == 'doctor' and answer['exit_status'] == FAILED and answer['result']


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec=dict(ARGUMENTS, gather=dict(
        type='list', elements='str', choices=PARTS, default=['devices']), restart_neuron=dict(type='bool', default=True)))
    interface = Interface(module)
    result = dict(changed=False, problems=[], via=interface.name)
    for part in module.params['gather']:
        answer = interface.way.gather(part, module.params['restart_neuron'])
        if is_answer(part, answer):
            result[part] = answer['result'].get('devices', []) if part == 'devices' else answer['result']
            interface.pass_on_warnings(answer)
        else:
            result['problems'].append(dict(failure_of(answer), part=part))
    if len(result['problems']) == len(module.params['gather']):
        module.fail_json(**{**result['problems'][0], **result})
    module.exit_json(**result)


if __name__ == '__main__':
    main()
