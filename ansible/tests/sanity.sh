#!/bin/sh
# Every sanity test of ansible-test that needs nothing from the network, and, by the same programs of Debian's packages,
# those for which ansible-test would fetch its own: arguments against documentation, YAML and Python style.
set -eu
cd "$(dirname "$0")/.."

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
collection=$folder/ansible_collections/tavo/util
mkdir -p "$collection"
cp -r . "$collection"
cd "$collection"
export ANSIBLE_COLLECTIONS_PATH="$folder" HOME="$folder" LC_ALL=C.UTF-8 PYTHONDONTWRITEBYTECODE=1

say() {
  echo "ansible/tests/sanity.sh: $1" >&2
  exit 1
}

skipped=$(for test in ansible-doc import pep8 pylint runtime-metadata validate-modules yamllint; do echo "--skip-test $test"; done)
# shellcheck disable=SC2086  # a list of words
ansible-test sanity --color no --local --python 3.11 $skipped >log 2>&1 || { cat log >&2; say "ansible-test found something"; }

tests=/usr/lib/python3/dist-packages/ansible_test/_util/controller/sanity
/usr/bin/python3 "$tests/validate-modules/validate.py" --arg-spec --collection ansible_collections/tavo/util \
  --collection-version 0.1.0 plugins/modules/*.py >log 2>&1 || true  # the missing GPL header of MIT modules, at least
[ "$(grep -c missing-gplv3-license log)" = "$(find plugins/modules -name '*.py' | wc -l)" ] || { cat log >&2; say "validate-modules did not run"; }
! grep -v missing-gplv3-license log >&2 || say "validate-modules found the above"
/usr/bin/python3 "$tests/code-smell/runtime-metadata.py" meta/runtime.yml >log 2>&1
[ ! -s log ] || { cat log >&2; say "meta/runtime.yml is not as it has to be"; }
printf -- '- hosts: all\n  roles: [tavo.util.install]\n' >role.yml
ansible-playbook --syntax-check -i localhost, role.yml playbooks/update.yml >log 2>&1 || { cat log >&2; say "a playbook or the role is wrong"; }
rm role.yml
pycodestyle --max-line-length 160 --ignore "$(paste -sd, "$tests/pep8/current-ignore.txt")" plugins
# Left out: schema wants a number where Ansible takes a template; run-once is about the strategy free, which nothing here has.
ansible-lint --offline -q --nocolor --skip-list schema,run-once playbooks/update.yml roles/install 2>log || { cat log >&2; say "ansible-lint found the above"; }
yamllint --strict -c "$tests/yamllint/config/default.yml" .
