#!/bin/sh
# Reads holding registers one by one, to see which there are: each_register.sh HOST PORT FIRST LAST
set -eu

orders() {
    printf '{"id":"c","device":"d","command":"connect","parameters":{"host":"%s","port":%d}}\n' \
        "$1" "$2"
    seq "$3" "$4" | while read -r register; do
        printf '{"id":%d,"device":"d","command":"read",' "$register"
        printf '"parameters":{"register":%d,"registerType":"holdingRegisters"}}\n' "$register"
    done
}

orders "$@" | driver-host run - --quiet | sed -n \
    -e 's/.*"id":\([^,]*\),.*"value":\[\(.*\)\].*/\1: \2/p' \
    -e 's/.*"id":\([^,]*\),.*"message":"\([^"]*\)".*/\1: \2/p'
