# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""One interface, by the tool or by the Python package: whichever this host has. Both answer alike."""

import importlib
import os

from ansible_collections.tavo.util.plugins.module_utils.answers import DONE, NOT_TOUCHED, failure_of, invented
from ansible_collections.tavo.util.plugins.module_utils.package import Package
from ansible_collections.tavo.util.plugins.module_utils.tool import Tool

ARGUMENTS = dict(
    device=dict(type='str'),
    via=dict(type='str', choices=['auto', 'tool', 'package'], default='auto'),
    tool=dict(type='str', default='tavo-util'),
    wait=dict(type='int', default=0),
)
INSTALL_ONE = ('install the package tavo-util or python3-tavo-util, for example with the role tavo.util.install; set tool to the '
               'path of the program, or ansible_python_interpreter to the Python that has tavo_util')


class Interface:
    def __init__(self, module):
        self.module = module
        self.way = self._chosen(module.params['via'], module.params['tool'])

    @property
    def name(self):
        return 'tool' if isinstance(self.way, Tool) else 'package'

    def _chosen(self, via, name):
        path = name if '/' in name else self.module.get_bin_path(name)
        if via != 'package' and path is not None and os.access(path, os.X_OK):
            return Tool(self.module, path)
        missing = ['%s is not installed on this host' % name] if via != 'package' else []
        if via != 'tool':
            try:
                return Package(self.module, importlib.import_module('tavo_util'))
            except ImportError as error:
                missing.append('its Python has no package tavo_util (%s)' % error)
        return self.fail(invented(', and '.join(missing), NOT_TOUCHED, INSTALL_ONE))

    def accept(self, answer, **more):
        """The answer of an operation that must succeed, or end as `allowed` says; ends the module otherwise, which then
        returns `result` too."""
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
        self.module.fail_json(**dict(result, **failure_of(answer)))
