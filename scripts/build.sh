#!/usr/bin/env bash
# Installs what is missing, then configures and builds everything into ./build.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DQUILLARIUM_TESTS=ON -DQUILLARIUM_BENCH=ON >/dev/null
cmake --build build
