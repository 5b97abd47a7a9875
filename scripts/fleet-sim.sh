#!/usr/bin/env bash
# A simulated fleet of Fibre Channel servers that Ansible reaches over real SSH.
#
#   scripts/fleet-sim.sh start N DIR    start N servers, write DIR/inventory.ini and DIR/ssh_config
#   scripts/fleet-sim.sh stop DIR       end every process that start began (idempotent)
#
# Each server is the adapter simulator (sim/README.md) installed in its own
# sandbox/run (private overlays over /etc, /usr/sbin, /opt), in its own UTS
# namespace (host name fcsim-NN) and PID namespace (stop kills the whole
# server, including tools that hang), with qdmhost installed, a signed update
# repository in the default place (<root>/repository) whose key the server
# trusts, and sshd -D on a free port of 127.0.0.1 with host and client keys
# made for this run. Everything the run makes lives in DIR.
#
# Simulation knob: sshd gives every session QDMHOST_VIRTUAL_TIME=1, so that
# qdmhost announces its 30-second polls instead of waiting them out and
# shortens its own time-outs a hundredfold. A real fleet has no such setting.
#
# Roles by index (N >= 8; servers 09 and up are good). Models cycle by index
# (8G 1P, 8G 2P, 16G 2P, all three), versions by index (old, mid, current):
#
#   | server | role        | adapters                 | versions | what happens on update             |
#   |--------|-------------|--------------------------|----------|------------------------------------|
#   | 01     | good        | 8G 1P                    | old      | everything updated                 |
#   | 02     | good        | 8G 2P                    | mid      | everything updated                 |
#   | 03     | good        | 16G 2P                   | current  | nothing to do                      |
#   | 04     | good        | 8G 1P, 8G 2P, 16G 2P     | old      | everything updated                 |
#   | 05     | good        | 8G 1P                    | mid      | everything updated                 |
#   | 06     | refuse      | 8G 2P                    | old      | utility refused (exit 5): its configuration names a wrong port |
#   | 07     | unreachable | -                        | -        | nothing listens on its port        |
#   | 08     | hang        | 8G 1P, 8G 2P, 16G 2P     | old      | the firmware download (hbacmd Download, run without a time limit) hangs; the caller's time-out must end it |
#
# Fewer than 8 servers are all good. FLEET_SIM_ROLES="refuse refuse good ..."
# (one word per server, from good, refuse, hang, unreachable; missing words
# mean good) overrides the table for any N.
#
# FLEET_SIM_BUILD: the build tree (default: build/ of this checkout); its
# qdmsim is the simulator and, unless FLEET_SIM_DEB names a qdmhost .deb,
# cpack makes the package from it. Each server installs the package with
# dpkg -i; it is kept as DIR/qdmhost.deb (for rolling_update's qdmhost_deb).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/demo-server.sh

# The overlays a server needs: /etc (sshd, simulator links), /usr and /var
# (the package, dpkg's database, the adapter tool) and /opt (install root,
# simulator tools).
readonly SANDBOX=(sandbox/run --with /usr --with /var)

readonly MODELS=("8g1p" "8g2p" "16g" "8g1p 8g2p 16g")
readonly VERSIONS=(old mid current)
# Operating versions per version set: 8G firmware, 8G boot BIOS, 16G firmware, driver, utility.
declare -A VERSION_SETS=(
    [old]='{"fw8": "2.01a12", "bios8": "5.10a5", "fw16": "10.2.370.15", "driver": "11.2.156.27", "util": "10.2.370.16"}'
    [mid]='{"fw8": "2.02a4", "bios8": "5.12a2", "fw16": "11.2.156.27", "driver": "11.2.156.27", "util": "11.2.156.27"}'
    [current]='{"fw8": "2.02a5", "bios8": "5.12a3", "fw16": "11.4.204.8", "driver": "11.4.204.8", "util": "11.4.204.8"}'
)
readonly SESSION_PATH=/opt/qdmsim/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin

die() { echo "fleet-sim: $*" >&2; exit 1; }
usage() { die "usage: $0 start N DIR | stop DIR"; }

