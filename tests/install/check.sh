#!/bin/sh
# One step of the install test (cmake/install.cmake registers each with CTest):
#   check.sh install WORK CMAKE BUILD_DIR          installs BUILD_DIR into WORK/prefix
#   check.sh pkg-config WORK CC LIBDIR             builds consumer.c with pkg-config's flags
#   check.sh find-package WORK CMAKE CC GENERATOR  builds this folder's CMake project
# The two consumers run against the library in the prefix.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
step=$1 work=$2 prefix=$2/prefix
shift 2
case $step in
install)
    rm -rf "$work"
    "$1" --install "$2" --prefix "$prefix" ;;
pkg-config)
    export PKG_CONFIG_PATH="$prefix/$2/pkgconfig"
    pkg-config --modversion taviklimiter
    flags=$(pkg-config --cflags --libs taviklimiter)
    echo "pkg-config --cflags --libs taviklimiter: $flags"
    "$1" -std=c11 -Wall -Wextra -Werror "$here/consumer.c" $flags -o "$work/consumer_pc"
    LD_LIBRARY_PATH="$prefix/$2" "$work/consumer_pc" ;;
find-package)
    "$1" -S "$here" -B "$work/consumer" -G "$3" -DCMAKE_C_COMPILER="$2" \
         -DCMAKE_PREFIX_PATH="$prefix"
    "$1" --build "$work/consumer"
    "$work/consumer/consumer" ;;
*)
    echo "check.sh: unknown step $step" >&2; exit 2 ;;
esac
