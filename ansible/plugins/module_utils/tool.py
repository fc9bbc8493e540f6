# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""The operations of the modules by the installed tavo-util with --json."""

import json
import os
import tempfile

from ansible_collections.tavo.util.plugins.module_utils.answers import NO_DEVICE, NOT_TOUCHED, invented

JSON_FORMAT = 1  # the major number that is understood here
UNKNOWN = 'not known: the tool did not get to tell it'
INSTALL = 'install the package tavo-util, for example with the role tavo.util.install, or set tool to the path of the program'
PARTS = {
    'devices': ['list'],
    'configuration': ['config', 'read'],
    'status': ['status'],
    'domain': ['domain', 'read'],
    'interface': ['info', '--flash'],
    'doctor': ['doctor'],
}
LEFT_ALONE = {'interface': ['info', '--no-flash'], 'doctor': ['doctor', '--no-flash']}  # the Neuron is not restarted


def options(parameters, **names):
    """The words for those parameters that are set: name='--option'."""
    words = []
    for name, option in names.items():
        value = parameters[name]
        if value:
            words += [option] if value is True else [option, str(value)]
    return words


def image_words(parameters):
    return [parameters['src']] + options(parameters, format='--format', address='--address')


class Tool:
    def __init__(self, module, path):
        self.module = module
        self.path = path

    def check(self, parameters):
        # With --dry-run the chip is not asked for its size, for which the Neuron would be restarted.
        answer = self._run('check', '--dry-run', *image_words(parameters), device=False)
        for each in answer['result'].get('errors', []):
            place = '' if each['offset'] is None else 'offset 0x%X: ' % each['offset']
            place = 'line %d: ' % each['line'] if each['line'] else place
            answer['messages'][-1]['text'] += '\n    %s%s - %s' % (place, each['text'], each['hint'])
        return answer

    def compare(self, parameters):
        rest = [] if parameters['keep'] or parameters['range'] else ['--rest-blank']
        return self._run('verify', '--every', *(rest + options(parameters, range='--range', clock='--clock') + image_words(parameters)))

    def program(self, parameters):
        way = ['--full'] if parameters['full'] else ['--if-different']
        return self._run('program', *(way + options(
            parameters, keep='--keep', range='--range', clock='--clock', backup='--backup', no_backup='--no-backup') + image_words(parameters)))

    def gather(self, part, restart_neuron):
        if part == 'flash':
            return self._flash()
        return self._run(*(PARTS[part] if restart_neuron else LEFT_ALONE.get(part, PARTS[part])))

    def rewrite(self, parameters, dry_run):
        if parameters['scb0']:
            words = ['scb0', parameters['scb0']]
        elif parameters['src']:
            words = ['config', 'write', parameters['src']] + options(parameters, serial='--serial')
        else:
            words = ['config', 'set-serial', parameters['serial']]
        words += options(parameters, backup='--backup', no_backup='--no-backup')
        return self._run(*words + ['--dry-run' if dry_run else '--yes'])

    def read_domains(self, with_keys):
        return self._run('domain', 'read', *(['--show-keys'] if with_keys else []))

    def write_domains(self, entries, parameters):
        return self._with_file('.json', json.dumps(entries), lambda path: self._run(
            'domain', 'write', path, '--yes', *options(parameters, no_backup='--no-backup')))

    def _flash(self):
        """Of a copy of the chip that lives no longer than this."""
        answer = self._with_file('.bin', '', lambda path: self._run('dump', '--force', path))
        answer['result'].pop('file', None)
        return answer

    def _add_simulated(self, answer, err):
        """What a simulated interface complains of stands on standard error only, and the hint says so."""
        if answer['exit_status'] == NO_DEVICE:
            answer['messages'][-1]['text'] += ''.join(': ' + line for line in err.splitlines() if line.startswith('simulated interface: '))

    def _with_file(self, suffix, text, work):
        """What work(path) gives, of a file that nobody else may read."""
        descriptor, path = tempfile.mkstemp(suffix=suffix, dir=self.module.tmpdir)
        try:
            with os.fdopen(descriptor, 'w') as file:
                file.write(text)
            return work(path)
        finally:
            os.remove(path)

    def _run(self, *words, **more):
        """The object that one command writes, whatever came of it."""
        command = [self.path, '--json', '--progress', 'none']
        if more.get('device', True):
            command += options(self.module.params, device='--device')
            if self.module.params['wait']:
                command.append('--wait=%d' % self.module.params['wait'])
        try:
            code, out, err = self.module.run_command(command + list(words), handle_exceptions=False)
        except OSError as error:
            return invented('cannot run %s: %s' % (self.path, error.strerror), NOT_TOUCHED, INSTALL)
        try:
            answer = json.loads(out)
            if answer['json_format_version'][0] == JSON_FORMAT:
                self._add_simulated(answer, err)
                return answer
            text = 'the JSON of this tavo-util has the format %s' % answer['json_format_version']
            hint = 'use the collection tavo.util of the same release'
        except (ValueError, KeyError, TypeError):
            told = err or ('' if '--show-keys' in words else out)
            text = '%s %s ended with %d and told nothing: %s' % (self.path, words[0], code, told.strip()[-500:])
            hint = 'look what holds: tavo-util doctor; it names what to do'
        return invented(text, UNKNOWN, hint, 'uncertain')
