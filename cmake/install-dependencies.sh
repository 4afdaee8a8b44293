#!/usr/bin/env bash
# Installs what is missing of the Debian 12 packages that this tree is built with, and with
# install-dependencies.sh --tests|--checks|--bench of those that the tests, the checks of .ci/run (and
# with them the tests) or the benchmarks need as well. What the tests need of npm it puts to
# build/node.
# Says nothing when nothing is missing, and never writes to standard output.
set -euo pipefail
exec 1>&2
cd "$(dirname "${BASH_SOURCE[0]}")/.."

packages=(g++ cmake ninja-build qtbase5-dev libqt5serialbus5-dev libqt5serialport5-dev libmodbus-dev
          libcli11-dev libgnutls28-dev libssl-dev libmimalloc-dev pkg-config python3)
tests=(iproute2 groff-base dpkg-dev file mosquitto mosquitto-clients python3-paho-mqtt python3-pyte
       openssl socat python3-pymodbus python3-serial python3-serial-asyncio)
case "${1:-}" in
    --tests) packages+=("${tests[@]}") ;;
    --checks) packages+=("${tests[@]}" clang clang-tidy clang-format libclang-rt-14-dev libbenchmark-dev) ;;
    --bench) packages+=(valgrind strace libbenchmark-dev python3-matplotlib) ;;
esac

tested=false
[[ "${1:-}" != --tests && "${1:-}" != --checks ]] || tested=true
if $tested && ! command -v npm >/dev/null; then
    packages+=(nodejs npm)
fi

missing=()
for package in "${packages[@]}"; do
    dpkg -s "$package" 2>/dev/null | grep -q '^Status: install ok installed$' || missing+=("$package")
done

install_packages() {
    as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "These Debian packages are missing: ${missing[*]}"
            echo "Run this as root, install sudo, or install them yourself: apt-get install ${missing[*]}"
            exit 1
        fi
        as_root=(sudo)
    fi

    apt() {
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Acquire::Retries=3 "$@"
    }

    echo "Installing: ${missing[*]}"
    log=$(mktemp)
    trap 'rm -f "$log"' EXIT
    if ! { apt update && apt install --no-install-recommends "${missing[@]}"; } \
            </dev/null >"$log" 2>&1; then
        cat "$log"
        echo "The packages could not be installed: ${missing[*]}"
        exit 1
    fi

    # The tests start brokers of their own. One for the whole machine is not ours to set up.
    if [[ " ${missing[*]} " == *" mosquitto "* && -d /run/systemd/system ]]; then
        "${as_root[@]}" systemctl disable --now mosquitto
    fi
}

# Just the versions that the lock file names. Without them a test tells that it goes without.
install_node_modules() {
    local source=tests/devices/node target=build/node
    cmp -s $source/package-lock.json $target/installed && return
    mkdir -p $target
    cp $source/package*.json $target
    if npm ci --prefix $target --omit=optional --ignore-scripts --no-audit --no-fund \
            </dev/null >$target/log 2>&1; then
        cp $source/package-lock.json $target/installed
    else
        echo "npm could not install what $source/package.json names, see $target/log"
    fi
}

[ ${#missing[@]} -eq 0 ] || install_packages
! $tested || install_node_modules
