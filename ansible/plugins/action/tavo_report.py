# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

import os

from ansible.plugins.action import ActionBase
from ansible_collections.tavo.util.plugins.plugin_utils import report


class ActionModule(ActionBase):
    """Collects what the hosts returned and writes the report; nothing runs on a host."""

    _supports_check_mode = True
    _requires_connection = False

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        _checked, arguments = self.validate_argument_spec(argument_spec=dict(
            folder=dict(type='path', required=True), results=dict(type='str', required=True), image=dict(type='str', default='')))
        rows = [report.row(host, task_vars['hostvars'][host].get(arguments['results']), self._play_context.check_mode)
                for host in task_vars['ansible_play_hosts_all']]
        folder = os.path.abspath(arguments['folder'])
        try:
            report.write(folder, rows, arguments['image'])
        except OSError as error:
            result.update(failed=True, msg='cannot write the report into %s: %s' % (folder, error.strerror),
                          hint='make the folder writable, or name another one')
            return result
        result.update(folder=folder, counts=report.counts(rows))
        return result
