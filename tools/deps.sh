#!/usr/bin/env bash
# Installs what building and testing Kelvanor needs on a fresh Debian
# machine: the compiler and build tools, GoogleTest, Google Benchmark,
# omniNames, the naming service that the tests and the demo run beside vex,
# omniORB's IDL compiler, IDL files and libraries, from which the
# interoperability peers and the echo benchmark are built, Combat, an ORB in
# Tcl, the second independent peer, and what the packaging test uses:
# dpkg-shlibdeps and file for the .deb's dependencies, man for the man pages,
# and unshare and ip (util-linux, iproute2), with which the agent client's
# tests make network namespaces and veth pairs of their own.
# Does nothing when everything is present already.
set -euo pipefail

need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
for pkg in g++ cmake ninja-build libgtest-dev googletest libbenchmark-dev omniorb-nameserver omniorb \
           omniidl omniorb-idl libomniorb4-dev pkg-config tcl tcl-combat dpkg-dev file man-db \
           util-linux iproute2; do
  have_pkg "$pkg" || need+=("$pkg")
done
[ ${#need[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "deps: missing packages: ${need[*]}; run as root or install them" >&2
  exit 1
fi
echo "deps: installing ${need[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
