#!/bin/sh
# Breaks the code on purpose and looks whether the tests notice: tests/mutation.sh [library|service] [--count N] [--seed N]
exec python3 "$(dirname "$0")/mutation.py" "$@"