# role INDEX COUNT
role() {
    local index=$1 count=$2
    if [[ -n "${FLEET_SIM_ROLES:-}" ]]; then
        local -a roles
        read -r -a roles <<<"${FLEET_SIM_ROLES//,/ }"
        echo "${roles[index - 1]:-good}"
        return
    fi
    if ((count >= 8)); then
        case $index in
            6) echo refuse; return ;;
            7) echo unreachable; return ;;
            8) echo hang; return ;;
        esac
    fi
    echo good
}

# The server's simulator state: the demo server's adapters of the index's
# models, its versions, WWPNs and serial numbers made unique by the index.
#   server_state INDEX ROLE
server_state() {
    local index=$1 role=$2
    local versions=${VERSIONS[(index - 1) % 3]} models=${MODELS[(index - 1) % 4]}
    [[ $role == good ]] || versions=old   # a refusal or a hang needs something to update
    jq --arg host "$(printf 'fcsim-%02d' "$index")" --arg nn "$(printf '%02x' "$index")" \
        --arg models "$models" --argjson v "${VERSION_SETS[$versions]}" '
        .hostName = $host
        | .driverVersion = $v.driver | .utilityVersion = $v.util
        | .packages = ["elxocmcore-\($v.util)-1.x86_64", "lpfc-\($v.driver)-1.x86_64"]
        | .adapters |= [.[] | select(.kind as $k | $models | split(" ") | index($k))
            | del(.firmwareNote)
            | if .kind == "16g" then .firmware = $v.fw16 else .firmware = $v.fw8 | .bootBios = $v.bios8 end
            | .serial |= .[:-2] + $nn
            | .ports |= map(.wwpn |= (split(":") | .[6] = $nn | join(":")))]' sim/demo/server.json
}

# N free TCP ports of 127.0.0.1, one a line (held together while chosen, so they differ).
free_ports() {
    /usr/bin/python3 -c '
import socket, sys
held = [socket.socket() for _ in range(int(sys.argv[1]))]
for s in held:
    s.bind(("127.0.0.1", 0))
print("\n".join(str(s.getsockname()[1]) for s in held))' "$1"
}

# sshd_config of one server: its own port, keys, pid file; root by key only;
# the simulation's environment for every session.
#   write_sshd_config DIR NAME PORT
write_sshd_config() {
    local dir=$1 name=$2 port=$3
    cat >"$dir/$name/sshd_config" <<EOF
Port $port
ListenAddress 127.0.0.1
HostKey $dir/$name/ssh_host_ed25519_key
PidFile $dir/$name/sshd.pid
AuthorizedKeysFile $dir/authorized_keys
# DIR may lie below /tmp, which StrictModes refuses as a key's folder.
StrictModes no
PermitRootLogin prohibit-password
PubkeyAuthentication yes
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
PrintMotd no
Subsystem sftp internal-sftp
LogLevel ERROR
SetEnv QDMHOST_VIRTUAL_TIME=1 PATH=$SESSION_PATH
EOF
}

# Inside the server's namespaces and sandbox: host name, simulator, qdmhost,
# repository, trust, then sshd in the foreground.
#   fleet-sim.sh --server DIR NAME ROLE
serve() {
    local dir=$1 name=$2 role=$3 build=${FLEET_SIM_BUILD:-$PWD/build}
    hostname "$name"
    # Its own home for root: the real one's shell start-up files stay out of every session.
    mkdir -p "$dir/$name/root"
    local passwd
    passwd=$(awk -F: -v OFS=: -v home="$dir/$name/root" '$1 == "root" { $6 = home } 1' /etc/passwd)
    echo "$passwd" >/etc/passwd
    mount -t tmpfs -o mode=0755 fcsim-run /run   # sshd's privilege separation folder, private
    mkdir -p /run/sshd
    local config=good
    [[ $role == refuse ]] && config=broken-port
    "$build/sim/qdmsim" install --state "$dir/$name/state.json" --config "$config" >/dev/null
    [[ $role == hang ]] && "$build/sim/qdmsim" fault Download hang
    dpkg -i "$dir/qdmhost.deb" >/dev/null
    cp -r "$dir/repository" "$demo_root/repository"
    qdmhost trust add "$dir/publisher/minisign.pub" >/dev/null
    exec /usr/sbin/sshd -D -f "$dir/$name/sshd_config" -E "$dir/$name/sshd.log"
}

