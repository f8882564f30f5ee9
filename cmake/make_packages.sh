#!/usr/bin/env bash
# make_packages.sh BUILD_FOLDER PACKAGE_FOLDER
#
# Makes the Debian packages of what is built and prints where they are. Packages of an
# earlier version go.
set -euo pipefail

build=$1
packages=$2
mkdir -p "$packages"
rm -f "$packages"/*.deb
if ! output=$(cpack --config "$build/CPackConfig.cmake" -B "$packages" 2>&1); then
    printf '%s\n' "$output" >&2
    exit 1
fi
rm -rf "$packages/_CPack_Packages"
ls "$packages"/*.deb
