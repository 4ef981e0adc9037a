#!/usr/bin/env bash
# Installs the release build into a scratch prefix and builds two consumers of the installed
# package: the example program by find_package(mmekit), in a project that sets no C++ level of
# its own, and a program by pkg-config alone that reaches the sparse Cholesky package through
# the inversion routes and the Krylov block preconditioner. Both are run.
set -euo pipefail
cd "$(dirname "$0")/.."
prefix=$(mktemp -d /tmp/mmekit-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT
cmake --install "${MMEKIT_BUILD_DIR:-build}" --prefix "$prefix" >/dev/null
test -f "$prefix/include/mmekit/mmekit.hpp"
# Only <mmekit/...> is reachable: no folder of the library sits directly on the include path.
test ! -e "$prefix/include/sparse"

cmake -S examples/mme_example -B "$prefix/example-build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/example-build" >/dev/null
(cd "$prefix" && "$prefix/example-build/mme_example" >/dev/null)
echo "installed package: example program built with find_package(mmekit) and ran"

pcdir=$(dirname "$(find "$prefix" -name mmekit.pc | head -n 1)")
# shellcheck disable=SC2046
c++ -o "$prefix/pkgconfig_consumer" tests/install/pkgconfig_consumer.cpp \
    $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs mmekit)
test "$(cd "$prefix" && ./pkgconfig_consumer | tail -n 1)" = ok
echo "installed package: pkg-config consumer of route 8 and the block preconditioner built and ran"
