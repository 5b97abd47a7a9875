#!/bin/sh
# Fails unless the provider library exports exactly its two entry points:
# GetVendorFactory under its plain name and ReleaseVendor under its C++ symbol.
set -eu
library="$1"
exported=$(nm -D --defined-only "$library" | awk '{ print $NF }' | sort)
expected=$(printf '%s\n' GetVendorFactory _Z13ReleaseVendorPv | sort)
if [ "$exported" != "$expected" ]; then
    echo "unexpected exports of $library:" >&2
    echo "$exported" >&2
    exit 1
fi
