#!/usr/bin/env bash
# The promise of the kit: install the host framework alone, build the module alone against it, and
# load it. install_kit.sh SOURCE DRIVER_HOST [CMake options for both builds]
set -euo pipefail
source=$1
driver_host=$2
shift 2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
options=(-G Ninja -DBUILD_TESTING=OFF "$@")

cmake -S "$source/host" -B "$scratch/host" "${options[@]}" -DCMAKE_INSTALL_PREFIX="$scratch/kit"
cmake --build "$scratch/host"
cmake --install "$scratch/host"

cmake -S "$source/plugins/p_driver_modbus" -B "$scratch/module" "${options[@]}" \
    -DCMAKE_PREFIX_PATH="$scratch/kit" -DCMAKE_INSTALL_PREFIX="$scratch/kit"
grep "HostFramework_DIR:PATH=$scratch/kit/" "$scratch/module/CMakeCache.txt"
cmake --build "$scratch/module"
cmake --install "$scratch/module"

"$driver_host" --plugin "$scratch"/kit/lib*/plugins/libp_driver_modbus.so info
