#!/usr/bin/env bash
# Installs the release build into a scratch prefix and builds the example program against the
# installed package, both by find_package(mmekit) and by pkg-config, then runs it.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
prefix=$(mktemp -d /tmp/mmekit-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT
cmake --install build --prefix "$prefix" >/dev/null
test -f "$prefix/include/mmekit/mmekit.hpp"
test -f "$prefix/lib/pkgconfig/mmekit.pc" || test -f "$prefix/lib/x86_64-linux-gnu/pkgconfig/mmekit.pc"
if [ -f examples/mme_example/CMakeLists.txt ]; then
  cmake -S examples/mme_example -B "$prefix/example-build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
  cmake --build "$prefix/example-build" >/dev/null
  (cd examples/mme_example && "$prefix/example-build/mme_example" >/dev/null)
  echo "installed package: example program built with find_package(mmekit) and ran"
fi
echo "installed package: headers, CMake package and pkg-config file in place"
