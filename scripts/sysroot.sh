#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Unpacks the packages of the group armhf in build/sysroot, unless it has those of this list already.
set -eu
cd "$(dirname "$0")/.."

list=$(scripts/packages.sh names armhf)
[ "$list" != "$(cat build/sysroot/packages 2>/dev/null)" ] || exit 0
printf '\n==> unpacking the ARM libraries\n'
# What was built with other headers goes: packages bring files with times of long ago, so that it would
# pass for up to date.
rm -rf build/sysroot build/sysroot.new build/arm build/android build/protobuf/android
mkdir -p build
# Only from Debian's main archive: that of security updates need not have the same versions for all
# architectures. Nothing of it is run here, so this mode, which needs no rights, does: it warns about
# root for the sake of what is run.
mmdebstrap --mode=chrootless --variant=extract --architectures=armhf \
    --include="$(printf '%s' "$list" | tr '\n' ,)" \
    bookworm build/sysroot.new "deb $(scripts/packages.sh mirror) bookworm main"
rm -rf build/sysroot.new/dev # qemu-arm would take its files for this machine's
printf '%s\n' "$list" >build/sysroot.new/packages
mv build/sysroot.new build/sysroot
