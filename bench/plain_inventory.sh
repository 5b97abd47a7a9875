#!/usr/bin/env bash
# The inventory that qdmhost makes of a server, done with the bare tool calls:
# one listing, one attribute query per port, one version query. The yardstick
# against which bench/run.sh weighs the host's and the provider's overhead.
#
#   bench/plain_inventory.sh WORKDIR
#
# Tool outputs are kept in WORKDIR as the provider keeps them; values are
# picked out with shell built-ins only, so the script starts no process but
# the tool itself.
set -euo pipefail

hbacmd=${HBACMD:-/usr/sbin/ocmanager/hbacmd}
work=${1:?usage: plain_inventory.sh WORKDIR}
mkdir -p "$work"

# Sets VAR to the trimmed text behind the first ":" of the first line of FILE
# holding KEY ("abnormal" when there is none). No command substitution: that
# would fork a subshell.
value_of() {
    local var=$1 key=$2 file=$3 line value
    while IFS= read -r line; do
        [[ $line == *"$key"* && $line == *:* ]] || continue
        read -r value <<<"${line#*:}"
        printf -v "$var" '%s' "$value"
        return 0
    done <"$file"
    printf -v "$var" 'abnormal'
}

listing=$work/Listhbas.txt
"$hbacmd" listhbas >"$listing"

wwpns=()
while IFS= read -r line; do
    [[ $line == "Port WWN"* ]] && { read -r wwpn <<<"${line#*:}"; wwpns+=("$wwpn"); }
done <"$listing"

version_file=$work/HbaVersion.txt
"$hbacmd" version >"$version_file" || true
value_of utility "Command Line Interface Version" "$version_file"
utility=${utility%% *}

printf '%-24s %-14s %-14s %-14s %s\n' WWPN firmware bootbios driver utility
firmware="" bootbios="" driver=""  # set by value_of
for wwpn in "${wwpns[@]}"; do
    attributes=$work/HbaAttrib${wwpn//:/-}.txt
    "$hbacmd" HbaAttributes "$wwpn" >"$attributes"
    value_of firmware "FW Version" "$attributes"
    value_of bootbios "Boot Version" "$attributes"
    value_of driver "Driver Version" "$attributes"
    printf '%-24s %-14s %-14s %-14s %s\n' "$wwpn" "${firmware%% *}" "$bootbios" "${driver%%;*}" "$utility"
done
