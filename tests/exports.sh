#!/bin/sh
# The library exports exactly the names in exports.txt: a name that goes missing breaks host programs,
# one that slips out becomes a promise.
#   exports.sh LIBRARY
set -eu
list=$(dirname "$0")/exports.txt
nm -D --defined-only -C "$1" |
  sed -E 's/^[0-9a-f]+ [A-Za-z] //; /^TAVO_UTIL_API_0$/d; s/@@TAVO_UTIL_API_0$//; s/\[abi:cxx11\]//; s/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g; s/std::basic_ofstream<char, std::char_traits<char> >/std::ofstream/g' |
  LC_ALL=C sort -u | diff -u "$list" -
