#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Unpacks a group of packages.txt, and what those packages need, without installing any of it:
#
#   unpack.sh GROUP ARCHITECTURE DIRECTORY [BUILT...]
#
# unless DIRECTORY has those of the group already. BUILT is what was made with the earlier ones, and
# goes with them: packages bring files with times of long ago, so that it would pass for up to date.
set -eu
cd "$(dirname "$0")/.."

group=$1
architecture=$2
directory=$3
shift 3
list=$(scripts/packages.sh names "$group")
[ "$list" != "$(cat "$directory/packages" 2>/dev/null)" ] || exit 0
printf '\n==> unpacking packages: %s\n' "$group"
rm -rf "$directory" "$directory.new" "$@"
mkdir -p "$(dirname "$directory")"
# Of a machine's packages, only what tests/vm/vm.sh takes: a kernel has thousands of modules.
set --
case $group in
    kernel-*)
        set -- --dpkgopt='path-exclude=/*' --dpkgopt='path-include=/boot/vmlinuz-*' \
            --dpkgopt='path-include=*/binder_linux.ko' --dpkgopt='path-include=/bin/busybox'
        ;;
esac
# Only from Debian's main archive: that of security updates need not have the same versions for all
# architectures. Nothing of it is run here, so this mode, which needs no rights, does: it warns about
# root for the sake of what is run.
mmdebstrap --mode=chrootless --variant=extract --architectures="$architecture" \
    --include="$(printf '%s' "$list" | tr '\n' ,)" "$@" \
    bookworm "$directory.new" "deb $(scripts/packages.sh mirror) bookworm main"
rm -rf "$directory.new/dev" # qemu-arm would take its files for this machine's
printf '%s\n' "$list" >"$directory.new/packages"
mv "$directory.new" "$directory"