# Starts one server in the background; its outermost process's id goes to DIR/NAME/pid.
#   start_server DIR NAME ROLE
start_server() {
    local dir=$1 name=$2 role=$3
    ssh-keygen -q -t ed25519 -N '' -C "$name" -f "$dir/$name/ssh_host_ed25519_key"
    # --kill-child: when the outer unshare ends, the server's first process
    # gets SIGKILL, and with it every process of its PID namespace.
    TMPDIR=$dir/$name unshare --uts --pid --fork --kill-child --mount-proc -- \
        "${SANDBOX[@]}" "$PWD/scripts/fleet-sim.sh" --server "$dir" "$name" "$role" \
        </dev/null >>"$dir/$name/server.log" 2>&1 &
    echo $! >"$dir/$name/pid"
}

# Waits until every started server answers over SSH (at most 30 s each).
#   wait_for_servers DIR NAME...
wait_for_servers() {
    local dir=$1 name
    shift
    for name in "$@"; do
        local tries=0
        until ssh -F "$dir/ssh_config" -o ConnectTimeout=2 -o BatchMode=yes "$name" true </dev/null 2>/dev/null; do
            ((++tries < 150)) || die "$name did not come up; see $dir/$name/server.log and sshd.log"
            kill -0 "$(cat "$dir/$name/pid")" 2>/dev/null || die "$name ended; see $dir/$name/server.log"
            sleep 0.2
        done
    done
}

# DIR/qdmhost.deb: FLEET_SIM_DEB, else the package made from the build tree.
make_package() {
    local dir=$1 build=${FLEET_SIM_BUILD:-$PWD/build}
    if [[ -n ${FLEET_SIM_DEB:-} ]]; then
        cp "$FLEET_SIM_DEB" "$dir/qdmhost.deb"
        return
    fi
    [[ -e $build/CPackConfig.cmake ]] || die "$build is not configured; build it, or set FLEET_SIM_DEB"
    cpack --config "$build/CPackConfig.cmake" -B "$dir/package" >"$dir/package.log" 2>&1 ||
        die "cpack failed: see $dir/package.log"
    cp "$dir"/package/qdmhost_*.deb "$dir/qdmhost.deb"
    rm -rf "$dir/package"
    dpkg-deb --contents "$dir/qdmhost.deb" | grep ' \./usr/sbin/qdmhost$' >/dev/null ||
        die "the package has no /usr/sbin/qdmhost: configure $build with -DCMAKE_INSTALL_PREFIX=/usr"
}

# The publisher key of the run and the signed repository every server gets.
make_repository() {
    local dir=$1 qdmsim=${FLEET_SIM_BUILD:-$PWD/build}/sim/qdmsim
    mkdir -p "$dir/publisher"
    minisign -G -W -p "$dir/publisher/minisign.pub" -s "$dir/publisher/minisign.key" </dev/null >/dev/null
    demo_build_repository "$qdmsim" "$dir/repository" >/dev/null
    demo_sign_repository "$dir/publisher" "$dir/repository" >/dev/null
}

