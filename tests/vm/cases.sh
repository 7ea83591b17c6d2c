# SPDX-License-Identifier: Apache-2.0
# How GoogleTest programs are run in the machine.

# cases PROGRAM FILTER: the full names of the tests that match.
cases() {
    "$1" --gtest_list_tests --gtest_filter="$2" |
        awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }'
}

# run PROGRAM FILTER...: in a process for each filter. Sets $result.
run() {
    program=$1
    shift
    results=$(mktemp -d)
    status=0
    runs=0
    for filter; do
        runs=$((runs + 1))
        "$program" --gtest_brief=1 --gtest_color=no --gtest_filter="$filter" \
            --gtest_output="xml:$results/$runs" </dev/null || status=$?
        # One that ends before its time, whatever it says, leaves no result.
        [ -s "$results/$runs" ] || [ "$status" != 0 ] || status=early
    done
    # One that skips itself does not fail, nor is it completed.
    result="status $status $(cat "$results"/* 2>/dev/null | awk '
        /^<testsuites / { split($0, part, "\""); tests += part[2] }
        /status="run" result="completed"/ { completed++ }
        END { print "tests", tests + 0, "completed", completed + 0 }')"
    rm -r "$results"
}
