#!/usr/bin/python
# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

DOCUMENTATION = r'''
---
module: tavo_domain
short_description: Domain table of the Neuron in a USB interface
version_added: 0.1.0
author: the tavo-util developers (@tavo-util)
description:
  - Writes the entries of the domain table that are not as they have to be. An entry that is not named stays as it is.
  - The Neuron has to run. Nothing restarts.
extends_documentation_fragment:
  - tavo.util.interface
options:
  domains:
    description:
      - The entries, in the form in which C(tavo-util --json domain read) tells them.
    type: list
    elements: dict
    required: true
    suboptions:
      index:
        description:
          - Which entry.
        type: int
        choices: [0, 1]
        required: true
      domain_id:
        description:
          - 0, 1, 3 or 6 bytes in hexadecimal. Quote it; YAML would make a number of C("10") or C("1E5").
        type: str
        required: true
      subnet:
        description:
          - Subnet, 0 to 255.
        type: int
        required: true
      node:
        description:
          - Node, 0 to 127; 1 to 127 of an entry in use.
        type: int
        required: true
      in_use:
        description:
          - Whether the entry is in use.
        type: bool
        default: true
      clone:
        description:
          - Whether the Neuron takes messages that come from its own address.
        type: bool
        default: false
      flags:
        description:
          - The other bits that stand beside the length of the domain ID, as a number.
        type: int
        default: 0
      key:
        description:
          - The authentication key, 6 bytes in hexadecimal. The key that is there is kept if it is left out.
        type: str
  no_backup:
    description:
      - Keeps nothing of what was there. Otherwise the host keeps it, C(tavo-util history) lists it and C(tavo-util restore) puts it
        back; set C(XDG_STATE_HOME) with C(environment) to keep it elsewhere.
    type: bool
    default: false
attributes:
  check_mode:
    description: Reads the table and compares.
    support: full
  diff_mode:
    description: Shows the entries before and after, the keys only as kept or changed.
    support: full
'''

EXAMPLES = r'''
- name: The interface has its address
  tavo.util.tavo_domain:
    device: usb:1-4.2
    domains:
      - index: 0
        domain_id: "4A"
        subnet: 1
        node: "{{ node_number }}"
        key: "{{ vault_domain_key }}"
'''

RETURN = r'''
domains:
  description: The table after the task, without keys; in check mode as it would be.
  returned: success
  type: list
  elements: dict
  sample: [{index: 0, in_use: true, domain_id: 4A, subnet: 1, node: 10, clone: false}]
changed_entries:
  description: The entries that were written, or would be. After a failure, those that were found changed.
  returned: always
  type: list
  elements: int
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
  description: The exit code of the tool, whatever did the work, for example 12 for a Neuron that does not answer.
  returned: failed
  type: int
'''

import json
import re

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.tavo.util.plugins.module_utils.answers import DONE, FILE_REFUSED, NOT_TOUCHED, failure_of, invented
from ansible_collections.tavo.util.plugins.module_utils.interface import ARGUMENTS, Interface

ENTRY = dict(
    index=dict(type='int', choices=[0, 1], required=True), domain_id=dict(type='str', required=True),
    subnet=dict(type='int', required=True), node=dict(type='int', required=True), in_use=dict(type='bool', default=True),
    clone=dict(type='bool', default=False), flags=dict(type='int', default=0), key=dict(type='str', no_log=True))


def faults(entry):
    """What no Neuron takes: (field, what it has to be)."""
    def is_hex(text, sizes):
        return re.match(r'(?:[0-9A-Fa-f]{2})*\Z', text) and len(text) // 2 in sizes
    return [(name, wanted) for name, is_right, wanted in (
        ('domain_id', is_hex(entry['domain_id'], (0, 1, 3, 6)), '0, 1, 3 or 6 bytes in hexadecimal'),
        ('subnet', 0 <= entry['subnet'] <= 255, '0 to 255'),
        ('node', (1 if entry['in_use'] else 0) <= entry['node'] <= 127, '1 to 127, also 0 in an entry that is not in use'),
        ('flags', 0 <= entry['flags'] <= 15, '0 to 15'),
        ('key', entry['key'] is None or is_hex(entry['key'], (6,)), '6 bytes in hexadecimal')) if not is_right]


def require_good(interface, entries):
    def refuse(text, hint):
        interface.fail(invented(text, NOT_TOUCHED, hint, 'untouched', FILE_REFUSED), changed_entries=[])
    for entry in entries:
        if [each['index'] for each in entries].count(entry['index']) > 1:
            refuse('domain %d is named twice' % entry['index'], 'leave one of them')
        for name, wanted in faults(entry):
            refuse('domain %d: %s is not accepted' % (entry['index'], name), '%s: %s' % (name, wanted))


def changes(entry, wanted):
    """The fields in which an entry is not as wanted. The tool leaves flags out when they are 0."""
    def same(name):
        if name == 'key' and wanted[name] is None:
            return True
        if name in ('key', 'domain_id'):
            return entry[name].upper() == wanted[name].upper()
        return entry.get(name, 0) == wanted[name]
    return [name for name in wanted if not same(name)]


def told(entry):
    """An entry as the tool tells it, without its key."""
    names = ['index', 'in_use', 'domain_id', 'subnet', 'node', 'clone'] + (['flags'] if entry.get('flags') else [])
    return dict({name: entry[name] for name in names}, domain_id=entry['domain_id'].upper())


def lines(table, key_of):
    return ''.join('%s key %s\n' % (json.dumps(each), key_of(each['index'])) for each in table)


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec=dict(
        ARGUMENTS, domains=dict(type='list', elements='dict', required=True, options=ENTRY), no_backup=dict(type='bool', default=False)))
    interface = Interface(module)
    require_good(interface, module.params['domains'])
    wanted = {each['index']: each for each in module.params['domains']}
    has_keys = any(each['key'] is not None for each in wanted.values())
    answer = interface.accept(interface.way.read_domains(has_keys), result=dict(changed_entries=[]))
    before = answer['result']['domains']
    differing = {entry['index']: changes(entry, wanted[entry['index']]) for entry in before if entry['index'] in wanted}
    written = [index for index, fields in differing.items() if fields]
    after = [told(wanted[each['index']] if each['index'] in written else each) for each in before]
    result = dict(changed=bool(written), changed_entries=written, domains=after, device=answer['device'], state=answer['state'], via=interface.name)
    if module._diff:
        result['diff'] = {'before': lines([told(each) for each in before], lambda index: 'as it is'),
                          'after': lines(after, lambda index: 'changed' if 'key' in differing.get(index, []) else 'as it is')}
    if written and not module.check_mode:
        done = interface.way.write_domains([wanted[index] for index in written], module.params)
        if done['exit_status'] != DONE:
            found = done['result'].get('changed', [])
            module.fail_json(**{**failure_of(done), 'changed_entries': found, 'changed': bool(found)})
        interface.pass_on_warnings(done)
        result['state'] = 'domain table written and read back'
    module.exit_json(**result)


if __name__ == '__main__':
    main()
