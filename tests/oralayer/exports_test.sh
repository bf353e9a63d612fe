#!/bin/sh
# The library exports the entry points of its JNI headers and nothing else, and finds its client
# library by name beside itself unless LD_LIBRARY_PATH says otherwise.
# usage: exports_test.sh LIBORALAYER STUBS_FOLDER
set -eu
library=$1
declared=$(grep -ho 'Java_trevalon_[A-Za-z0-9_]*' "$2"/*.h | sort -u)
exported=$(nm -D --defined-only "$library" | awk '{ print $3 }' | sort -u)
if [ "$declared" != "$exported" ]; then
  echo "declared (<) and exported (>) symbols differ:"
  echo "$declared" > "$library.declared"
  echo "$exported" | diff "$library.declared" - || true
  exit 1
fi
dynamic=$(readelf -d "$library")
expect() {
  echo "$dynamic" | grep -qF "$1" || { echo "missing: $1"; exit 1; }
}
expect 'Shared library: [libclntsh.so.8.0]'
expect 'Library runpath: [$ORIGIN]'
if echo "$dynamic" | grep -q '(RPATH)'; then
  echo "RPATH would hide LD_LIBRARY_PATH"
  exit 1
fi
