#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs tests in a 32-bit ARM virtual machine, those listed below or these:
#
#   vm.sh BUILD [TEST...]
#
# BUILD is the directory of the preset "arm". A TEST is PROGRAM[:FILTER], a GoogleTest program and
# which of its tests, all in one process; "each PROGRAM[:FILTER]", the same in a process each; or
# "$ PROGRAM ARGUMENT...", judged by its exit status. The machine is slow: no more than needs it. What
# is skipped elsewhere belongs here, where a skipped test fails, as does a filter that finds none.
set -eu

tests() {
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
export PATH=/bin
/bin/busybox --install -s /bin
mount -t proc proc /proc && mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev && mkdir -p /dev/pts && mount -t devpts devpts /dev/pts
ip link set lo up
dmesg -n 1 # only what ends the machine may get between the tests' lines
cd /programs || exit

passes() { # PROGRAM FILTER
    "./$1" --gtest_brief=1 --gtest_color=no --gtest_filter="$2" </dev/null >/output 2>&1
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

while read -r test; do
    name=${test#each }
    filter=${name#*:}
    case $name in *:*) ;; *) filter='*' ;; esac
    case $test in
        '$ '*) sh -c "./${test#??}" </dev/null ;;
        'each '*) each_passes "${name%%:*}" "$filter" ;;
        *) passes "${name%%:*}" "$filter" ;;
    esac && verdict=passed || verdict=FAILED
    printf '\nvm: %s: %s\n' "$verdict" "$test"
done </tests
poweroff -f
END
}

build=$(realpath "$1")
shift
sysroot=$(sed -n 's/^LUM_SYSROOT:[A-Z]*=//p' "$build/CMakeCache.txt")
kernel=/usr/lib/debian-installer/images/12/armhf/text/debian-installer/armhf/vmlinuz

# Its file system: programs and libraries at the paths that are compiled into them. Those by which
# programs start each other lead through scripts here, for the emulator.
root=$build/vm/root
rm -rf "$build/vm"
mkdir -p "$root/dev" "$root/proc" "$root/sys" "$root/tmp" "$root$build/bin" "$root$build/run" "$root$build/lib"
(
    cd "$sysroot"
    find lib usr/lib -name '*.so*' ! -type d ! -name 'lib*san.so*' -exec cp -a --parents -t "$root" {} +
    cp -a --parents bin/busybox "$root"
)
ln -s / "$root$sysroot"
ln -s "$build/bin" "$root/programs"
ln -s busybox "$root/bin/sh"
ln -s /bin "$root/usr/bin"
for program in "$build"/bin/*; do
    arm-linux-gnueabihf-strip -o "$root$program" "$program"
    ln -s "$program" "$root$build/run/"
done
cp -a "$build"/lib/*.so* "$root$build/lib"
init >"$root/init"
chmod +x "$root/init"
if [ $# = 0 ]; then tests; else printf '%s\n' "$@"; fi >"$root/tests"
(cd "$root" && find . | qemu-arm bin/busybox cpio -o -H newc) >"$build/vm/initramfs"

# It cannot restart, so that a kernel that panics ends it.
{
    timeout --foreground 300 qemu-system-arm -M virt -cpu cortex-a7 -smp 2 -m 512 \
        -accel tcg,thread=multi -nic none -display none -monitor none -serial stdio -no-reboot \
        -kernel "$kernel" -initrd "$build/vm/initramfs" -append "console=ttyAMA0 quiet panic=-1" \
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
