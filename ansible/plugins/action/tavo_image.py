# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

from ansible_collections.tavo.util.plugins.plugin_utils.source import SourceAction


class ActionModule(SourceAction):
    """The module tavo_image with its src brought to the host."""
