#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Makes protobuf's runtimes for Android in build/protobuf/android, from Debian's sources:
#
#   android-protobuf.sh TARGET...
#
# libprotobuf-lite is for the library, as Debian's own static one is not made to be part of a shared one,
# and libprotobuf for the emulator. Needs build/sysroot.
set -eu
cd "$(dirname "$0")/.."

sources=$PWD/build/protobuf
if [ ! -e "$sources/src" ]; then
    printf '\n==> fetching the sources of protobuf\n'
    rm -rf "$sources.new"
    mkdir -p "$sources.new"
    mirror=$(scripts/packages.sh mirror)
    /usr/lib/apt/apt-helper download-file \
        "${mirror%/}/pool/main/p/protobuf/protobuf_3.21.12.orig.tar.gz" "$sources.new/source.tar.gz" \
        SHA256:930c2c3b5ecc6c9c12615cf5ad93f1cd6e12d0aba862b572e076259970ac3a53
    tar -xzf "$sources.new/source.tar.gz" -C "$sources.new" --strip-components=1
    rm "$sources.new/source.tar.gz"
    rm -rf "$sources"
    mv "$sources.new" "$sources"
fi
printf '\n==> building: protobuf for Android\n'
cmake -S "$sources" -B "$sources/android" -G Ninja --toolchain "$PWD/tests/android/toolchain.cmake" \
    -DANDROID_ABI=armeabi-v7a -DLUM_SYSROOT="$PWD/build/sysroot" -DCMAKE_BUILD_TYPE=MinSizeRel \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON -Dprotobuf_WITH_ZLIB=OFF -Dprotobuf_BUILD_TESTS=OFF \
    -Dprotobuf_BUILD_PROTOC_BINARIES=OFF
cmake --build "$sources/android" -j "$(nproc)" --target "$@"
