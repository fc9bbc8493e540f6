# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""The operations of the modules by the Python package tavo_util, in this process. The answers have the form and the words
of the tool's --json, so that nobody has to know which of the two a host has."""

import contextlib
import importlib
import os
import re
import shlex
import signal

from ansible_collections.tavo.util.plugins.module_utils.answers import DIFFERS, DONE, FAILED, FILE_REFUSED, NO_DEVICE, NOT_TOUCHED

EXITS = {'internal': 1, 'bad-argument': 2, 'no-device': 3, 'several-devices': 4, 'no-permission': 5, 'busy': 6, 'file-refused': 7,
         'file-system': 8, 'device-failed': 10, 'no-answer': 12, 'interrupted': 130}
USAGE = 2  # exit codes
FLASH_LOST = 11
UNKNOWN = 'not known: the package did not get to tell it'
LISTED = 20  # differences
ADDRESSABLE = 1 << 24
LEFT = {'uncertain': 'the flash may be partly erased; treat it as incomplete',  # by a run that was cut off
        'incomplete': 'flash incomplete: part of the image is missing'}
ON_A_DEVICE = re.compile('tavo-util (?=(?:%s)(?![a-z0-9-]))' % '|'.join((
    'check', 'info', 'program', 'verify', 'dump', 'erase', 'restore', 'blank-check', 'doctor', 'recover', 'config', 'scb0', 'status', 'mode',
    'reset', 'service-pin', 'neuron-id', 'program-id', 'domain')))


def or_none(text):
    return text or None


def hexadecimal(data):
    return ''.join('%02X' % byte for byte in bytearray(data))


def ok(verdict):
    return {'ok': True, 'fail': False}.get(verdict.value)


def ids(record):
    return '%04X:%04X' % (record.vendor_id, record.product_id)


def named(name, raw):
    return {'name': name, 'raw': raw}


def interrupted(run):
    return run and {name: or_none(getattr(run, name)) for name in ('image', 'sha256', 'backup', 'started')}


def domain(index, entry, with_key):
    told = dict(index=index, in_use=entry.in_use, domain_id=hexadecimal(entry.domain_id), subnet=entry.subnet, node=entry.node,
                clone=entry.clone, key=hexadecimal(entry.key) if with_key else None)
    if entry.flags:
        told['flags'] = entry.flags
    return told


class Told(Exception):
    """The answer has the failure already."""


def stop(number, frame):
    """A signal is Ctrl-C: the device is released before this process ends."""
    raise KeyboardInterrupt


