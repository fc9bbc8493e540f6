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
  - Makes the flash hold the bytes of an image, and FF elsewhere.
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
  backup:
    description:
      - A file on the host in which to save the whole flash before it is changed. C({serial}) stands for the serial number of the interface.
        A file that exists is not overwritten; the task fails, with the interface unchanged.
    type: str
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
  description: Whether the chip is known to hold the image now.
  returned: always
  type: bool
device:
  description: The interface that was worked on.
  returned: when one was found
  type: dict
  sample: {serial: '00001234', path: 1-4.2}
program:
  description:
    - What C(tavo-util program) tells of its work, under the names of its JSON, such as C(plan), C(pages_written), C(pages_kept),
      C(sectors_erased), C(retries), C(seconds) and C(backup).
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
  description: The exit code of the tool, for example 11 for a flash that is erased or incomplete, 12 for no answer.
  returned: failed
  type: int
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.tavo.util.plugins.module_utils.tool import ARGUMENTS, DIFFERS, DONE, NOT_TOUCHED, Tool, invented


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


def image_words(parameters):
    words = [parameters['src'], '--format', parameters['format']]
    return words + ['--address', parameters['address']] if parameters['address'] else words


def compare(tool, result):
    """Reads the chip and tells whether it holds the image and nothing else."""
    answer = tool.ask('verify', '--rest-blank', '--every', *image_words(tool.module.params), allowed=(DONE, DIFFERS), result=result)
    found = answer['result']
    result.update(device=answer['device'], state=answer['state'], verified=found['equal'],
                  pages_different=found['pages_different'], differences=found['differences'])
    if tool.module._diff:
        result['diff'] = differing(found)
    return found['equal']


def program(tool, result):
    words = ['program', '--if-different', *image_words(tool.module.params)]
    if tool.module.params['backup']:
        words += ['--backup', tool.module.params['backup']]
    answer = tool.ask(*words, result=result)
    result.update(device=answer['device'], state=answer['state'], verified=True, program=answer['result'],
                  changed=answer['flash_state'] == 'programmed')


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec=dict(
        ARGUMENTS, src=dict(type='path', required=True), remote_src=dict(type='bool', default=False),
        format=dict(type='str', choices=['auto', 'hex', 'srec', 'bin', 'elf'], default='auto'), address=dict(type='str'),
        state=dict(type='str', choices=['present'], default='present'), sha256=dict(type='str'), backup=dict(type='str')))
    tool = Tool(module)
    result = dict(verified=False)
    result['sha256'] = tool.ask('check', *image_words(module.params), result=result)['result']['sha256']
    wanted = module.params['sha256']
    if wanted and wanted.lower() != result['sha256']:
        tool.fail(invented('%s is not the image that was asked for: its SHA-256 is %s' % (module.params['src'], result['sha256']),
                           NOT_TOUCHED, 'name the right file, or correct sha256 (%s)' % wanted), **result)
    if module.check_mode or module._diff:
        result['changed'] = not compare(tool, result)
    if not module.check_mode and result.get('changed', True):
        program(tool, result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
