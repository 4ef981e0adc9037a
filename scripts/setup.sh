#!/usr/bin/env bash
# Installs the Debian packages the build needs, and nothing when they are all there. Extra
# package names on the command line are installed as well (the tests add the readers they use).
set -euo pipefail
packages=(g++ cmake ninja-build pkg-config make libopenblas-dev liblapacke-dev
          libgtest-dev libgmock-dev libbenchmark-dev libmetis-dev "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q </dev/null
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null
fi