class Package:
    def __init__(self, module, library):
        self.module = module
        self.library = library
        self.answer = None  # of the operation under way
        for number in (signal.SIGTERM, signal.SIGHUP):
            if signal.getsignal(number) != signal.SIG_IGN:
                signal.signal(number, stop)

    def check(self, parameters):
        def work(result):
            found = self._image(parameters, self.library.Image.check)
            if not found:
                self._fail('%s refused: %d fault%s%s' % (
                    parameters['src'], found.fault_count, '' if found.fault_count == 1 else 's',
                    ''.join('\n    %s - %s' % (each.text, each.hint) for each in found.faults)), found.faults[0].hint, FILE_REFUSED)
            result['sha256'] = found.image.identity
        return self._answered(work)

    def compare(self, parameters):
        def work(result):
            with self._opened() as device:
                image, part = self._image(parameters), self._range(parameters)
                found = device.verify(image, rest_blank=not parameters['keep'] and part is None, every=True, range=part,
                                      clock_hz=parameters['clock'], progress=self._take)
            self._know(found.state)
            differences = found.comparison.differences
            result.update(equal=found.equal, pages_different=found.comparison.pages, bytes_different=found.comparison.bytes, differences=[
                dict(first=each.range.first, last=each.range.last, bytes=each.bytes, file=each.wanted, flash=each.found)
                for each in differences[:LISTED]])
            if not found.equal:
                self.answer['exit_status'] = DIFFERS
        return self._answered(work)

    def program(self, parameters):
        def work(result):
            with self._opened() as device:
                image, part = self._image(parameters), self._range(parameters)
                done = device.program(
                    image, full=parameters['full'], if_different=not parameters['full'], keep=parameters['keep'] or part is not None,
                    range=part, clock_hz=parameters['clock'], backup=self._path(parameters['backup'], device),
                    no_backup=parameters['no_backup'], progress=self._take)
            self._know(done.state)
            result.update(plan=done.way.value, pages_written=done.pages_written, pages_kept=done.pages_kept,
                          sectors_erased=done.sectors_erased, backup=None)
            if done.up_to_date:
                result['up_to_date'] = True
                return
            result.update(pages_blank=done.pages_blank, retries=list(done.retries), seconds=done.seconds)
            if done.backup:
                result.update(backup=done.backup, backup_sha256=done.backup_sha256)
        return self._answered(work)

    def gather(self, part, restart_neuron):
        def work(result):
            if part == 'devices':
                return self._devices(result)
            with self._opened(as_it_is=part == 'doctor') as device:
                return getattr(self, '_' + part)(device, result, restart_neuron)
        return self._answered(work)

    def rewrite(self, parameters, dry_run):
        def work(result):
            how = dict(no_backup=parameters['no_backup'], dry_run=dry_run, progress=self._take)
            with self._opened() as device:
                how['backup'] = self._path(parameters['backup'], device)
                if parameters['scb0']:
                    done = device.set_scb0(self.library.Scb0Role[parameters['scb0'].upper()], **how)
                elif parameters['src']:
                    block = self.library.load_configuration(parameters['src'])
                    done = device.write_configuration(block, serial=parameters['serial'], source=parameters['src'], **how)
                else:
                    done = device.set_serial_number(parameters['serial'], **how)
            result['changed'] = [dict(offset=offset, old=old, new=new) for offset, (old, new)
                                 in enumerate(zip(bytearray(done.before), bytearray(done.after))) if old != new]
            result['backup'] = or_none(done.backup)
            if done.pending_serial and not parameters['serial']:
                self._warn('the block holds the serial number %s, which is not in effect yet; it becomes %s again'
                           % (done.pending_serial, done.serial), 'replug first to keep ' + done.pending_serial)
        return self._answered(work)

    def read_domains(self, with_keys):
        def work(result):
            with self._opened() as device:
                self._domain(device, result, with_keys=with_keys)
        return self._answered(work)

    def write_domains(self, entries, parameters):
        def work(result):
            with self._opened() as device:
                before = device.domain_table(progress=self._take)
                wanted = list(before)
                for each in entries:
                    wanted[each['index']] = self._entry(each, before[each['index']])
                try:
                    device.write_domain_table(before, tuple(wanted), no_backup=parameters['no_backup'], progress=self._take)
                except self.library.Error:
                    result['changed'] = self._changed_since(device, before)
                    raise
        return self._answered(work)

    # What the parts of tavo_info are made of.

    def _devices(self, result):
        result['devices'] = []
        with self._bus():
            attached = self.library.devices(*self._specs())
            for found in attached:
                result['devices'].append(self._described(found, found.spec if len(attached) > 1 else None))
        if not result['devices']:
            self.answer['exit_status'] = NO_DEVICE

    def _described(self, found, spec):
        run = None
        try:
            if found.holder is None:  # a run that is still going on is remembered too
                with self.library.open(found.spec) as device:
                    run = device.interrupted_run
        except self.library.NoPermission as error:
            self._warn('no permission to open ' + found.name, error.hint)
        if run:
            self._warn('%s: %s' % (found.name, run.text), self._pasteable(run.hint, spec))
        access = 'ok' if found.is_accessible else 'denied'
        if found.holder is not None:
            access = 'busy (process %d)' % found.holder if found.holder else 'busy'
        return dict(serial=or_none(found.serial), path=or_none(found.path), vid_pid=ids(found), neuron_id=or_none(found.neuron_id),
                    access=access, manufacturer=or_none(found.manufacturer), product=or_none(found.product),
                    scb0={'SPI': 'spi', 'I2C': 'i2c'}.get(found.scb0.value), interrupted=interrupted(run))

    def _configuration(self, device, result, _restart):
        fields = self.library.configuration_fields(device.configuration(progress=self._take))
        result.update(serial=fields.serial, manufacturer=fields.manufacturer, product=fields.product, vid_pid=ids(fields), scb0=fields.scb0,
                      max_power_ma=fields.max_power_milliamperes, format=fields.format, checksum_ok=fields.checksum_right)
        if fields.why_bad:
            self._warn('the block is bad: ' + fields.why_bad, 'a bad block can make a bridge vanish from USB; write a good one first')

    def _status(self, device, result, _restart):
        self._tell_interrupted(device, result, device.interrupted_run)  # with half an image the Neuron does not answer
        status = device.status(progress=self._take)
        result.update({name: named(getattr(status, name + '_name'), getattr(status, name))
                       for name in ('node_state', 'reset_cause', 'error_log')})
        result.update(firmware_version=status.version, model_number=status.model, counters={
            name: getattr(status, name) for name in ('transmit_errors', 'transaction_timeouts', 'receive_transactions_full',
                                                     'lost_messages', 'missed_messages')})

    def _domain(self, device, result, _restart=None, with_keys=False):
        result['domains'] = [domain(index, entry, with_keys) for index, entry in enumerate(device.domain_table(progress=self._take))]

    def _interface(self, device, result, restart_neuron):
        look = self.library.FlashLook.ALWAYS if restart_neuron else self.library.FlashLook.NEVER
        seen = device.overview(look, progress=self._take)
        found, chip = device.description, seen.flash
        result.update(
            parts=[dict(part=each.name, ok=ok(each.verdict), state=self._pasteable(each.state), hint=or_none(self._pasteable(each.hint)))
                   for each in seen.parts],
            serial=or_none(found.serial), path=found.path, scb0={'SPI': 'spi', 'I2C': 'i2c'}.get(found.scb0.value),
            silicon_id=None if seen.silicon_id is None else '0x%08X' % seen.silicon_id, neuron_id=seen.neuron_id, program_id=seen.program_id,
            node_state=seen.status and named(seen.status.node_state_name, seen.status.node_state),
            flash_maker=or_none(chip and chip.maker_name), flash_id=or_none(chip and chip.id_text.replace(' ', '')),
            flash_size=chip and chip.size, neuron_restarted=seen.neuron_restarted)
        if chip:
            result['flash_sfdp'] = None
        if chip and chip.has_sfdp and not chip.sfdp_fault:
            types = [dict(opcode=each.opcode, size=each.size, typical_seconds=each.typical, longest_seconds=each.longest)
                     for each in chip.erase_types]
            result['flash_sfdp'] = dict(erase_types=types, page_program_seconds=chip.program_typical, chip_erase_seconds=chip.erase_typical)
        self._know(seen.state)
        self._tell_interrupted(device, result, seen.interrupted)

    def _doctor(self, device, result, restart_neuron):
        diagnosis = device.doctor(restart_neuron=restart_neuron, progress=self._take)
        self._know(diagnosis.state)
        result['checks'] = [dict(item=each.item, ok=ok(each.verdict), text=each.text, hint=or_none(self._pasteable(each.hint)))
                            for each in diagnosis.checks]
        if not diagnosis:
            self.answer['exit_status'] = FAILED

    def _flash(self, device, result, _restart):
        found = device.read(progress=self._take)
        self._know(found.state)
        result.update(bytes=found.contents.byte_count, sha256=found.contents.identity)

    # What they work on.

    def _image(self, parameters, read=None):
        address = self._address(parameters['address']) if parameters['address'] else None
        return (read or self.library.Image.read)(parameters['src'], format=parameters['format'], address=address)

    def _address(self, text):
        address = self.library.parse_number(text)
        if address is None or address >= ADDRESSABLE:
            self._fail("'%s' is no address of the flash: 0x10000, 65536, 64K" % text, 'tavo-util check --help', USAGE)
        return address

    def _range(self, parameters):
        return self.library.parse_range(parameters['range']) if parameters['range'] else None

    def _entry(self, each, before):
        return self.library.DomainEntry(
            bytes(bytearray.fromhex(each['domain_id'])), each['subnet'], each['node'],
            before.key if each['key'] is None else bytes(bytearray.fromhex(each['key'])), each['in_use'], each['clone'], each['flags'])

    def _changed_since(self, device, before):
        """The entries that a write which failed has changed all the same."""
        try:
            now = device.domain_table()
        except self.library.Error:
            return []
        return [index for index, entry in enumerate(now) if bytes(entry) != bytes(before[index])]

    @staticmethod
    def _path(path, device):
        serial = re.sub('[^A-Za-z0-9._-]', '_', device.description.serial)
        return path.replace('{serial}', '_' if serial in ('', '.', '..') else serial) if path else None

    def _specs(self):
        named_one = self.module.params['device'] or os.environ.get('TAVO_DEVICE')
        return [named_one] if named_one else []

    @contextlib.contextmanager
    def _bus(self):
        """What is attached, or the simulated interface that was asked for in its place."""
        specs = self._specs()
        if not (specs and specs[0].startswith('sim:')):
            yield
            return
        with contextlib.ExitStack() as stack:
            try:
                stack.enter_context(importlib.import_module('tavo_util.sim').described(*specs))
            except RuntimeError as error:
                self._fail('cannot open %s: %s' % (specs[0], error), 'another folder starts a new one', NO_DEVICE)
            except ImportError as error:
                self._fail('the simulated interface could not be loaded: %s' % error, 'install the package tavo_util again, whole',
                           EXITS['internal'])
            except ValueError as error:
                self._fail(str(error), '-d sim:DIR[,size=1M][,pace=fast]', USAGE)
            yield

    @contextlib.contextmanager
    def _opened(self, as_it_is=False):
        with self._bus():
            try:
                device = self.library.open(*self._specs(), wait=self.module.params['wait'] or None, as_it_is=as_it_is,
                                           progress=self._take)
            except self.library.Error:
                found = self.library.devices(*self._specs())
                if len(found) == 1:
                    self._name(found[0])
                raise
            with device:
                self._name(device.description)
                try:
                    yield device
                except self.library.Error as error:
                    self._tell(error)
                    raise Told()

    # What is told of it.

    def _answered(self, work):
        """The answer that work(result) fills."""
        self.answer = answer = dict(device=None, status=dict(code=0, name='TAVO_SUCCESS'), flash_state='untouched', state=NOT_TOUCHED,
                                    result={}, messages=[], exit_status=DONE)
        try:
            work(answer['result'])
        except Told:
            pass
        except self.library.Error as error:
            self._tell(error)
        except KeyboardInterrupt as signalled:
            if signalled.__cause__ is None:  # no operation was under way
                raise
            self._tell(signalled.__cause__)
        except Exception as error:  # of this file or of the package: not what anybody is to see as a traceback
            if answer['device'] is not None:
                answer.update(flash_state='uncertain', state=UNKNOWN)
            answer['messages'].append(dict(severity='error', text='internal error: %s: %s' % (type(error).__name__, error),
                                           hint='please report this; what holds now, tavo-util doctor tells'))
            answer.update(exit_status=EXITS['internal'], status=None)
        return answer

    def _name(self, found):
        self.answer['device'] = dict(serial=or_none(found.serial), path=or_none(found.path))

    def _know(self, state):
        self.answer.update(flash_state=state.flash.value, state=self._pasteable(state.text))

    def _pasteable(self, hint, spec=None):
        """With the interface named in its commands."""
        spec = spec or ''.join(self._specs())
        return ON_A_DEVICE.sub(lambda found: '%s-d %s ' % (found.group(), shlex.quote(spec)), hint) if spec else hint

    def _take(self, event):
        if event.kind is self.library.EventKind.WARNING:
            self._warn(event.text, event.hint)

    def _warn(self, text, hint):
        self.answer['messages'].append(dict(severity='warning', text=text, hint=or_none(self._pasteable(hint))))

    def _tell_interrupted(self, device, result, run):
        result['interrupted'] = interrupted(run)
        if run:
            self.answer.update(flash_state=run.flash.value, state=LEFT[run.flash.value])
            self._warn('%s: %s' % (device.description.name, run.text), run.hint)

    def _fail(self, text, hint, exit_status):
        self.answer['messages'].append(dict(severity='error', text=text, hint=self._pasteable(hint)))
        self.answer.update(exit_status=exit_status, status=None)
        raise Told()

    def _tell(self, error):
        """A failure of the library."""
        left = self.answer['flash_state']  # by a run that was cut off, of which this operation knows nothing
        self._know(error.state)
        if left in LEFT and error.state.flash is self.library.FlashState.UNTOUCHED:
            others = '' if error.state.text == NOT_TOUCHED else '; ' + error.state.text
            self.answer.update(flash_state=left, state=LEFT[left] + others)
        self.answer['messages'].append(dict(severity='error', text='\n    '.join((str(error),) + error.details),
                                            hint=or_none(self._pasteable(error.hint))))
        lost = error.problem != 'interrupted' and error.state.is_flash_lost
        self.answer.update(exit_status=FLASH_LOST if lost else EXITS[error.problem],
                           status=None if error.status is None else dict(code=error.status, name=error.status_name))
