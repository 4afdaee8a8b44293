#!/usr/bin/env bash
# The same seeds give the same worlds whatever the process is like: test_same.sh SIMULATE.
set -euo pipefail
seeds=(--seeds 1..40)
first=$("$1" "${seeds[@]}")
for other in "QT_HASH_SEED=0" "MALLOC_PERTURB_=85" "MALLOC_MMAP_THRESHOLD_=4096" "LANG=de_DE.UTF-8"; do
    again=$(env "$other" "$1" "${seeds[@]}")
    if [ "${first##*hash: }" != "${again##*hash: }" ]; then
        printf 'with %s:\n%s\nbefore:\n%s\n' "$other" "$again" "$first"
        exit 1
    fi
done
printf '%s\n' "$first"
