#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs tests in a virtual machine with Debian's kernel and its binder driver, those listed below or
# these:
#
#   vm.sh BUILD KERNEL [--short | TEST...]
#
# BUILD is the directory of the preset "gcc" or "arm", and KERNEL one with Debian's packages for the
# machine (`./dev` has unpacked them). A TEST is PROGRAM[:FILTER], a GoogleTest program and which of
# its tests, all in one process; "each PROGRAM[:FILTER]", the same in a process each, three at a time; or
# "$ [VARIABLE=VALUE...] PROGRAM ARGUMENT...", judged by its exit status. After "driver ", processes
# reach each other over the driver, and a line of complaint in its log fails the test. What is skipped
# elsewhere belongs here, where a skipped test fails, as does a filter that finds none. A test that
# fails shows what it printed.
set -eu

# Left out of all: what is about sockets, frames and their limits, SIGPIPE, about directories, or about a
# service that is not there, or gone in the end. Over the driver that is waited for without limit.
driver_tests() {
    grep -v '^#' <<'END'
# Calls, objects, deaths, threads, descriptors, names.
driver each platform_driver
driver each platform_raw_driver
driver each platform_calls:-*RaisesNoSignal
driver each platform_objects
driver each platform_death
driver each platform_descriptor:DumpTest*
driver each platform_registry:-*Director*:*Null*:*LookupWithout*:*AddedWithout*:*TurnedAway*
# What keeps a service manager from working, at the device that has none.
driver sdfctl_doctor:DriverManagerTest.*
# The library and the service: requests, callbacks, misbehaviour, deaths.
driver each transport_client
driver each whole_service
driver each misbehaviour
driver each new_client
# Two at once would need two devices.
driver each demo:-*TwoRunAtOnce
END
}

# What takes longer.
long_tests() {
    grep -v '^#' <<'END'
# Made, killed and used anyhow, again and again, and what is left in the end.
driver $ LUM_ROUNDS=1000 LUM_KILLS=200 stress_rounds
driver each stress_incallback
driver each stress_mixed
driver each stress_careless
driver each stress_blocked
driver each session_healing
# The programs.
driver each emulator_dump
driver each emulator_service
driver each emulator_program:-*WhatKeepsItFromServing*:*EndsWhenItIsCalled*:*DebugLogShows*
driver each session_cpp:-*Questions:*NeedsNoCallback
# One reads a page of this tree.
driver each examples:-*OfThePage*
driver each sdfctl_program:-*ServiceThatIsNotUp
driver each sdfctl_doctor:DoctorTest.*-*Director*:*NobodyServes*:*AnotherInterface
driver each sdfctl_dump:-*NobodyServes*
# One wants a shell that leaves the modes of a terminal alone.
driver each sdfctl_keep:-*TerminalAsItWas
END
}

arm_tests() {
    grep -v '^#' <<'END'
# The processor's counter, an illegal instruction in qemu-arm.
utils_test:*ArchTimerCount*
# Clocks, epoll and eventfd of a 32-bit kernel, but for a test that takes half of the time for threads.
utils_test:-*NothingIsWrittenAfterDetach
# Sizes and offsets, the order of virtual functions, structures by value through the library.
abi_types
abi_order
abi_by_value
# Processes that die, who calls, files and the rights to them, as the kernel reports them.
each platform_death
platform_calls:*CallingIds*
each platform_registry:*Directory*
each platform_registry:*Take*
# Skipped where there are no pseudo-terminals. Not those that want a shell which leaves the modes alone.
sdfctl_terminal:-*Stopped*
# Every function of the library, and a service that is killed.
each demo:*EverythingHappens
END
}

