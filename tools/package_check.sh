#!/bin/sh
# Makes the Debian package of a build tree, installs it (as root), and runs
# netlib's test programs, built against Debian's BLAS and unchanged, on what
# the system's libblas.so.3 has become; removes the package again at the end.
#
#   tools/package_check.sh BUILD
set -e
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/libzva_*_i386.deb)
# apt-get, not dpkg: it also brings the i386 OpenMP runtime.
DEBIAN_FRONTEND=noninteractive apt-get install -y -q "$deb" >/dev/null
trap 'dpkg -r libzva:i386 >/dev/null' EXIT
update-alternatives --display libblas.so.3-i386-linux-gnu
update-alternatives --display libcblas.so.3-i386-linux-gnu
lib=/usr/lib/i386-linux-gnu
[ "$(readlink -f $lib/libblas.so.3)" = "$(readlink -f $lib/libzva_blas.so.3)" ] ||
  { echo "libblas.so.3 is not zva after the install"; exit 1; }
ldd $lib/blas/xblat3d | grep 'libblas\|zva'
NETLIB_BLAS=system NETLIB_BRANCHES=${NETLIB_BRANCHES:-7} NETLIB_THREADS=${NETLIB_THREADS:-1} \
  sh "$here/netlib.sh" "$build" blas
