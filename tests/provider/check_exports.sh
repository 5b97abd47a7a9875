#!/bin/sh
# Fails unless the provider library exports exactly its two entry points:
# GetVendorFactory under its plain name and ReleaseVendor under its C++ symbol.
set -eu
exported=$(nm -D --defined-only "$1" | awk '{ print $NF }' | LC_ALL=C sort | tr '\n' ' ')
[ "$exported" = "GetVendorFactory _Z13ReleaseVendorPv " ] || { echo "unexpected exports of $1: $exported" >&2; exit 1; }
