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
cat <<MSG
Quillon is starting. In another shell:
  export DBUS_SYSTEM_BUS_ADDRESS='$DBUS_SYSTEM_BUS_ADDRESS'
  export QUILLON_PLATFORM_ROOT='$QUILLON_PLATFORM_ROOT'
  $bin/quillonctl list
Ctrl-C stops it.
MSG
"$bin/quillon" || true
