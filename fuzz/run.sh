#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs one fuzz target that is built in build/asan.
#
#   run.sh SECONDS TARGET   its corpus, what earlier runs found beside it, and new inputs for so long
#   run.sh --brief TARGET   its corpus and some new inputs, the same each time for the same program
#                           where the system lets addresses be fixed
#   run.sh --keep TARGET    adds to its corpus what earlier runs found, as far as it reaches more
#
# New inputs go to build/fuzz/inputs/TARGET, findings to build/fuzz/findings/TARGET.
set -eu
cd "$(dirname "$0")/.."

mode=$1
target=$2
if [ "$target" = aidl ]; then
    [ "$mode" != --keep ] || exit 0
    exec /usr/bin/python3 fuzz/aidl.py "$mode"
fi
program=build/asan/bin/fuzz_$target
corpus=fuzz/corpus/$target
inputs=build/fuzz/inputs/$target
findings=build/fuzz/findings/$target
mkdir -p "$inputs" "$findings"

export ASAN_OPTIONS=detect_stack_use_after_return=1 UBSAN_OPTIONS=print_stacktrace=1

limit=-max_total_time=$mode
case $mode in
    --keep)
        exec "$program" -merge=1 -set_cover_merge=1 -use_counters=0 -artifact_prefix="$findings/" \
            "$corpus" "$inputs"
        ;;
    --brief)
        limit="-runs=5000 -seed=1 -reload=0"
        # Addresses decide, too, what is tried next. Not every container lets them be fixed.
        ! setarch -R true 2>/dev/null || program="setarch -R $program"
        inputs=$(mktemp -d)
        trap 'rm -r "$inputs"' EXIT
        ;;
esac

touch "$findings/.start"
status=0
# shellcheck disable=SC2086 # lists of words
$program $limit -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$findings/" "$inputs" "$corpus" || status=$?
if [ "$status" != 0 ]; then
    # One at most: the first ends the program. What was only slow does not.
    finding=$(find "$findings" -type f -newer "$findings/.start" ! -name 'slow-unit-*')
    if [ -n "$finding" ]; then
        cat <<END

==> fuzz target $target has found something: $finding
    to repeat it:  $program $finding
    to keep it:    cp $finding $corpus/WHAT_IT_SHOWS
END
    else
        echo "fuzz target $target failed with status $status, and no input to blame" >&2
    fi
fi
exit "$status"
