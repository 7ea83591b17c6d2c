#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs tests in a virtual machine with Debian's kernel and its binder driver, those listed below or
# these:
#
#   vm.sh BUILD KERNEL [TEST...]
#
# BUILD is the directory of the preset "gcc" or "arm", and KERNEL one with Debian's packages for the
# machine (`./dev` has unpacked them). A TEST is PROGRAM[:FILTER], a GoogleTest program and which of
# its tests, all in one process; "each PROGRAM[:FILTER]", the same in a process each; or
# "$ [VARIABLE=VALUE...] PROGRAM ARGUMENT...", judged by its exit status. After "driver ", processes
# reach each other over the driver, and a line of complaint in its log fails the test. The machine is
# slow: no more than needs it. What is skipped elsewhere belongs here, where a skipped test fails, as
# does a filter that finds none.
set -eu

driver_tests() {
    grep -v '^#' <<'END'
# What the link over the driver does: calls, objects, deaths, descriptors, names. Not how sockets look
# for services, and what is served there.
driver each platform_driver
driver each platform_raw_driver
driver each platform_calls
driver each platform_objects
driver each platform_death
driver each platform_descriptor:DumpTest*
driver each platform_registry:*NamesOfOther*:*ObjectOfAnother*:*NameTakenOver*
# What keeps a service from working, at a device with and without a service manager. Not directories.
driver each sdfctl_doctor:DriverManagerTest.*:DoctorTest.EverythingWorks:DoctorTest.N*:DoctorTest.ServiceThat*:DoctorTest.ServicesThatFail*
# Every function of the library, and a service that is killed.
driver $ lum_sdf_demo ./lum_sdf_emulator
END
}

# What takes too long in an ARM machine.
x86_tests() {
    grep -v '^#' <<'END'
# The library and the service, killed again and again, and what is left of them in the end. More
# rounds, as many as 1000 and 200, show no more.
driver each transport_client
driver each emulator_dump
driver each new_client
driver $ LUM_ROUNDS=50 LUM_KILLS=30 stress_rounds
driver each stress_incallback
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
$ lum_sdf_demo ./lum_sdf_emulator
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
dmesg -n 1 # only what ends the machine may get between the tests' lines
# Its log has what callers do wrong (1), but not that a buffer is full, as some tests make it.
insmod /binder_linux.ko devices=binder,vndbinder debug_mask=1 alloc_debug_mask=0
chmod 666 /dev/binder /dev/vndbinder # as on a device
cd /programs || exit

passes() { # PROGRAM FILTER
    timeout 100 "./$1" --gtest_brief=1 --gtest_color=no --gtest_filter="$2" </dev/null >/output 2>&1
    status=$?
    cat /output
    [ $status = 0 ] && grep -qF '[  PASSED  ] ' /output &&
        ! grep -qF -e '[  SKIPPED ]' -e '[  PASSED  ] 0 tests' /output
}

each_passes() { # PROGRAM FILTER
    result=1
    for case in $("./$1" --gtest_list_tests --gtest_filter="$2" |
        awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }'); do
        result=0
        passes "$1" "$case" || return 1
    done
    return $result
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

driver_passes() { # TEST
    dmesg -c >/dev/null
    export LUM_BINDER=/dev/vndbinder
    # Of a process that may not change its priority the driver says so with each of its calls. Tests
    # add what it says of processes that are to misbehave.
    export LUM_HARMLESS_COMPLAINTS=/harmless
    echo 'RLIMIT_NICE not set' >/harmless
    mkfifo /ready
    ./lum_servicemanager >/ready &
    manager=$!
    read -r _ </ready
    test_passes "$1"
    result=$?
    kill $manager
    wait $manager 2>/dev/null
    unset LUM_BINDER LUM_HARMLESS_COMPLAINTS
    rm /ready
    ! dmesg | grep binder | grep -vFf /harmless && [ $result = 0 ]
}

while read -r test; do
    case $test in
        'driver '*) driver_passes "${test#driver }" ;;
        *) test_passes "$test" ;;
    esac && verdict=passed || verdict=FAILED
    printf '\nvm: %s: %s\n' "$verdict" "$test"
done </tests
poweroff -f
END
}

build=$(realpath "$1")
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
if [ $# != 0 ]; then
    printf '%s\n' "$@"
else
    driver_tests
    if [ -n "$sysroot" ]; then arm_tests; else x86_tests; fi
fi >"$root/tests"
(cd "$root" && find . | $emulator bin/busybox cpio -o -H newc) >"$build/vm/initramfs"

# It cannot restart, so that a kernel that panics ends it.
{
    # shellcheck disable=SC2086 # a list of words
    timeout --foreground 300 $machine -smp 2 -m 1024 \
        -accel tcg,thread=multi -nic none -display none -monitor none -serial stdio -no-reboot \
        -kernel "$kernel"/boot/vmlinuz-* -initrd "$build/vm/initramfs" -append "console=$console quiet panic=-1" \
        </dev/null && echo "vm: passed: switching off"
} | tr -d '\r' | tee "$build/vm/console.log"

echo "switching off" >>"$root/tests"
status=0
while read -r test; do
    grep -qxF "vm: passed: $test" "$build/vm/console.log" || {
        echo "vm.sh: did not pass: $test" >&2
        status=1
    }
done <"$root/tests"
exit $status
