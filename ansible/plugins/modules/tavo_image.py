#!/usr/bin/python
# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

DOCUMENTATION = r'''
---
module: tavo_image
short_description: Firmware image on the flash of a Neuron USB interface
version_added: 0.1.0
author: the tavo-util developers (@tavo-util)
description:
  - Makes the flash hold the bytes of an image, and FF elsewhere, unless I(keep) or I(range) is given.
  - What decides is what the chip holds, byte for byte, not what was recorded about it. Nothing is written to a chip that
    holds the image already; what was cut off half-way is finished by the next run.
  - The image is read and checked whole before the interface is touched.
  - B(The chip is read in every mode, check mode included), and the Neuron is held in reset meanwhile; it restarts afterwards. That
    takes about 10 s for each MiB. Check mode and diff mode never change the contents.
extends_documentation_fragment:
  - tavo.util.interface
options:
  src:
    description:
      - The image file, on the controller unless I(remote_src) is set. It is brought to the host for the time of the task.
      - Intel HEX, S-record, ELF or raw binary, also compressed with gzip.
    type: path
    required: true
  remote_src:
    description:
      - The file is on the host.
    type: bool
    default: false
  format:
    description:
      - How the file is read. C(auto) tells by its content.
    type: str
    choices: [auto, hex, srec, bin, elf]
    default: auto
  address:
    description:
      - The address of the first byte of a raw binary, for example C(0x10000). It is 0 otherwise.
    type: str
  state:
    description:
      - What the flash has to hold.
    type: str
    choices: [present]
    default: present
  sha256:
    description:
      - The SHA-256 that the tool tells of the image (C(tavo-util check)); it is that of bytes and addresses, the same in every
        format. A file with another one is refused before the interface is touched.
    type: str
  keep:
    description:
      - Leaves alone what the image does not cover, and does not look at it. FF is made of it otherwise.
    type: bool
    default: false
  range:
    description:
      - The part of the image that counts, as C(tavo-util --range) takes it, for example C(0x10000-0x1FFFF) or C(64K+4K). Everything else
        stays as it is.
    type: str
  full:
    description:
      - If anything is different, the whole chip is erased and every page programmed, instead of only what is different.
      - Nothing is kept of what was there then, unless I(backup) names a file.
    type: bool
    default: false
  clock:
    description:
      - SPI clock in Hz, 900000 to 3000000. A bridge with a long or poor wire may not stand more than the 900000 that are used otherwise.
    type: int
  backup:
    description:
      - A file on the host in which to save the whole flash before it is changed. C({serial}) stands for the serial number of the interface.
        A file that exists is not overwritten; the task fails, with the interface unchanged.
    type: str
  no_backup:
    description:
      - Keeps nothing of what was there. Otherwise the host keeps it, C(tavo-util history) lists it and C(tavo-util restore) puts it
        back; set C(XDG_STATE_HOME) with C(environment) to keep it elsewhere.
    type: bool
    default: false
attributes:
  check_mode:
    description: Predicts the change by reading the chip.
    support: full
  diff_mode:
    description: Shows the address ranges that would change, with their first bytes. The tool lists 20 of them at most.
    support: full
'''

EXAMPLES = r'''
- name: The release is on the chip
  tavo.util.tavo_image:
    src: firmware-2.4.hex
    device: usb:1-4.2

- name: Only the application, at three times the speed; the rest of the chip stays as it is
  tavo.util.tavo_image:
    src: application.bin
    address: "0x10000"
    keep: true
    clock: 3000000
    device: usb:1-4.2

- name: What would change, and where (the Neuron restarts)
  tavo.util.tavo_image:
    src: firmware-2.4.hex
  check_mode: true
  diff: true
'''

