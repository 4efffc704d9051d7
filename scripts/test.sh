#!/usr/bin/env bash
# Builds everything and runs every test. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/build.sh
# Tests choose their own language and settings; keep the user's out of them.
export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure --timeout 600 -j "$(nproc)"
