# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT


class ModuleDocFragment:
    """What every module says that talks to an interface."""

    DOCUMENTATION = r'''
options:
  device:
    description:
      - The interface, as C(tavo-util -d) takes it, for example C(usb:1-4.2), C(serial:00001234) or C(neuron:050102030405).
      - May be left out when one interface is attached, or when the environment has C(TAVO_DEVICE).
    type: str
  tool:
    description:
      - Name or path of the tool on the host.
    type: str
    default: tavo-util
  wait:
    description:
      - Seconds to wait for the interface to appear.
    type: int
    default: 0
notes:
  - A failure tells more than I(msg) - I(state) says what is known of the interface now, I(hint) what to do next, I(exit_status)
    is the tool's exit code, I(flash_state) one of C(untouched), C(unchanged), C(uncertain), C(erased), C(incomplete) and
    C(programmed), I(status) the status of the library, I(messages) everything that the tool said. I(changed) tells
    whether something was changed before it failed.
  - Two tasks never work on one interface at once. The tool locks it; the second one fails as busy (exit status 6).
requirements:
  - tavo-util
attributes:
  platform:
    platforms: linux
    description: Where the module runs.
    support: full
'''
