# shellcheck shell=bash
# Sourced by every test, demo and benchmark that runs Ansible. Only
# ansible-core and the project's own collection are found: a collection
# installed on the machine by hand can never make a run pass here that fails
# on a fresh machine.
#   source scripts/ansible-env.sh; ansible_env STATE_DIR
ansible_env() {
    local repo
    repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    export ANSIBLE_COLLECTIONS_PATH=$repo/ansible ANSIBLE_COLLECTIONS_SCAN_SYS_PATH=false \
        ANSIBLE_HOME=$1 ANSIBLE_LOCAL_TEMP=$1/tmp ANSIBLE_RETRY_FILES_ENABLED=0
}