start() {
    local count=$1 dir
    [[ $count =~ ^[1-9][0-9]*$ ]] || usage
    mkdir -p "$2"
    dir=$(cd "$2" && pwd)
    [[ ! -e $dir/inventory.ini ]] || die "$dir holds a fleet already; stop it and use a fresh folder"
    local build=${FLEET_SIM_BUILD:-$PWD/build}
    [[ -x $build/sim/qdmsim ]] || die "$build/sim/qdmsim missing: build first"
    # A start that fails half-way leaves nothing running (DIR expanded now: it is local).
    # shellcheck disable=SC2064
    trap "stop $(printf %q "$dir")" EXIT
    make_package "$dir"
    make_repository "$dir"
    ssh-keygen -q -t ed25519 -N '' -C fleet-sim-client -f "$dir/client_key"
    cp "$dir/client_key.pub" "$dir/authorized_keys"
    : >"$dir/known_hosts"
    : >"$dir/ssh_config"
    mkdir -p "$dir/control"
    local -a ports started=()
    mapfile -t ports < <(free_ports "$count")
    printf '[fc_servers]\n' >"$dir/inventory.ini"
    local index
    for ((index = 1; index <= count; index++)); do
        local name role port=${ports[index - 1]}
        name=$(printf 'fcsim-%02d' "$index")
        role=$(role "$index" "$count")
        mkdir -p "$dir/$name"
        echo "$role" >"$dir/$name/role"
        printf '%s ansible_port=%s\n' "$name" "$port" >>"$dir/inventory.ini"
        printf 'Host %s\n  HostName 127.0.0.1\n  Port %s\n\n' "$name" "$port" >>"$dir/ssh_config"
        [[ $role == unreachable ]] && continue
        server_state "$index" "$role" >"$dir/$name/state.json"
        write_sshd_config "$dir" "$name" "$port"
        start_server "$dir" "$name" "$role"
        printf '[127.0.0.1]:%s %s\n' "$port" "$(cut -d' ' -f1,2 "$dir/$name/ssh_host_ed25519_key.pub")" >>"$dir/known_hosts"
        started+=("$name")
    done
    write_client_settings "$dir"
    wait_for_servers "$dir" "${started[@]}"
    trap - EXIT
    echo "fleet-sim: $count servers up; inventory $dir/inventory.ini, ssh -F $dir/ssh_config fcsim-01"
}

# The controller's side: inventory group variables and an ssh_config for
# manual logins, both with the run's client key and known hosts.
write_client_settings() {
    local dir=$1
    cat >>"$dir/ssh_config" <<EOF
Host fcsim-*
  User root
  IdentityFile $dir/client_key
  IdentitiesOnly yes
  UserKnownHostsFile $dir/known_hosts
  StrictHostKeyChecking yes
EOF
    cat >>"$dir/inventory.ini" <<EOF

[fc_servers:vars]
ansible_host=127.0.0.1
ansible_user=root
ansible_ssh_private_key_file=$dir/client_key
ansible_ssh_common_args='-o UserKnownHostsFile=$dir/known_hosts -o StrictHostKeyChecking=yes -o IdentitiesOnly=yes -o ConnectTimeout=10'
ansible_control_path_dir=$dir/control
ansible_pipelining=true
ansible_python_interpreter=/usr/bin/python3
EOF
}

# True while PID is a live process of this script's servers (a zombie's
# command line is empty; the id may also have been reused since).
is_server_process() { grep -qF -- "--server" "/proc/$1/cmdline" 2>/dev/null; }

# Kills each server's outer process; its PID namespace dies with it, all at
# once once the namespace's first process is gone, which is waited for. Then
# removes what the sandboxes left: their empty scratch folders.
stop() {
    local dir=$1 pidfile
    [[ -d $dir ]] || return 0
    for pidfile in "$dir"/fcsim-*/pid; do
        [[ -e $pidfile ]] || continue
        local pid first
        pid=$(cat "$pidfile")
        if is_server_process "$pid"; then
            first=$(cat "/proc/$pid/task/$pid/children" 2>/dev/null || true)
            kill -KILL "$pid" 2>/dev/null || true
            for _ in $(seq 200); do is_server_process "${first:-$pid}" || break; sleep 0.05; done
        fi
        rm -f "$pidfile"
        rmdir "$(dirname "$pidfile")"/qdmsandbox.* 2>/dev/null || true
    done
}

case "${1:-}" in
    start) [[ $# -eq 3 ]] || usage; start "$2" "$3" ;;
    stop) [[ $# -eq 2 ]] || usage; stop "$2" ;;
    --server) shift; serve "$@" ;;
    *) usage ;;
esac
