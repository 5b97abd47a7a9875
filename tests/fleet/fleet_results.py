#!/usr/bin/python3
"""usage: fleet_results.py servers FLEET_JSON FLEET_DIR | updates FLEET_JSON | recap ANSIBLE_JSON
servers: one line per server of the fleet document: its state, then per module kind the statuses of its ports;
"MISMATCH" and the difference when a reported operating version is not the simulator's.
updates: one line per server: its update's outcome with reason or step, and its ports' last update outcomes.
recap: one line per host of an ansible-playbook run (the fleet_recap callback): changed, failed and unreachable counts
and the exit name of each failed task."""
import json, sys
from pathlib import Path


def simulator_versions(state):
    """Operating versions by normalised WWPN and module kind, as the simulated server holds them."""
    versions = {}
    for adapter in state['adapters']:
        for port in adapter['ports']:
            wwpn = port['wwpn'].replace(':', '').upper()
            versions[wwpn] = {'firm': adapter['firmware'], 'driver': state['driverVersion'],
                              'util': state.get('utilityVersion')}
    return versions


def server_line(server, fleet_dir):
    if server['state'] != 'ok':
        return f"{server['name']} {server['state']}"
    expected = simulator_versions(json.loads((fleet_dir / server['name'] / 'state.json').read_text()))
    statuses, wrong = {}, []
    for port in server['ports']:
        for module in port['modules']:
            statuses.setdefault(module['kind'], set()).add(module['status'])
            want = expected.get(port['wwpn'], {}).get(module['kind'])
            if module['operating'] != want:
                wrong.append(f"{port['wwpn']}/{module['kind']}={module['operating']}!={want}")
    line = ' '.join(f"{kind}:{'/'.join(sorted(statuses[kind]))}" for kind in ('firm', 'driver', 'util'))
    return f"{server['name']} ok {line}" + (' MISMATCH ' + ' '.join(wrong) if wrong else '')


def update_line(server):
    update = server['update'] or {}
    detail = update.get('reason') or update.get('step')
    last = sorted({(port['lastUpdate'] or {}).get('outcome', 'none') for port in server['ports']})
    return f"{server['name']} {update.get('outcome')}{':' + detail if detail else ''} last:{'/'.join(last) or '-'}"


def recap_lines(run):
    for host, counts in run['hosts'].items():
        yield (f"{host} changed={counts['changed']} failed={counts['failures']} unreachable={counts['unreachable']}"
               + ''.join(' ' + name for name in counts['failed']))


def main(command, *paths):
    if command == 'servers':
        fleet = json.loads(Path(paths[0]).read_text())
        lines = [server_line(server, Path(paths[1])) for server in fleet['servers']]
    elif command == 'updates':
        lines = [update_line(server) for server in json.loads(Path(paths[0]).read_text())['servers']]
    else:
        lines = recap_lines(json.loads(Path(paths[0]).read_text()))
    print('\n'.join(sorted(lines)))


if __name__ == '__main__':
    main(*sys.argv[1:])
