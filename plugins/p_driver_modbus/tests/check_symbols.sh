#!/bin/sh
# The module's face to the dynamic linker: two symbols out, known libraries in, nothing undefined.
set -u
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
exit $bad
