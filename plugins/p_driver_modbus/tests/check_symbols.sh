#!/bin/sh
# The module's face to the dynamic linker: two symbols out, known libraries in, of the host what
# imported_symbols.txt names and no more, nothing undefined. Takes the module's file.
set -u
export LC_ALL=C
module=$1
bad=0
expect() { # what, expected, found
    if [ "$2" != "$3" ]; then
        printf '%s:\nexpected:\n%s\nfound:\n%s\n' "$1" "$2" "$3"
        bad=1
    fi
}
expect 'exported symbols' 'qt_plugin_instance
qt_plugin_query_metadata' "$(nm -D --defined-only "$module" | awk '{ print $3 }' | sort)"
expect 'libraries beyond Qt, the host and the runtime' '' "$(readelf -d "$module" |
    sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -vE \
    '^(libQt5(Core|Network)|libhost_(plugin_management|utilities)|libstdc\+\+|libgcc_s|libc|libm)\.so')"
expect 'undefined symbols' '' "$(ldd -r "$module" 2>&1 | grep -E 'undefined|not found')"

names() { awk 'NF > 1 { print $NF }' | sort -u; }
host=$(ldd "$module" | awk '/libhost_/ { print $3 }')
# What the module lacks and the host has stands on both lists.
{ nm -D --undefined-only "$module" | names; nm -D --defined-only $host | names; } |
    sort | uniq -d | c++filt | sort | diff "$(dirname "$0")/imported_symbols.txt" - ||
    { echo 'imported from the host: unlisted (>), listed in vain (<)'; bad=1; }
exit $bad
