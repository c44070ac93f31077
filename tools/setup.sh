#!/bin/sh
# Installs what building, testing and benchmarking need on Debian 12 x86-64:
# the multilib compilers, 32-bit OpenBLAS and reference BLAS as peers, the
# GoogleTest sources, the user-mode emulator for kernels that cannot run
# 32-bit programs themselves, gnuplot for the benchmark's plots, and
# netlib's BLAS and LAPACK test programs.
set -e
export DEBIAN_FRONTEND=noninteractive
dpkg --add-architecture i386
# A mirror in the middle of a sync fails one index now and then: try again.
for try in 1 2 3 4 5; do
  if apt-get update -q; then break; fi
  sleep $((10 * try))
done
apt-get install -y -q --no-install-recommends \
  cmake make g++ g++-multilib googletest binutils qemu-user \
  gfortran gfortran-multilib libopenblas0-pthread:i386 libblas3:i386 liblapack3:i386 \
  gnuplot-nox libblas-test:i386 liblapack-test:i386 \
  libgomp1:i386
