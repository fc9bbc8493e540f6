#!/bin/sh
# What a rig does: pip install into an environment of its own, without a network, and its own tests with tavo_device.
#   installed.sh PYTHON    TAVO_BUILD in the environment: the build to take it from, instead of a new one
set -eu
python=$1
tree=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset PYTHONPATH
export PYTHONDONTWRITEBYTECODE=1
"$python" -m venv --system-site-packages "$work/rig"
python=$work/rig/bin/python3
"$python" -m pip --disable-pip-version-check install -q --no-index --no-build-isolation --no-deps --no-compile "$tree"
left=$(find "$tree" -maxdepth 2 -not -path "$tree/build/*" \( -name '*.egg-info' -o -name '*.dist-info' \))
[ -z "$left" ] || { echo "installed.sh: $left is left in the tree" >&2; exit 1; }

cp "$tree/tests/python/rig/test_rig.py" "$work"
cd "$work"
"$python" -m pytest -q -p no:cacheprovider
"$python" -m pytest -q -p no:cacheprovider -p tavo_util.pytest_plugin --collect-only >log || { cat log; exit 1; }  # asked for, too
