#!/usr/bin/python3
"""Checks a fleet report page against the fleet document it was made from.

    check_report.py FLEET_JSON REPORT_HTML SCREENSHOT_PNG

Validates the document against docs/schema/fleet.schema.json, opens the page
in headless Chromium, reads the rendered DOM and compares the summary counts,
the rows (one per server and port, with versions and statuses) and their
action-first order with the document; writes a screenshot of the page.
Exit 0 when all match, 1 with a diff when not, 2 when an input is unusable.
"""
import difflib
import itertools
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
from html.parser import HTMLParser
from pathlib import Path

import jsonschema

SCHEMA = Path(__file__).resolve().parents[2] / 'docs/schema/fleet.schema.json'
WORST_FIRST = ['unreadable', 'older', 'newer', 'current']
CHROMIUM = ['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
            '--disable-background-networking', '--disable-component-update', '--disable-sync']
VOID_ELEMENTS = {'area', 'base', 'br', 'col', 'embed', 'hr', 'img', 'input', 'link', 'meta', 'source', 'track', 'wbr'}


def normal(text):
    return ' '.join(text.split())


def port_status(port):
    present = {module['status'] for module in port['modules']}
    return next((status for status in WORST_FIRST if status in present), 'current')


def action_group(server):
    """0 failed or unreachable, 1 a port older or unreadable, 2 a port newer, 3 current."""
    statuses = {port_status(port) for port in server['ports']}
    if server['state'] != 'ok':
        return 0
    return 1 if statuses & {'older', 'unreadable'} else 2 if 'newer' in statuses else 3


def summary(fleet):
    servers = fleet['servers']
    statuses = [port_status(port) for server in servers for port in server['ports']]
    states = [server['state'] for server in servers]
    counts = {'servers': len(servers), 'ports': len(statuses),
              'action': sum(action_group(server) < 2 for server in servers)}
    counts.update({status: statuses.count(status) for status in WORST_FIRST})
    counts.update({state: states.count(state) for state in ('failed', 'unreachable')})
    return counts


def expected_rows(fleet):
    """(server, port) -> (row status, [(cell, status, texts the cell must show)])."""
    rows = {}
    for server in fleet['servers']:
        if server['state'] != 'ok':
            rows[(server['name'], '')] = (server['state'], [('row', server['state'], [server['state'], server['message']])])
        elif not server['ports']:
            rows[(server['name'], '')] = ('current', [])
        for port in server['ports']:
            cells = [(m['kind'], m['status'], [v for v in (m['status'], m['operating'], m['repository']) if v is not None])
                     for m in port['modules']]
            rows[(server['name'], port['deviceId'])] = (port_status(port), cells)
    return rows


class Page(HTMLParser):
    """The summary elements, the rows with their module cells and the scripts of a rendered DOM."""

    def __init__(self):
        super().__init__()
        self.depth, self.open, self.summary, self.rows, self.scripts = 0, [], {}, [], 0

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        self.scripts += tag == 'script'
        if tag in VOID_ELEMENTS:
            return
        self.depth += 1
        element = {'status': attrs.get('data-status'), 'text': []}
        if 'data-summary' in attrs:
            self.summary[attrs['data-summary']] = element
        elif tag == 'tr' and 'data-server' in attrs:
            element.update(key=(attrs['data-server'], attrs.get('data-port', '')), cells={})
            self.rows.append(element)
        elif 'data-module' in attrs and self.rows:
            self.rows[-1]['cells'][attrs['data-module']] = element
        else:
            return
        self.open.append((self.depth, element))

    def handle_endtag(self, tag):
        if tag in VOID_ELEMENTS:
            return
        while self.open and self.open[-1][0] >= self.depth:
            element = self.open.pop()[1]
            element['text'] = normal(''.join(element['text']))
        self.depth -= 1

    def handle_data(self, data):
        for _, element in self.open:
            element['text'].append(data)


def describe_row(key, status, wanted, cells):
    lines = [f'row {key[0]} | {key[1] or "-"} | {status}']
    for name, _, texts in wanted:
        cell = cells.get(name)
        shown = [t if cell and normal(t) in cell['text'] else f'NOT SHOWN {t!r}' for t in texts]
        lines.append(f'  {name} {cell["status"]}: {" | ".join(shown)}' if cell else f'  {name}: no cell')
    return lines


