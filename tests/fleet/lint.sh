#!/usr/bin/env bash
# The collection as its users meet it: yamllint and ansible-lint (production
# profile) clean, ansible-doc shows both modules, both playbooks parse.
#   lint.sh
set -euo pipefail
source "$(dirname "$0")/../tools.sh"
need yamllint ansible-lint ansible-doc ansible-playbook
repo=$(cd "$(dirname "$0")/../.." && pwd)
collection=$repo/ansible/ansible_collections/velmora/fc
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
source "$repo/scripts/ansible-env.sh"
ansible_env "$home"
export XDG_CACHE_HOME=$home/cache PYTHONDONTWRITEBYTECODE=1 ANSIBLE_NOCOLOR=1 NO_COLOR=1

# Every script that runs Ansible finds only ansible-core and this collection.
unisolated=$(cd "$repo" && grep -lE '(^|[[:space:](])ansible(-playbook|-doc|-lint)?[[:space:]]' \
    tests/*/*.sh scripts/*.sh bench/*.sh | grep -v setup-deps.sh | xargs grep -L '^ *ansible_env ' || true)
[[ -z $unisolated ]] || { echo "runs Ansible without scripts/ansible-env.sh: $unisolated" >&2; exit 1; }

(cd "$collection" && yamllint --strict . && ansible-lint --offline --profile production)
for module in fc_info fc_update; do
    doc=$(ansible-doc "velmora.fc.$module")
    for section in OPTIONS EXAMPLES "RETURN VALUES"; do
        grep -q "^$section" <<<"$doc" || { echo "ansible-doc velmora.fc.$module: no $section" >&2; exit 1; }
    done
done
for playbook in fleet_inventory rolling_update; do
    (cd "$home" && ansible-playbook --syntax-check -i localhost, "velmora.fc.$playbook")
done
