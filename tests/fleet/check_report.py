#!/usr/bin/python3
"""usage: check_report.py FLEET_JSON REPORT_HTML SCREENSHOT_PNG
Validates the fleet document, opens the report page in headless Chromium, compares the rendered summary, rows and
their action-first order with the document and writes a screenshot. Exit 0 when they match, 1 with a diff when
not, 2 when an input is unusable."""
import contextlib, difflib, itertools, json, os, re, signal, subprocess, sys, tempfile
from html.parser import HTMLParser
from pathlib import Path

import jsonschema

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / 'ansible'))
# The rules the page paints, from the collection's filter (tested in collection_test.py).
from ansible_collections.velmora.fc.plugins.filter.fleet import fleet_port_status as port_status  # noqa: E402
from ansible_collections.velmora.fc.plugins.filter.fleet import fleet_server_group as action_group  # noqa: E402
from ansible_collections.velmora.fc.plugins.module_utils.qdmhost import STATUSES_WORST_FIRST as WORST_FIRST  # noqa: E402

SCHEMA = Path(__file__).resolve().parents[2] / 'docs/schema/fleet.schema.json'
CHROMIUM = ['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
            '--disable-background-networking', '--disable-component-update', '--disable-sync', '--window-size=1400,2000']
VOID_ELEMENTS = {'area', 'base', 'br', 'col', 'embed', 'hr', 'img', 'input', 'link', 'meta', 'source', 'track', 'wbr'}


def summary(fleet):
    servers = fleet['servers']
    statuses = [port_status(port) for server in servers for port in server['ports']]
    states = [server['state'] for server in servers]
    return dict({'servers': len(servers), 'ports': len(statuses), 'action': sum(action_group(s) < 2 for s in servers)},
                **{status: statuses.count(status) for status in WORST_FIRST},
                **{state: states.count(state) for state in ('failed', 'unreachable')})


def normal(text):
    return ' '.join(text.split())


def expected_rows(fleet):
    """(server, port) -> (row status, [(cell, its status, texts it must show)])."""
    rows = {}
    for server in fleet['servers']:
        if server['state'] != 'ok':
            rows[(server['name'], '')] = (server['state'], [('row', server['state'], [server['state'], server['message']])])
        elif not server['ports']:
            rows[(server['name'], '')] = ('current', [])
        for port in server['ports']:
            rows[(server['name'], port['deviceId'])] = (port_status(port), [
                (m['kind'], m['status'], [v for v in (m['status'], m['operating'], m['repository']) if v is not None])
                for m in port['modules']])
    return rows


class Page(HTMLParser):
    """Reads the summary elements, the rows with their module cells and the scripts of a page."""

    def __init__(self, html):
        super().__init__()
        self.depth, self.open, self.summary, self.rows, self.scripts = 0, [], {}, [], 0
        self.feed(html)

    def handle_starttag(self, tag, attrs):
        attrs, element = dict(attrs), {'text': []}
        self.scripts += tag == 'script'
        if tag in VOID_ELEMENTS:
            return
        self.depth += 1
        if 'data-summary' in attrs:
            self.summary[attrs['data-summary']] = element
        elif tag == 'tr' and 'data-server' in attrs:
            self.rows.append(element)
            element.update(key=(attrs['data-server'], attrs.get('data-port', '')), cells={'row': element})
        elif 'data-module' in attrs and self.rows:
            self.rows[-1]['cells'][attrs['data-module']] = element
        else:
            return
        element['status'] = attrs.get('data-status')
        self.open.append((self.depth, element))

    def handle_endtag(self, tag):
        while tag not in VOID_ELEMENTS and self.open and self.open[-1][0] >= self.depth:
            element = self.open.pop()[1]
            element['text'] = normal(''.join(element['text']))
        self.depth -= tag not in VOID_ELEMENTS

    def handle_data(self, data):
        for _, element in self.open:
            element['text'].append(data)


