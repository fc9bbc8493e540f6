# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""What came of one operation, in the form of the tool's --json, whichever way it was done."""

DONE = 0  # exit codes
NO_DEVICE = 3
FILE_REFUSED = 7
DIFFERS = 9
FAILED = 10
CHANGED_STATES = ('uncertain', 'erased', 'incomplete', 'programmed')  # values of flash_state
NOT_TOUCHED = 'device not touched'


def failure_of(answer):
    """The fields of a module's failure."""
    errors = [message for message in answer['messages'] if message['severity'] == 'error']
    texts = [message['text'] for message in errors] or ['exit code %s' % answer['exit_status']]
    hints = [message['hint'] for message in errors if message.get('hint')]
    fields = {name: answer.get(name) for name in ('state', 'flash_state', 'exit_status', 'status', 'device', 'messages')}
    if fields['status']:
        fields['status'] = {name: fields['status'][name] for name in ('code', 'name')}
    fields['hint'] = '; '.join(dict.fromkeys(hints))
    fields['msg'] = '%s (state: %s)' % ('; '.join(texts), answer['state'])
    if hints:
        fields['msg'] += ' Hint: ' + fields['hint']
    fields['changed'] = answer['flash_state'] in CHANGED_STATES
    return fields


def invented(text, state, hint, flash_state=None, exit_status=None):
    """For what nobody else could say."""
    return {'device': None, 'status': None, 'flash_state': flash_state, 'state': state, 'result': {}, 'exit_status': exit_status,
            'messages': [{'severity': 'error', 'text': text, 'hint': hint}]}
