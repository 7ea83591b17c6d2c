#!/bin/busybox sh
# SPDX-License-Identifier: Apache-2.0
# The first process of the machine: runs what /tests lists, a test a line, tells about each in lines
# that begin with "vm: ", which are what the verdict on the run is made from, and switches off.
export PATH=/bin
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir -p /dev/pts
mount -t devpts devpts /dev/pts
ip link set lo up
# Only what ends the machine may get in between the tests' lines from here on.
dmesg -n 1
cd /programs || exit

# tell TEXT: at the beginning of a line, also if a program did not end its last one.
tell() { printf '\nvm: %s\n' "$*"; }

. /cases.sh

number=0
while read -r entry; do
    number=$((number + 1))
    tell "$number begins: $entry"
    test=${entry#each }
    case $entry in
        '$ '*)
            sh -c "./${entry#??}" </dev/null
            result="status $?"
            ;;
        'each '*)
            # shellcheck disable=SC2046 # names without blanks
            run "./${test%%:*}" $(cases "./${test%%:*}" "${test#*:}")
            ;;
        *) run "./${test%%:*}" "${test#*:}" ;;
    esac
    tell "$number ended: $result"
done </tests
tell "$number run, at $(cut -d ' ' -f 1 /proc/uptime) s"
poweroff -f
