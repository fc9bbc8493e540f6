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
  via:
    description:
      - What does the work on the host. C(auto) takes the tool, and where that is not installed the Python package C(tavo_util),
        which has to be there for the Python that runs the modules (C(ansible_python_interpreter)).
      - Both return the same. I(via) in the results tells which it was.
    type: str
    choices: [auto, tool, package]
    default: auto
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
    is the exit code of the tool, also where the package did the work, I(flash_state) one of C(untouched), C(unchanged),
    C(uncertain), C(erased), C(incomplete) and C(programmed), I(status) the status of the library, I(messages) everything that was said. I(changed) tells
    whether something was changed before it failed.
  - Two tasks never work on one interface at once. It is locked; the second one fails as busy (exit status 6).
requirements:
  - tavo-util, or the Python package tavo_util (python3-tavo-util)
attributes:
  platform:
    platforms: linux
    description: Where the module runs.
    support: full
'''
