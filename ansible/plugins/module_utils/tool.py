# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""Runs the installed tavo-util with --json. What it says of a failure is what the module says."""

import json

ARGUMENTS = dict(
    device=dict(type='str'),
    tool=dict(type='str', default='tavo-util'),
    wait=dict(type='int', default=0),
)

DONE = 0  # exit codes
DIFFERS = 9
JSON_FORMAT = 1  # the major number that is understood here
CHANGED_STATES = ('uncertain', 'erased', 'incomplete', 'programmed')  # values of flash_state
NOT_TOUCHED = 'device not touched'
UNKNOWN = 'not known: the tool did not get to tell it'
INSTALL = 'install the package tavo-util, for example with the role tavo.util.install, or set tool to the path of the program'


def failure_of(answer):
    """The fields of a module's failure, made of the object that the tool wrote."""
    errors = [message for message in answer['messages'] if message['severity'] == 'error']
    texts = [message['text'] for message in errors] or ['exit code %d' % answer['exit_status']]
    hints = [message['hint'] for message in errors if message.get('hint')]
    fields = {name: answer.get(name) for name in ('state', 'flash_state', 'exit_status', 'status', 'device', 'messages')}
    fields['hint'] = '; '.join(dict.fromkeys(hints))
    fields['msg'] = '%s (state: %s)' % ('; '.join(texts), answer['state'])
    if hints:
        fields['msg'] += ' Hint: ' + fields['hint']
    fields['changed'] = answer['flash_state'] in CHANGED_STATES
    return fields


def invented(text, state, hint, flash_state=None):
    """An answer in the tool's form, for what the tool could not say itself."""
    return {'device': None, 'status': None, 'flash_state': flash_state, 'state': state, 'result': {}, 'exit_status': None,
            'messages': [{'severity': 'error', 'text': text, 'hint': hint}]}


class Tool:
    def __init__(self, module):
        self.module = module
        name = module.params['tool']
        self.path = name if '/' in name else module.get_bin_path(name)
        if self.path is None:
            self.fail(invented('%s is not installed on this host' % name, NOT_TOUCHED, INSTALL))

    def try_to(self, *words):
        """The object that one command writes, whatever came of it."""
        command = [self.path, '--json', '--progress', 'none']
        if self.module.params['device']:
            command += ['--device', self.module.params['device']]
        if self.module.params['wait']:
            command.append('--wait=%d' % self.module.params['wait'])
        try:
            code, out, err = self.module.run_command(command + list(words), handle_exceptions=False)
        except OSError as error:
            return invented('cannot run %s: %s' % (self.path, error.strerror), NOT_TOUCHED, INSTALL)
        try:
            answer = json.loads(out)
            if answer['json_format_version'][0] == JSON_FORMAT:
                return answer
            text = 'the JSON of this tavo-util has the format %s' % answer['json_format_version']
            hint = 'use the collection tavo.util of the same release'
        except (ValueError, KeyError, TypeError):
            text = '%s %s ended with %d and told nothing: %s' % (self.path, words[0], code, (err or out).strip()[-500:])
            hint = 'look what holds: tavo-util doctor; it names what to do'
        return invented(text, UNKNOWN, hint, 'uncertain')

    def ask(self, *words, **more):
        """The same for a command that must succeed, or end as `allowed` says; ends the module otherwise, which then
        returns `result` too."""
        answer = self.try_to(*words)
        if answer['exit_status'] not in more.get('allowed', (DONE,)):
            self.fail(answer, **more.get('result', {}))
        self.pass_on_warnings(answer)
        return answer

    def pass_on_warnings(self, answer):
        for message in answer['messages']:
            if message['severity'] == 'warning':
                self.module.warn(message['text'] + (' Hint: ' + message['hint'] if message.get('hint') else ''))

    def fail(self, answer, **result):
        self.pass_on_warnings(answer)
        self.module.fail_json(**{**result, **failure_of(answer)})
