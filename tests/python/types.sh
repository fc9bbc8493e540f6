#!/bin/sh
# The package's types hold: mypy --strict on it and on the examples, and the stubs are what the modules have.
#   types.sh PYTHON    with the package on PYTHONPATH
set -eu
python=$1
cd "$(dirname "$0")/../.."
cache=$(mktemp -d)
trap 'rm -rf "$cache"' EXIT
export MYPYPATH="$PYTHONPATH"
"$python" -m mypy --strict --cache-dir "$cache" -p tavo_util
"$python" -m mypy --strict --cache-dir "$cache" --scripts-are-modules python/examples/*.py
# Of what is no Python: its metaclass is pybind11's, and a buffer has no other word than __bytes__ before Python 3.12.
cat >"$cache/allowed" <<END
tavo_util\\._core\\.(Image|Device)
tavo_util\\._core\\.Image\\.__bytes__
tavo_util\\._core\\.Device\\.__init__
END
cd "$cache"
"$python" -m mypy.stubtest --allowlist "$cache/allowed" tavo_util._core tavo_util._sim