RETURN = r'''
sha256:
  description: The identity of the image, whatever the format of its file. On success the chip holds this image.
  returned: when the image was read
  type: str
  sample: f8041ad50635997a28ea23ce310d4eed94a4a3f1c7801291ed735c6a42e325a2
verified:
  description: Whether the chip is known to hold the image now; with I(keep) or I(range) what of it counts.
  returned: always
  type: bool
device:
  description: The interface that was worked on.
  returned: when one was found
  type: dict
  sample: {serial: '00001234', path: 1-4.2}
program:
  description:
    - What C(tavo-util program) tells of its work, under the names of its JSON - C(plan), C(pages_written), C(pages_kept), C(pages_blank),
      C(sectors_erased), C(retries), C(seconds), C(backup), C(backup_sha256), C(up_to_date), as far as they are known.
  returned: when the chip was not only read
  type: dict
pages_different:
  description: Pages of 256 bytes that were different.
  returned: in check mode and diff mode
  type: int
differences:
  description: The first 20 ranges of addresses that were different.
  returned: in check mode and diff mode
  type: list
  elements: dict
  contains:
    first:
      description: First address.
      type: int
    last:
      description: Last address.
      type: int
    bytes:
      description: Bytes that differ.
      type: int
    file:
      description: The first of them in the image; nothing where the image has none and FF belongs.
      type: int
    flash:
      description: The first of them in the flash.
      type: int
via:
  description: What did the work, C(tool) or C(package).
  returned: success
  type: str
state:
  description: What is known of the interface now, in the words of the tool.
  returned: always
  type: str
  sample: flash programmed and verified
hint:
  description: What to do next.
  returned: failed
  type: str
exit_status:
  description: The exit code of the tool, whatever did the work, for example 11 for a flash that is erased or incomplete, 12 for no answer.
  returned: failed
  type: int
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.tavo.util.plugins.module_utils.answers import DIFFERS, DONE, FILE_REFUSED, NOT_TOUCHED, invented
from ansible_collections.tavo.util.plugins.module_utils.interface import ARGUMENTS, Interface

TOLD = ('plan', 'pages_written', 'pages_kept', 'pages_blank', 'sectors_erased', 'retries', 'seconds', 'backup', 'backup_sha256', 'up_to_date')


def differing(found):
    """The two sides of a diff: the chip as it is, and as it has to be."""
    before, after = [], []
    for each in found['differences']:
        where = '0x%06X-0x%06X, %d bytes, the first ' % (each['first'], each['last'], each['bytes'])
        before.append('%s%02X\n' % (where, each['flash']))
        after.append('%s%02X\n' % (where, 0xFF if each['file'] is None else each['file']))
    listed = sum(each['bytes'] for each in found['differences'])
    if listed < found['bytes_different']:
        rest = '%d bytes elsewhere' % (found['bytes_different'] - listed)
        before.append(rest + ' as they are\n')
        after.append(rest + ' as in the image\n')
    return {'before': ''.join(before), 'after': ''.join(after),
            'before_header': 'the flash, %d pages different' % found['pages_different'], 'after_header': 'the image'}


def compare(interface, result):
    """Reads the chip and tells whether it holds what it has to."""
    answer = interface.accept(interface.way.compare(interface.module.params), allowed=(DONE, DIFFERS), result=result)
    found = answer['result']
    result.update(device=answer['device'], state=answer['state'], verified=found['equal'],
                  pages_different=found['pages_different'], differences=found['differences'])
    if interface.module._diff:
        result['diff'] = differing(found)
    return found['equal']


def program(interface, result):
    answer = interface.accept(interface.way.program(interface.module.params), result=result)
    done = answer['result']
    result.update(device=answer['device'], state=answer['state'], verified=True, program={name: done[name] for name in TOLD if name in done},
                  changed=answer['flash_state'] == 'programmed')


def main():
    module = AnsibleModule(supports_check_mode=True, mutually_exclusive=[('full', 'keep'), ('full', 'range')], argument_spec=dict(
        ARGUMENTS, src=dict(type='path', required=True), remote_src=dict(type='bool', default=False),
        format=dict(type='str', choices=['auto', 'hex', 'srec', 'bin', 'elf'], default='auto'), address=dict(type='str'),
        state=dict(type='str', choices=['present'], default='present'), sha256=dict(type='str'), full=dict(type='bool', default=False),
        keep=dict(type='bool', default=False), range=dict(type='str'), clock=dict(type='int'), backup=dict(type='str'),
        no_backup=dict(type='bool', default=False)))
    interface = Interface(module)
    result = dict(verified=False, via=interface.name)
    result['sha256'] = interface.accept(interface.way.check(module.params), result=result)['result']['sha256']
    wanted = module.params['sha256']
    if wanted and wanted.lower() != result['sha256']:
        interface.fail(invented('%s is not the image that was asked for: its SHA-256 is %s' % (module.params['src'], result['sha256']),
                                NOT_TOUCHED, 'name the right file, or correct sha256 (%s)' % wanted,
                                'untouched', FILE_REFUSED), **result)
    if module.check_mode or module._diff or module.params['full']:
        result['changed'] = not compare(interface, result)
    if not module.check_mode and result.get('changed', True):
        program(interface, result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
