# Copyright (c) 2026 the tavo-util developers
# SPDX-License-Identifier: MIT
"""The report of a fleet: a row for each host, as JSON, CSV and a page to look at."""

import csv
import html
import io
import json
import os
import tempfile
import time

OUTCOMES = ('failed', 'unreachable', 'updated', 'would-change', 'current', 'waiting')  # what needs a look comes first
FIELDS = ('host', 'serial', 'path', 'outcome', 'image_sha256', 'state', 'problem', 'hint', 'exit_status', 'pages_written', 'seconds')

NOT_REACHED = {'state': 'not known: the connection failed before the task, or during it',
               'hint': 'see that the computer answers, then run the play again; what was cut off is finished then'}

PAGE = '''<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width"><title>{title}</title><style>
:root {{ color-scheme: light dark }}
body {{ font: 15px/1.4 system-ui, sans-serif; margin: 1.5em }}
div {{ overflow-x: auto }}
table {{ border-collapse: collapse }}
th, td {{ text-align: left; vertical-align: top; padding: .3em .8em .3em 0; border-bottom: 1px solid #8884 }}
td:nth-child(4) {{ font-family: monospace }}
.failed td:nth-child(3), .unreachable td:nth-child(3) {{ color: #b00020; font-weight: bold }}
@media (prefers-color-scheme: dark) {{ .failed td:nth-child(3), .unreachable td:nth-child(3) {{ color: #ff8a80 }} }}
</style></head><body>
<h1>{title}</h1>
<p>{summary}; {time}</p>
<div><table><thead><tr><th>Host</th><th>Interface</th><th>Outcome</th><th>Image on the chip</th><th>What is known and what next</th></tr></thead><tbody>
{rows}
</tbody></table></div>
</body></html>
'''


def outcome(result, check_mode):
    if not result:
        return 'waiting'
    if result.get('unreachable'):
        return 'unreachable'
    if result.get('failed'):
        return 'failed'
    if result.get('changed'):
        return 'would-change' if check_mode else 'updated'
    return 'current'


def problem(result):
    """What went wrong, without the state and the hint, which stand beside it."""
    if not (result.get('failed') or result.get('unreachable')):
        return None
    errors = [message['text'] for message in result.get('messages') or [] if message['severity'] == 'error']
    return '; '.join(errors) or result.get('msg')


def row(host, result, check_mode=False):
    """What the report says of a host. image_sha256 is empty where it is not known what the chip holds."""
    result = dict(result or {})
    if result.get('unreachable'):
        result.update(NOT_REACHED)
    device = result.get('device') or {}
    done = result.get('program') or {}
    return {
        'host': host, 'serial': device.get('serial'), 'path': device.get('path'), 'outcome': outcome(result, check_mode),
        'image_sha256': result.get('sha256') if result.get('verified') else None, 'state': result.get('state'),
        'problem': problem(result), 'hint': result.get('hint'), 'exit_status': result.get('exit_status'),
        'pages_written': done.get('pages_written'), 'seconds': done.get('seconds')}


def counts(rows):
    return {name: sum(each['outcome'] == name for each in rows) for name in OUTCOMES}


def csv_text(rows):
    text = io.StringIO()
    writer = csv.DictWriter(text, FIELDS, lineterminator='\n')
    writer.writeheader()
    writer.writerows(rows)
    return text.getvalue()


def html_row(each):
    interface = ' at '.join(part for part in (each['serial'], each['path']) if part)
    told = '. '.join(part for part in (each['problem'], each['state'], each['hint']) if part)
    cells = (each['host'], interface, each['outcome'], (each['image_sha256'] or 'not known')[:16], told)
    return '<tr class="%s">%s</tr>' % (each['outcome'], ''.join('<td>%s</td>' % html.escape(cell) for cell in cells))


def html_text(rows, image, when):
    worst_first = sorted(rows, key=lambda each: OUTCOMES.index(each['outcome']))
    summary = ', '.join('%d %s' % (number, name) for name, number in counts(rows).items() if number)
    return PAGE.format(title=html.escape('Image %s on %d interfaces' % (image, len(rows))), summary=summary, time=when,
                       rows='\n'.join(html_row(each) for each in worst_first))


def replace(path, text):
    """Writes a file whole or not at all."""
    descriptor, name = tempfile.mkstemp(dir=os.path.dirname(path))
    try:
        with os.fdopen(descriptor, 'w', encoding='utf-8') as file:
            file.write(text)
        os.chmod(name, 0o644)
        os.replace(name, path)
    except OSError:
        os.unlink(name)
        raise


def read(folder):
    """The rows of the report that is there, by host; none if it cannot be read."""
    try:
        with open(os.path.join(folder, 'report.json'), encoding='utf-8') as file:
            return {each['host']: {name: each[name] for name in FIELDS} for each in json.load(file)['interfaces']}
    except (OSError, ValueError, KeyError, TypeError):
        return {}


def write(folder, rows, image):
    os.makedirs(folder, exist_ok=True)
    when = time.strftime('%Y-%m-%d %H:%M:%S %z')
    replace(os.path.join(folder, 'report.csv'), csv_text(rows))
    replace(os.path.join(folder, 'report.html'), html_text(rows, image, when))
    replace(os.path.join(folder, 'report.json'),
            json.dumps({'time': when, 'image': image, 'counts': counts(rows), 'interfaces': rows}, indent=1) + '\n')