def expected_lines(fleet):
    lines = [f'summary {key} {count}' for key, count in summary(fleet).items()] + ['script elements 0']
    for key, (status, wanted) in sorted(expected_rows(fleet).items()):
        cells = {name: {'status': cell_status, 'text': normal(' '.join(texts))} for name, cell_status, texts in wanted}
        lines += describe_row(key, status, wanted, cells)
    return lines


def page_lines(fleet, page):
    lines = []
    for key in summary(fleet):
        element = page.summary.get(key)
        number = re.search(r'\d+', element['text']) if element else None
        lines.append(f'summary {key} {int(number.group()) if number else 0 if element else "absent"}')
    lines.append(f'script elements {page.scripts}')
    wanted = expected_rows(fleet)
    for row in sorted(page.rows, key=lambda row: row['key']):
        cells = dict(row['cells'], row={'status': row['status'], 'text': row['text']})
        lines += describe_row(row['key'], row['status'], wanted.get(row['key'], (None, []))[1], cells)
    return lines


def order_lines(fleet, page):
    """The servers as the page lists them, against the same list sorted action first."""
    groups = {server['name']: action_group(server) for server in fleet['servers']}
    shown = [name for name, _ in itertools.groupby(row['key'][0] for row in page.rows)]
    sort = sorted(dict.fromkeys(shown), key=lambda name: groups.get(name, 4))
    return [f'order {" ".join(f"{name}({groups.get(name)})" for name in names)}' for names in (sort, shown)]


def chromium(page, *arguments):
    """Runs headless Chromium on the page with a fresh profile and ends all its processes."""
    with tempfile.TemporaryDirectory(prefix='fleet-report-') as profile:
        process = subprocess.Popen([*CHROMIUM, f'--user-data-dir={profile}', *arguments, page.resolve().as_uri()],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True)
        try:
            output, errors = process.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            raise RuntimeError(f'chromium {" ".join(arguments)} did not finish in 30 s') from None
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
    if process.returncode != 0:
        raise RuntimeError(f'chromium {" ".join(arguments)} exited {process.returncode}: {errors[-2000:]}')
    return output


def main(fleet_path, report_path, screenshot_path):
    try:
        fleet = json.loads(Path(fleet_path).read_text(encoding='utf-8'))
        jsonschema.validate(fleet, json.loads(SCHEMA.read_text(encoding='utf-8')))
        served = Page()
        served.feed(Path(report_path).read_text(encoding='utf-8'))
        if served.scripts:
            # The page is static; a script there (an injected alert() would block Chromium) is a fault.
            print(f'check_report: {report_path} holds {served.scripts} script elements, a static page none')
            return 1
        page = Page()
        page.feed(chromium(Path(report_path), '--dump-dom'))
        chromium(Path(report_path), f'--screenshot={Path(screenshot_path).resolve()}', '--window-size=1400,2000')
        if Path(screenshot_path).read_bytes()[:8] != b'\x89PNG\r\n\x1a\n':
            raise RuntimeError(f'{screenshot_path}: not a PNG picture')
    except jsonschema.ValidationError as error:
        where = '/'.join(map(str, error.absolute_path))
        print(f'check_report: {fleet_path}: not a fleet document: at /{where}: {error.message}', file=sys.stderr)
        return 2
    except (OSError, ValueError, RuntimeError, subprocess.SubprocessError) as error:
        print(f'check_report: {error}', file=sys.stderr)
        return 2
    expected = expected_lines(fleet) + order_lines(fleet, page)[:1]
    shown = page_lines(fleet, page) + order_lines(fleet, page)[1:]
    diff = list(difflib.unified_diff(expected, shown, 'fleet document', 'report page', lineterm=''))
    print('\n'.join(diff) if diff else f'check_report: {len(page.rows)} rows and the summary match; screenshot {screenshot_path}')
    return 1 if diff else 0


if __name__ == '__main__':
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
