#!/usr/bin/env bash
# Installs what the build, the tests, the demo and the tools need on a Debian
# machine. Installs only what is missing; needs root (or sudo) for apt-get.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config coreutils dpkg mount python3-minimal
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libpugixml-dev libinih-dev libarchive-dev libsystemd-dev nlohmann-json3-dev libcli11-dev libsodium-dev minisign
  clang libclang-rt-14-dev valgrind util-linux procps python3 time gcovr ccache
  chromium python3-jinja2 python3-jsonschema
  help2man dpkg-dev file lintian pciutils systemd rpm rpmlint rpm2cpio cpio binutils
  prometheus prometheus-node-exporter curl
  openssh-server openssh-client ansible-core jq
  ansible-lint yamllint python3-apt
  shellcheck clang-tidy clang-format
)
# openssh-server may start the system's sshd on port 22: harmless, the
# simulated fleet runs its own sshd instances on free ports of 127.0.0.1.

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
