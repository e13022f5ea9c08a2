#!/usr/bin/env bash
# The daemon on a private system-type bus, its platform state in .demo/, until Ctrl-C.
# Other shells reach it with the DBUS_SYSTEM_BUS_ADDRESS and QUILLON_PLATFORM_ROOT printed.
set -euo pipefail
bin=$(cd "${1:-build/bin}" && pwd)
source "$(dirname "$0")/devbus.sh"
state="$QUILLON_SOURCE_DIR/.demo"
mkdir -p "$state/root"
export QUILLON_PLATFORM_ROOT="$state/root"
devbus_start "$state"
trap devbus_stop EXIT
"$bin/quillon-platform" init
"$bin/quillon-platform" register-app org.nuvak.quillon-ux "$bin/quillon-ux"
# With a display the prompt is its window; without one it answers by script (allow, unless
# QUILLON_UX_ANSWER says otherwise), so a request still ends in a verdict.
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    unset QUILLON_UX_ANSWER
    prompt="a window on ${DISPLAY:-$WAYLAND_DISPLAY}"
else
    export QUILLON_UX_ANSWER="${QUILLON_UX_ANSWER:-allow}"
    prompt="by script: QUILLON_UX_ANSWER=$QUILLON_UX_ANSWER (no display)"
fi
cat <<MSG
Quillon is starting; a new device is asked about with $prompt. In another shell:
  export DBUS_SYSTEM_BUS_ADDRESS='$DBUS_SYSTEM_BUS_ADDRESS'
  export QUILLON_PLATFORM_ROOT='$QUILLON_PLATFORM_ROOT'
  $bin/quillonctl list
  $bin/quillonctl request --name Phone --bt AA:BB:CC:DD:EE:01
Ctrl-C stops it.
MSG
"$bin/quillon" || true
