#!/usr/bin/env bash
# qdmhost metrics on the demo server: promtool accepts the file of a normal
# run, of a run with hostile label values (a WWPN and a boot BIOS version
# garbled with quotes and backslashes) and of a failed run; a real
# node_exporter on 127.0.0.1 serves every series with the values escaped as
# written. Its --json documents go to DOCUMENTS for the schema check.
#   sandbox/run tests/metrics/metrics_test.sh QDMHOST QDMSIM DOCUMENTS
set -euo pipefail
qdmhost=$1 qdmsim=$2 documents=$3
cd "$(dirname "$0")/../.."
source tests/tools.sh
need promtool prometheus-node-exporter curl minisign /usr/bin/python3
source scripts/demo-server.sh
work=$(mktemp -d "${TMPDIR:-/tmp}/qdmmetrics.XXXXXX")
exporter=""
trap 'set +e; [[ -z $exporter ]] || kill "$exporter"; wait; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
export QDMHOST_VIRTUAL_TIME=1
prom=$work/textfile/qdmhost.prom
mkdir -p "$work/textfile" "$documents"

demo_install_server "$qdmsim" "$work" >/dev/null
demo_build_repository "$qdmsim" "$work/repo" >/dev/null
demo_publisher_key "$qdmhost" "$work/keys" >/dev/null
demo_sign_repository "$work/keys" "$work/repo" >/dev/null

# Runs metrics, checks its exit code and has promtool check the file.
#   metrics EXIT_CODE
runs=0
metrics() {
    local status=0 document=$documents/metrics-$$-$((runs += 1)).json
    "$qdmhost" --json --repo "$work/repo" metrics --textfile "$work/textfile" >"$document" 2>"$work/stderr" ||
        status=$?
    [[ $status -eq $1 ]] || fail "metrics exited $status, not $1: $(cat "$document" "$work/stderr")"
    promtool check metrics <"$prom" || fail "promtool refused $(cat "$prom")"
}
# expect x LINE...: whole lines of the file; expect '' TEXT...: texts in it.
expect() { local how=$1; shift; for text; do grep -q"$how"F -- "$text" "$prom" || fail "no $text in $(cat "$prom")"; done; }

# The last of two updates of a module counts.
cat >"$demo_root/qdmhost/history.jsonl" <<'JSONL'
{"time": "2026-01-02T03:04:05Z", "deviceId": "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF", "wwpn": "10000090FAC30001", "kind": "firm", "outcome": "failed"}
{"time": "2026-01-02T04:00:00Z", "deviceId": "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF", "wwpn": "10000090FAC30001", "kind": "firm", "outcome": "updated"}
JSONL
metrics 0
port='pci_address="0000:03:00.0",port="10000000C9A10001"'
expect x "qdmhost_module_status{kind=\"firm\",model=\"fcelx_8g1p\",$port,status=\"older\"} 1" \
    "qdmhost_module_info{kind=\"driver\",model=\"fcelx_8g1p\",operating_version=\"11.2.156.27\",$port,repository_version=\"11.4.204.8\"} 1" \
    "qdmhost_utility_check{model=\"fcelx_8g1p\",$port,result=\"passed\"} 1" \
    'qdmhost_last_update_timestamp_seconds{kind="firm",pci_address="0000:05:00.0",port="10000090FAC30001"} 1767326400' \
    'qdmhost_last_update_success{kind="firm",outcome="updated",pci_address="0000:05:00.0",port="10000090FAC30001"} 1' \
    'qdmhost_repository_status{reason="ok"} 1' 'qdmhost_metrics_success 1'

# The tool reports a garbled WWPN (no WWPN: left out) and boot BIOS version; the cached readings go.
"$qdmsim" state set /adapters/2/ports/1/wwpn '10:00:00:90:fa:c3:"q\b'
"$qdmsim" state set /adapters/2/bootBios '5.12"a\3'
rm -rf "$demo_root/tmp/EMULEX/cache"
metrics 0
expect '' 'pci_address="0000:05:00.1",port=""' 'boot_bios_version="5.12\"a\\3"'

exporter_port=$(/usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
prometheus-node-exporter --web.listen-address="127.0.0.1:$exporter_port" --collector.disable-defaults \
    --collector.textfile --collector.textfile.directory="$work/textfile" 2>"$work/exporter.log" &
exporter=$!
for _ in $(seq 100); do curl -sf "http://127.0.0.1:$exporter_port/metrics" >"$work/served" && break; sleep 0.1; done
grep -qx 'node_textfile_scrape_error 0' "$work/served" || fail "node_exporter: $(cat "$work/exporter.log")"
# Every sample is served with the same name and labels (values may be formatted differently).
samples() { grep '^qdmhost_' "$1" | sed 's/ [^ ]*$//' | sort; }
diff <(samples "$prom") <(samples "$work/served") || fail "node_exporter serves other series"

# No supported adapter: the file still says so, and the exit code too.
rm "$demo_root/qdmhost/devices.json"
metrics 9
expect x 'qdmhost_metrics_error_info{exit_code="9",name="no-device"} 1' 'qdmhost_metrics_success 0'
echo "metrics: normal, hostile and failed runs pass promtool; node_exporter serves them"
