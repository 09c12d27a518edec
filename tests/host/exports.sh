#!/bin/sh
# Compares what a library exports with what the platform's headers declare.
# usage: exports.sh LIBRARY HEADERS_DIRECTORY
set -eu
library=$1
headers=$2

declared() {
    # Without comments and preprocessor lines; then one declaration a line.
    cat "$headers"/*.h |
        perl -0pe 's{/\*.*?\*/}{}gs; s{^\s*\#(.*\\\n)*.*$}{}gm' |
        perl -0ne 'while (/PLATFORM_BEGIN_DECLS(.*?)PLATFORM_END_DECLS/gs) {
            my $part = $1;
            for (split /;/, $part) {
                next if /^\s*typedef/ || !/\S/;
                print "$1\n" if /^\s*extern\b.*?(\w+)\s*$/s || /(\w+)\s*\(/;
            }
        }' | sort -u
}

expected=$(declared)
exported=$(nm -D --defined-only "$library" | awk '{ print $3 }' | sort -u)
count=$(echo "$expected" | wc -l)
if [ "$count" -lt 50 ]; then
    echo "only $count declarations found in $headers" >&2
    exit 1
fi
if [ "$expected" != "$exported" ]; then
    echo "declared and exported differ:" >&2
    echo "declared: $expected" >&2
    echo "exported: $exported" >&2
    exit 1
fi
echo "$count calls and variables"
