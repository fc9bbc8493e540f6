#!/usr/bin/python
# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

DOCUMENTATION = r'''
---
module: tavo_configuration
short_description: Configuration block of the USB bridge of a Neuron interface
version_added: 0.1.0
author: the tavo-util developers (@tavo-util)
description:
  - Writes the configuration block of the bridge, or its serial number, or the role of serial block 0, if the block there is another one.
  - The block that was there is saved first. A block without signature or with a wrong checksum is refused, since it can make
    a bridge vanish from USB.
  - A block takes effect when the interface is unplugged and plugged in again. The name of the LDV channel follows the serial number.
  - Neither the flash nor the Neuron is touched.
extends_documentation_fragment:
  - tavo.util.interface
options:
  src:
    description:
      - A configuration block, 512 bytes in a file named C(.bin), on the controller unless I(remote_src) is set.
      - The interface keeps its serial number, unless I(serial) gives it another one.
    type: path
  remote_src:
    description:
      - The file is on the host.
    type: bool
    default: false
  serial:
    description:
      - The serial number that the interface has to have, 1 to 32 printable ASCII characters. Choose the interface by its
        port (C(usb:1-4.2)) then, so that the next run finds it.
    type: str
  scb0:
    description:
      - What serial block 0 has to be; C(spi) is how the flash is reached.
    type: str
    choices: [spi, i2c]
  backup:
    description:
      - The file on the host in which the block that was there is saved. It is kept among the host's backups, too, and I(backup) tells where.
    type: str
  no_backup:
    description:
      - Keeps nothing of what was there. Otherwise the host keeps it, C(tavo-util history) lists it and C(tavo-util restore) puts it
        back; set C(XDG_STATE_HOME) with C(environment) to keep it elsewhere.
    type: bool
    default: false
attributes:
  check_mode:
    description: Reads the block and tells which bytes would change.
    support: full
  diff_mode:
    description: Shows the bytes that change by their offsets.
    support: full
'''

EXAMPLES = r'''
- name: The block that the bench approved, with the interface's own serial number
  tavo.util.tavo_configuration:
    src: approved.bin
    device: usb:1-4.2

- name: The interface is called after its place
  tavo.util.tavo_configuration:
    serial: HALL-3-17
    device: usb:1-4.2
  register: block

- name: Ask for the cable
  ansible.builtin.debug:
    msg: unplug and replug {{ block.device.path }}
  when: block.replug_required
'''

RETURN = r'''
changes:
  description: The bytes of the block that were changed, or would be.
  returned: success
  type: list
  elements: dict
  sample: [{offset: 370, old: 18, new: 8}]
replug_required:
  description: Whether the interface has to be replugged for the block to take effect.
  returned: success
  type: bool
backup:
  description: Where the block that was there was saved.
  returned: when something was written
  type: str
device:
  description: The interface that was worked on.
  returned: when one was found
  type: dict
  sample: {serial: '00001234', path: 1-4.2}
via:
  description: What did the work, C(tool) or C(package).
  returned: success
  type: str
state:
  description: What is known of the interface now, in the words of the tool.
  returned: always
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
from ansible_collections.tavo.util.plugins.module_utils.interface import ARGUMENTS, Interface


def side(changes, which):
    return ''.join('0x%03X: %02X\n' % (each['offset'], each[which]) for each in changes)


def main():
    module = AnsibleModule(
        supports_check_mode=True, required_one_of=[('src', 'serial', 'scb0')], mutually_exclusive=[('src', 'scb0'), ('serial', 'scb0')],
        argument_spec=dict(ARGUMENTS, src=dict(type='path'), remote_src=dict(type='bool', default=False), serial=dict(type='str'),
                           scb0=dict(type='str', choices=['spi', 'i2c']), backup=dict(type='str'), no_backup=dict(type='bool', default=False)))
    interface = Interface(module)
    answer = interface.accept(interface.way.rewrite(module.params, dry_run=module.check_mode))
    changes = answer['result']['changed']
    result = dict(changed=bool(changes), changes=changes, device=answer['device'], state=answer['state'],
                  backup=answer['result']['backup'], via=interface.name, replug_required=bool(changes) and not module.check_mode)
    if result['replug_required']:
        result['state'] = 'configuration block written and read back'
    if module._diff:
        result['diff'] = {'before': side(changes, 'old'), 'after': side(changes, 'new')}
    module.exit_json(**result)


if __name__ == '__main__':
    main()
