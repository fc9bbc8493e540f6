#!/usr/bin/python
# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT

DOCUMENTATION = r'''
---
module: tavo_report
short_description: Report of which interface of a fleet has which image
version_added: 0.1.0
author: the tavo-util developers (@tavo-util)
description:
  - Makes C(report.json), C(report.csv) and C(report.html) of what M(tavo.util.tavo_image) returned on the hosts of a play, on the controller.
  - Written whole or not at all, and anew at each call, so that a play in batches has a report of all hosts after each of them. Those
    whose turn has not come are C(waiting).
options:
  folder:
    description:
      - The folder on the controller. It is made if it is not there.
    type: path
    required: true
  results:
    description:
      - The name of the variable that registered what M(tavo.util.tavo_image) returned.
    type: str
    required: true
  image:
    description:
      - What to call the image in the title.
    type: str
    default: ''
notes:
  - Runs on the controller only; use it with C(run_once).
  - Tells of the hosts that are active in the batch. Let the task before it register a failure and go on, with
    C(ignore_errors) and C(ignore_unreachable), as the playbook C(tavo.util.update) does.
attributes:
  action:
    description: Needs nothing on the host.
    support: full
  check_mode:
    description: The report is written all the same, and says what would change.
    support: none
'''

EXAMPLES = r'''
- name: The report
  tavo.util.tavo_report:
    folder: reports/2026-11
    results: tavo_update
  run_once: true
'''

RETURN = r'''
counts:
  description: How many hosts have which outcome.
  returned: success
  type: dict
  sample: {current: 20, failed: 1, unreachable: 0, updated: 3, waiting: 0, would-change: 0}
folder:
  description: Where the report is.
  returned: success
  type: str
'''
