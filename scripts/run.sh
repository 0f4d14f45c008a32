#!/usr/bin/env bash
# Installs what is missing, builds Clarovi and starts it on the bundled sample photo
# (or on the picture given as the first argument).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target clarovi clarovi-cli
picture=${1:-data/coffee-defocus.png}
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display to show the window on; without one, use build/src/cli/clarovi-cli --help."
  exit 1
fi
exec build/src/app/clarovi "$picture"
