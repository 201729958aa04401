#!/usr/bin/env bash
# Installs every system package the build needs, then configures and builds Release into build/.
set -euo pipefail
cd "$(dirname "$0")/.."

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends \
  cmake g++ make pkg-config \
  googletest libgtest-dev libgmock-dev libbenchmark-dev \
  libxerces-c-dev nlohmann-json3-dev libassimp-dev binutils

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j2
