#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Debian packages by the groups of packages.txt, and where this machine gets them from:
#
#   packages.sh names GROUP...      prints the names of the groups' packages, one a line
#   packages.sh install GROUP...    installs those that are missing
#   packages.sh mirror              prints the address of Debian's main archive
set -eu
cd "$(dirname "$0")/.."

names() {
    for group; do
        grep -qxF "[$group]" packages.txt || {
            echo "dev: packages.txt has no group \"$group\"" >&2
            return 2
        }
    done
    awk -v groups=" $* " '
        /^\[/ { wanted = index(groups, " " substr($1, 2, length($1) - 2) " ") }
        wanted && /^[a-z]/ { print $1 }' packages.txt
}

may_be_root() { [ "$(id -u)" = 0 ] || command -v sudo >/dev/null; }

as_root() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }

install() {
    wanted=$(names "$@")
    missing=
    for package in $wanted; do
        case $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true) in
            *"install ok installed"*) ;; # once for each architecture it is known of
            *) missing="$missing $package" ;;
        esac
    done
    [ -n "$missing" ] || return 0
    printf '\n==> installing:%s\n' "$missing"
    may_be_root || {
        echo "dev: packages are missing and this is neither root nor is there sudo" >&2
        return 1
    }
    command -v apt-get >/dev/null || {
        echo "dev: this machine has no apt-get; install by other means what packages.txt names" >&2
        return 1
    }
    as_root apt-get update -q
    # shellcheck disable=SC2086 # a list of words
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing
}

# Where apt's lists of Debian's main archive are from; nothing when it has none.
listed_mirror() {
    # shellcheck disable=SC2016 # they are apt's
    apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(COMPONENT) $(REPO_URI)' \
        "Created-By: Packages" | sed -n 's/^Debian bookworm main //p' | head -n 1
}

mirror() {
    found=$(listed_mirror)
    # Images of containers come without the lists.
    if [ -z "$found" ] && may_be_root && as_root apt-get update -q >&2; then found=$(listed_mirror); fi
    echo "${found:-http://deb.debian.org/debian}"
}

"$@"