def row_lines(key, status, wanted, cells):
    lines = [f'row {key[0]} | {key[1] or "-"} | {status}']
    for name, _, texts in wanted:
        cell = cells.get(name, {'status': 'absent', 'text': ''})
        shown = [text if normal(text) in cell['text'] else f'NOT SHOWN {text!r}' for text in texts]
        lines.append(f'  {name} {cell["status"]}: {" | ".join(shown)}')
    return lines


def compare(fleet, page):
    """The document's facts and the page's, as lines for a diff."""
    counts, rows = summary(fleet), expected_rows(fleet)
    numbers = {key: re.search(r'\d+', element['text']) for key, element in page.summary.items()}
    expected = [f'summary {key} {count}' for key, count in counts.items()] + ['script elements 0']
    shown = [f'summary {key} {int(numbers[key].group()) if numbers.get(key) else 0 if key in numbers else "absent"}'
             for key in counts] + [f'script elements {page.scripts}']
    for key, (status, wanted) in sorted(rows.items()):
        perfect = {name: {'status': cell_status, 'text': normal(' '.join(texts))} for name, cell_status, texts in wanted}
        expected += row_lines(key, status, wanted, perfect)
    for row in sorted(page.rows, key=lambda row: row['key']):
        shown += row_lines(row['key'], row['status'], rows.get(row['key'], (None, []))[1], row['cells'])
    groups = {server['name']: action_group(server) for server in fleet['servers']}
    listed = [name for name, _ in itertools.groupby(row['key'][0] for row in page.rows)]
    action_first = sorted(dict.fromkeys(listed), key=lambda name: groups.get(name, 4))
    expected.append('order ' + ' '.join(f'{name}({groups.get(name)})' for name in action_first))
    shown.append('order ' + ' '.join(f'{name}({groups.get(name)})' for name in listed))
    return expected, shown


def chromium(page, screenshot):
    """Dumps the rendered DOM and takes the screenshot, with a fresh profile; ends all of Chromium's processes."""
    with tempfile.TemporaryDirectory(prefix='fleet-report-') as profile:
        process = subprocess.Popen([*CHROMIUM, f'--user-data-dir={profile}', '--dump-dom', f'--screenshot={screenshot}',
                                    page.as_uri()], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   start_new_session=True)
        try:
            output, errors = process.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            raise RuntimeError('chromium did not finish in 30 s') from None
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()
    if process.returncode != 0 or screenshot.read_bytes()[:8] != b'\x89PNG\r\n\x1a\n':
        raise RuntimeError(f'chromium exited {process.returncode} without a DOM and a PNG: {errors[-2000:]}')
    return output


def main(fleet_path, report_path, screenshot_path):
    try:
        fleet = json.loads(Path(fleet_path).read_text(encoding='utf-8'))
        jsonschema.validate(fleet, json.loads(SCHEMA.read_text(encoding='utf-8')))
        scripts = Page(Path(report_path).read_text(encoding='utf-8')).scripts
        # Static by design; and an injected alert() would hold Chromium until its time-out.
        if scripts:
            print(f'check_report: {report_path} holds {scripts} script elements, a static page none')
            return 1
        page = Page(chromium(Path(report_path).resolve(), Path(screenshot_path).resolve()))
    except jsonschema.ValidationError as error:
        print(f'check_report: {fleet_path} is no fleet document: at /{"/".join(map(str, error.absolute_path))}: '
              f'{error.message}', file=sys.stderr)
        return 2
    except (OSError, ValueError, RuntimeError) as error:
        print(f'check_report: {error}', file=sys.stderr)
        return 2
    diff = list(difflib.unified_diff(*compare(fleet, page), 'fleet document', 'report page', lineterm=''))
    print('\n'.join(diff) if diff else f'check_report: summary and {len(page.rows)} rows match; {screenshot_path}')
    return 1 if diff else 0


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) == 4 else print(__doc__, file=sys.stderr) or 2)