# The first process of the machine. It reads the tests from /tests and reports on each.
init() {
    cat <<'END'
#!/bin/busybox sh
export PATH=/bin:/programs
/bin/busybox --install -s /bin
mount -t proc proc /proc && mount -t sysfs sysfs /sys && mount -t debugfs debugfs /sys/kernel/debug
mount -t devtmpfs devtmpfs /dev && mkdir -p /dev/pts && mount -t devpts devpts /dev/pts
ip link set lo up
cd /programs || exit

# The driver's log has what callers do wrong (1), but not that a buffer is full, as some tests make it.
insmod /binder_linux.ko devices=binder,vndbinder,hwbinder,otherbinder debug_mask=1 alloc_debug_mask=0
chmod 666 /dev/*binder # as Android does
mkfifo /ready
# Each has names of its own, so that a test can run on each at a time. "binder" is left to tests that
# want a device without a service manager.
for device in vndbinder hwbinder otherbinder; do
    LUM_BINDER=/dev/$device ./lum_servicemanager >/ready &
    read -r _ </ready
done

# Shows what the program printed, unless all of its tests passed.
passes() { # PROGRAM FILTER
    output=$(mktemp)
    timeout 1200 "./$1" --gtest_brief=1 --gtest_color=no --gtest_filter="$2" </dev/null >"$output" 2>&1
    status=$?
    [ $status = 0 ] && grep -qF '[  PASSED  ] ' "$output" &&
        ! grep -qF -e '[  SKIPPED ]' -e '[  PASSED  ] 0 tests' "$output"
    result=$?
    [ $result = 0 ] || { printf '\n%s %s: status %s\n' "$1" "$2" $status && cat "$output"; }
    rm "$output"
    return $result
}

# Every third of the cases, each in a process. Those that pass are counted.
third() { # NUMBER DEVICE PROGRAM
    [ -z "$LUM_BINDER" ] || LUM_BINDER=/dev/$2
    awk "NR % 3 == $1" /cases | while read -r case; do passes "$3" "$case" && echo "$case" >>/passed; done
}

each_passes() { # PROGRAM FILTER
    "./$1" --gtest_list_tests --gtest_filter="$2" >/list || return 1
    awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }' /list >/cases
    : >/passed
    # In a pipe, since a shell has SIGINT ignored in what it runs in the background.
    { third 0 vndbinder "$1" >&3 | third 1 hwbinder "$1" >&3 | third 2 otherbinder "$1"; } 3>&1
    [ -s /cases ] && [ "$(wc -l </passed)" = "$(wc -l </cases)" ]
}

test_passes() { # TEST
    name=${1#each }
    filter=${name#*:}
    case $name in *:*) ;; *) filter='*' ;; esac
    case $1 in
        '$ '*) sh -c "${1#??}" </dev/null ;;
        'each '*) each_passes "${name%%:*}" "$filter" ;;
        *) passes "${name%%:*}" "$filter" ;;
    esac
}

# Of a process that may not change its priority the driver says so with each of its calls. Tests add
# what it says of processes that are to misbehave, for as long as the machine runs: it may say so late.
echo 'RLIMIT_NICE not set' >/harmless
dmesg -c >/dev/null
no_complaints() { ! dmesg -c | grep binder | grep -vFf /harmless; }

driver_passes() { # TEST
    export LUM_BINDER=/dev/vndbinder LUM_HARMLESS_COMPLAINTS=/harmless
    test_passes "$1"
    passed=$?
    unset LUM_BINDER LUM_HARMLESS_COMPLAINTS
    no_complaints && [ $passed = 0 ]
}

while read -r test; do
    began=$(cut -d. -f1 /proc/uptime)
    case $test in
        'driver '*) driver_passes "${test#driver }" ;;
        'no complaints') no_complaints ;;
        *) test_passes "$test" ;;
    esac && verdict=passed || verdict=FAILED
    printf '%s: %s after %s s: %s\n' "$machine" $verdict $(($(cut -d. -f1 /proc/uptime) - began)) "$test"
done </tests
poweroff -f
END
}

build=$(realpath "$1")
name=$(basename "$build")
kernel=$(realpath "$2")
shift 2
sysroot=$(sed -n 's/^LUM_SYSROOT:[A-Z]*=//p' "$build/CMakeCache.txt")
if [ -n "$sysroot" ]; then
    machine="qemu-system-arm -M virt -cpu cortex-a7"
    console=ttyAMA0
    strip=arm-linux-gnueabihf-strip
    emulator=qemu-arm
else
    machine="qemu-system-x86_64 -M pc -cpu max"
    console=ttyS0
    strip=strip
    emulator=
fi

# Its file system: programs and libraries at the paths that are compiled into them. Those by which
# programs start each other lead through scripts here, for the emulator.
root=$build/vm/root
rm -rf "$build/vm"
mkdir -p "$root/bin" "$root/dev" "$root/proc" "$root/sys" "$root/tmp" "$root$build/bin" "$root$build/run" "$root$build/lib"
cp "$kernel/bin/busybox" "$root/bin"
find "$kernel/lib/modules" -name binder_linux.ko -exec cp -t "$root" {} +
if [ -n "$sysroot" ]; then
    (cd "$sysroot" && find lib usr/lib -name '*.so*' ! -type d ! -name 'lib*san.so*' -exec cp -a --parents -t "$root" {} +)
    ln -s / "$root$sysroot"
else
    ldd "$build"/bin/* | grep -o '/[^ ]*\.so[^ ]*' | grep -v "^$build/" | sort -u |
        xargs cp -L --parents -t "$root"
fi
ln -s "$build/bin" "$root/programs"
ln -s busybox "$root/bin/sh"
[ -e "$root/usr/bin" ] || { mkdir -p "$root/usr" && ln -s /bin "$root/usr/bin"; }
for program in "$build"/bin/*; do
    $strip -o "$root$program" "$program"
    ln -s "$program" "$root$build/run/"
done
cp -a "$build"/lib/*.so* "$root$build/lib"
init >"$root/init"
chmod +x "$root/init"
case ${1:-} in
    '' | --short)
        driver_tests
        [ -n "${1:-}" ] || long_tests
        [ -z "$sysroot" ] || arm_tests
        ;;
    *) printf '%s\n' "$@" ;;
esac >"$root/tests"
echo 'no complaints' >>"$root/tests"
(cd "$root" && find . | $emulator bin/busybox cpio -o -H newc) >"$build/vm/initramfs"

# It cannot restart, so that a kernel that panics ends it. Only what ends it may get between the lines.
{
    # shellcheck disable=SC2086 # a list of words
    timeout --foreground "${LUM_VM_LIMIT:-7200}" $machine -smp 2 -m 1024 \
        -accel tcg,thread=multi -nic none -display none -monitor none -serial stdio -no-reboot \
        -kernel "$kernel"/boot/vmlinuz-* -initrd "$build/vm/initramfs" \
        -append "console=$console loglevel=1 panic=-1 machine=$name" \
        </dev/null && echo "$name: passed after 0 s: switching off"
} | sed -u 's/\r//' | tee "$build/vm/console.log"

echo "switching off" >>"$root/tests"
status=0
while read -r test; do
    sed -n 's/^[a-z]*: passed after [0-9]* s: //p' "$build/vm/console.log" | grep -qxF "$test" || {
        echo "vm.sh: did not pass: $test" >&2
        status=1
    }
done <"$root/tests"
exit $status
