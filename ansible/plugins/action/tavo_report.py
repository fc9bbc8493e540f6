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
        folder = os.path.abspath(arguments['folder'])
        rows = self._rows(folder, arguments['results'], task_vars)
        try:
            report.write(folder, rows, arguments['image'])
        except OSError as error:
            result.update(failed=True, msg='cannot write the report into %s: %s' % (folder, error.strerror),
                          hint='make the folder writable, or name another one')
            return result
        result.update(folder=folder, counts=report.counts(rows))
        return result

    def _rows(self, folder, name, task_vars):
        """A host's variables take Ansible some 10 ms, so only those of the batch are looked at; the others' rows are
        those of the report after the batch before."""
        hosts, batch = task_vars['ansible_play_hosts_all'], task_vars['ansible_play_batch']

        def result_of(host):
            return task_vars['hostvars'][host].get(name)

        before = report.read(folder)
        done = [host for host, each in before.items() if each['outcome'] != 'waiting' and host not in batch]
        if not (done and done[0] in task_vars['hostvars'] and result_of(done[0])):
            before = {}  # of an earlier run: in this one that host had no turn
        rows = {host: before.get(host) or report.row(host, None) for host in hosts}
        for host in batch:
            rows[host] = report.row(host, result_of(host), self._play_context.check_mode)
        return list(rows.values())
