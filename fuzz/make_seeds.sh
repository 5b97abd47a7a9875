#!/bin/bash
# Rewrites the seeds that come from the simulator and the golden files:
#   fuzz/make_seeds.sh QDMSIM_BINARY
# The hand-made seeds beside them (hostile archives, encoded WWPNs, version
# pairs, message files, CR/LF and long lines, huge counts) are kept. Targets
# that split their input with FuzzedDataProvider read strings from the front
# (a backslash and a line feed end one) and numbers from the last bytes.
set -euo pipefail
sim=$(realpath "$1")
fuzz=$(cd "$(dirname "$0")" && pwd)
corpus=$fuzz/corpus
QDMSIM_STATE=$(mktemp)
export QDMSIM_STATE
trap 'rm -f "$QDMSIM_STATE"' EXIT
cp "$fuzz/../sim/demo/server.json" "$QDMSIM_STATE"

# Listing: keys, tags and separator, the listing, then index, function, device and bus.
listing() { { printf 'Port WWN|Permanent MAC\\\nManageable HBA List\\\n:\\\n'; cat; printf '%b' "$1"; } >"$corpus/fuzz_listing/$2"; }
"$sim" hbacmd listhbas | listing '\0000\0001\0000\0005' demo_bus5_fn1
# The golden listings hold the tool's error outputs too.
for file in "$fuzz"/../tests/golden/listhbas/*.txt; do listing '\0000\0001\0000\0004' "golden_$(basename "$file" .txt)" <"$file"; done
# INI files: section, key, the file, then the buffer size.
for ini in "$fuzz"/../tests/golden/ini/*.ini "$fuzz"/../provider/data/*.ini; do
    { printf 'SuportDevice\\\nDevice1\\\n'; cat "$ini"; printf '\001\000'; } >"$corpus/fuzz_profile/$(basename "$(dirname "$ini")")_$(basename "$ini")"
done
# Configuration files: the text, then the flag before and the file (1: discovery).
for variant in good broken-port commented missing; do
    { "$sim" config disc --config "$variant"; printf '\000\001'; } >"$corpus/fuzz_ocm_config/disc_$variant"
    { "$sim" config rm --config "$variant"; printf '\001\000'; } >"$corpus/fuzz_ocm_config/rm_$variant"
done
# Update modules as the simulator builds them.
"$sim" build-firmware --out "$corpus/fuzz_unzip/sim_firmware_16g" --name fcelx_16g --message
"$sim" build-firmware --out "$corpus/fuzz_unzip/sim_firmware_8g" --name fcelx_8g2p_10df_f100_10df_f100 --duplicate bootbios
"$sim" build-driver --out "$corpus/fuzz_unzip/sim_driver" --version 11.4.204.8
"$sim" build-utility --out "$corpus/fuzz_unzip/sim_utility" --version 10.2.370.20
