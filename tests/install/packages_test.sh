# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=sh
# Installs the packages that lie in /packages of a fresh Debian directory, $1, and tries them there.
# Run by mmdebstrap, outside the directory, but as its root.
set -eux
root=$1

# As its user would, with apt looking for what they depend on.
export DEBIAN_FRONTEND=noninteractive APT_CONFIG="$MMDEBSTRAP_APT_CONFIG"
apt-get -o DPkg::Chroot-Directory="$root" install --yes "$root"/packages/*.deb
for library in liblum_sdf_sdk liblum_sdf_session; do
    chroot "$root" ldconfig -p | grep -F "$library.so.1"
done

chroot "$root" timeout 60 lum_sdf_demo
chroot "$root" timeout 60 lum_sdf_monitor -t 1
ls "$root/usr/share/bash-completion/completions/sdfctl" "$root/usr/share/doc/lum-sdf-tools/emulator.md"

# The program of the first page for newcomers, compiled with this machine's compiler, as that takes less
# time than to install one: Debian's, too.
page=$root/usr/share/doc/liblum-sdf-sdk-dev/docs/getting-started.md
block() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{/^\`\`\`/!p}" "$page"; }
block c >"$root/hello.c"
block text >"$root/expected"
pkgconfig=$(echo "$root"/usr/lib/*/pkgconfig)
# shellcheck disable=SC2046 # a list of words
cc -std=c11 "$root/hello.c" \
    $(PKG_CONFIG_LIBDIR=$pkgconfig pkg-config --cflags --libs lum-sdf-session) -o "$root/hello"

chroot "$root" sh -eux <<'END'
mkfifo ready
lum_sdf_emulator --ready-fd 3 3>ready &
trap 'kill $!' EXIT
read -r _ <ready
timeout 60 ./hello >printed
diff expected printed
sdfctl set-latency first 1 3 >printed
grep '^event levels: id=[0-9]* first=level-1 second=level-3$' printed
END

# They go without a trace, the tools and the development files with the library.
apt-get -o DPkg::Chroot-Directory="$root" purge --yes liblum-sdf-sdk1
left=$(find "$root/usr" "$root/etc" "$root/var/lib/dpkg/info" -iname '*lum*sdf*' -o -name 'sdfctl*' -o -name 'lum_servicemanager*')
known=$(chroot "$root" ldconfig -p | grep -F liblum_sdf || true)
[ -z "$left$known" ]
