#!/usr/bin/env bash
# Builds the fuzzers with Clang and runs each for a time, one after the other,
# from its inputs in tests/fuzz. Says at the end what each did; fails if one
# found something.
#   fuzz.sh [SECONDS [FUZZER...]]   300 seconds and all of them otherwise
#   fuzz.sh --minimise [FUZZER...]  keeps of the inputs found since then those
#                                   that are needed, as found-* in the tree
source "$(dirname "$0")/lib.sh"

usage="usage: fuzz.sh [SECONDS [FUZZER...]] | --minimise [FUZZER...]"
all=(pdu_fuzzer read_fuzzer write_fuzzer message_fuzzer qsh_fuzzer settings_fuzzer
    history_fuzzer tftp_fuzzer ftp_fuzzer sftp_fuzzer frr_fuzzer)
seconds=300
minimise=false
case "${1-}" in
    '') ;;
    --minimise) minimise=true; shift ;;
    *[!0-9]*) die "$usage" ;;
    *) seconds=$1; shift ;;
esac
fuzzers=("$@")
[ $# -gt 0 ] || fuzzers=("${all[@]}")

# What every run is bounded by.
bounds=(-max_len=2048 -timeout=10 -rss_limit_mb=2048)
programs=$top/build-fuzz/tests/fuzz
work=$top/build-fuzz/fuzzing
inputs=$top/tests/fuzz

install_clang() {
    local missing=() name
    for name in clang libclang-rt-14-dev; do
        installed $name || missing+=($name)
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "Installing: ${missing[*]}"
    install_without_starting "${missing[@]}" >/dev/null
}

# last_number LOG WORD: the number behind the last "WORD: ".
last_number() {
    grep -a "^#.* $2: " "$1" | sed -n "s/.* $2: \([0-9]*\).*/\1/p" | tail -n 1
}

run_fuzzer() { # NAME
    local name=$1 log=$work/$1.log found=$work/$1.crashes status=0 count
    local -a corpora=("$work/$name" "$inputs/corpus/$name")
    mkdir -p "$work/$name" "$found"
    [ ! -d "$inputs/crashes/$name" ] || corpora+=("$inputs/crashes/$name")
    echo "Running for $seconds seconds: $name"
    # The limit is for a fuzzer that does not end by itself.
    timeout $((seconds + 120)) "$programs/$name" "${bounds[@]}" \
        -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$found/" "${corpora[@]}" >"$log" 2>&1 || status=$?
    count=$(find "$found" -type f -newer "$work/started" | wc -l)
    summary+=("$(printf '%-17s %9s runs  %5s edges  %6s features  %s found' \
        "$name" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
        "$(last_number "$log" cov)" "$(last_number "$log" ft)" "$count")")
    [ $status -eq 0 ] && [ "$count" -eq 0 ] && return 0
    failed+=("$name")
    grep -av '^#[0-9]' "$log" | grep -a -m 1 -A 25 -E '^/.*: |ERROR' || true
}

minimise_corpus() { # NAME
    local name=$1 merged=$work/$1.merged file
    rm -rf "$merged" && mkdir -p "$merged" "$work/$name"
    # The inputs that seeds.py writes come first, and stay in any case. How often
    # an edge is taken does not count: that would keep hundreds of them.
    find "$inputs/corpus/$name" -type f ! -name 'found-*' \
        -exec cp -t "$merged" {} +
    "$programs/$name" -merge=1 -use_counters=0 "${bounds[@]}" "$merged" \
        "$inputs/corpus/$name" "$work/$name" >"$work/$name.merge.log" 2>&1 ||
        die "the merge failed, see $work/$name.merge.log"
    rm -f "$inputs/corpus/$name"/found-*
    for file in "$merged"/*; do
        [ -e "$inputs/corpus/$name/$(basename "$file")" ] ||
            cp "$file" "$inputs/corpus/$name/found-$(basename "$file" | cut -c 1-8)"
    done
    echo "$name: $(find "$inputs/corpus/$name" -type f | wc -l) inputs," \
        "$(find "$inputs/corpus/$name" -type f -printf '%s\n' |
           awk '{ sum += $1 } END { print sum }') octets"
}

install_packages
install_clang
echo "Building: build-fuzz"
CC=clang CXX=clang++ build build-fuzz -DXF_FUZZ=ON -- "${fuzzers[@]}"
mkdir -p "$work"

if $minimise; then
    for name in "${fuzzers[@]}"; do
        minimise_corpus "$name"
    done
    exit
fi
summary=()
failed=()
touch "$work/started"
for name in "${fuzzers[@]}"; do
    [ -x "$programs/$name" ] || die "no such fuzzer: $name"
    run_fuzzer "$name"
done
printf '\n'
printf '%s\n' "${summary[@]}"
[ ${#failed[@]} -eq 0 ] ||
    die "found something: ${failed[*]}; inputs in $work/<fuzzer>.crashes, logs beside"
