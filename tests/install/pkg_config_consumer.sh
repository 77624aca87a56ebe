#!/bin/sh
# pkg_config_consumer.sh PREFIX LIBDIR CC OUT: builds consumer.c with pkg-config's flags, runs it
set -eu
export PKG_CONFIG_PATH="$1/$2/pkgconfig"
flags=$(pkg-config --cflags --libs taviklimiter)
echo "pkg-config --cflags --libs taviklimiter: $flags"
"$3" -std=c11 -Wall -Wextra -Werror "$(dirname "$0")/consumer.c" $flags -o "$4"
LD_LIBRARY_PATH="$1/$2" "$4"
