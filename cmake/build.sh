#!/usr/bin/env bash
# Builds a preset quietly: build.sh PRESET [TARGET...] installs what is missing, configures the
# first time, and builds all or the given targets. The output of it all goes to build/PRESET.log
# and is shown, on standard error, only when something fails.
set -euo pipefail
exec 1>&2
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=$1
shift

cmake/install-dependencies.sh
mkdir -p build
log=build/$preset.log
targets=()
[ $# -eq 0 ] || targets=(--target "$@")

build() {
    [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" || return 1
    cmake --build --preset "$preset" "${targets[@]}"
}

# Two of these at a time, such as two ./run, must not build in the same folder.
exec 9>"build/$preset.lock"
flock 9
[ -f "build/$preset/build.ninja" ] || echo "Building the $preset preset, which takes a few minutes."
if ! build </dev/null >"$log" 2>&1; then
    cat "$log"
    echo "The $preset build failed; the output above is in $log."
    exit 1
fi
