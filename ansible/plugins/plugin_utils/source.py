# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""Brings the file that src names to the host for the time of the task, in check mode too: copying it there with a task of
its own would leave check mode without the file."""

from ansible.errors import AnsibleError
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.plugins.action import ActionBase

FILE_SYSTEM = 8  # exit code of the tool
FLASH_LOST = ('uncertain', 'erased', 'incomplete')


def named(told, path, source):
    """What is told of a file that was brought, in the words in which it was asked for."""
    if isinstance(told, dict):
        return {name: named(value, path, source) for name, value in told.items()}
    if isinstance(told, list):
        return [named(value, path, source) for value in told]
    return told.replace(path, source) if isinstance(told, str) else told


class SourceAction(ActionBase):
    TRANSFERS_FILES = True
    _supports_check_mode = True
    _supports_diff = True

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        arguments = dict(self._task.args)
        source = arguments.get('src')
        is_brought = source and not boolean(arguments.get('remote_src', False), strict=False)
        try:
            if is_brought:
                arguments['src'] = self._bring(self._find_needle('files', source))
        except AnsibleError as error:
            hint = 'name a file on this computer, or set remote_src'
            result.update(failed=True, changed=False, flash_state='untouched', state='device not touched', hint=hint, exit_status=FILE_SYSTEM,
                          msg='cannot bring %s to the host: %s (state: device not touched) Hint: %s' % (source, error.message, hint))
            return result
        try:
            result.update(self._execute_module(module_args=arguments, task_vars=task_vars))
        finally:
            self._remove_tmp_path(self._connection._shell.tmpdir)
        if not is_brought:
            return result
        result = named(result, arguments['src'], source)
        if result.get('flash_state') in FLASH_LOST:
            self._name_the_task(result, source)
        return result

    @staticmethod
    def _name_the_task(result, source):
        """What the tool says is for people at the host, where the file is no more."""
        hint = result.get('hint', '')
        result['hint'] = 'run this task again, it repairs the flash from %s; on the host: %s' % (source, hint)
        result['msg'] = '%s Hint: %s' % (result.get('msg', '').partition(' Hint: ')[0], result['hint'])

    def _bring(self, path):
        if not self._connection._shell.tmpdir:
            self._make_tmp_path()
        folder = self._connection._shell.tmpdir
        brought = self._transfer_file(path, self._connection._shell.join_path(folder, path.rsplit('/', 1)[-1]))
        self._fixup_perms2((folder, brought))
        return brought
