#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building, testing, benchmarking and fuzzing
# libtarnxml need. Only what is missing is installed; when everything is present the script
# prints nothing and exits 0. Nothing is downloaded from anywhere but Debian's archive.
#
#   scripts/install-deps.sh          native (x86_64) build, tests, benchmarks, fuzzers, tool
#   scripts/install-deps.sh --i386   additionally what `make test32` needs: g++-multilib,
#                                    qemu-user-static and an i386 sysroot (see below)
#
# The i386 libraries are not installed into the system as multiarch packages: multiarch requires
# the amd64 and i386 versions of every shared package to match exactly, which a machine updated
# from the security suite, or a mirror in the middle of a sync, easily breaks. Instead the i386
# packages are downloaded from Debian's archive (dpkg --add-architecture i386; apt-get download)
# and unpacked into a private sysroot, $TARNXML_I386_SYSROOT (default /opt/tarnxml/i386-sysroot),
# which cmake/i386-linux-gnu.cmake builds against. The 32-bit tests run under qemu-i386-static,
# so they also run where the kernel cannot execute 32-bit programs itself.
set -euo pipefail

packages=(
  build-essential g++ cmake make pkg-config
  clang libclang-rt-14-dev
  libxml2-dev libxml2-utils
  libpugixml-dev
  libboost-dev libboost-thread-dev libboost-system-dev
  liblog4cplus-dev
  libfmt-dev
  libutfcpp-dev
  libgtest-dev libgmock-dev
  libbenchmark-dev
  libcli11-dev
  valgrind
  xmlstarlet time
  shared-mime-info
)

i386_host_packages=(g++-multilib qemu-user-static)
# Unpacked into the sysroot (with the run-time libraries they need beyond the multilib libc and
# libstdc++).
i386_sysroot_packages=(
  libxml2 libxml2-dev libicu72 liblzma5 zlib1g
  libpugixml1v5 libpugixml-dev
  libboost1.74-dev libboost-thread1.74.0 libboost-thread1.74-dev libboost-atomic1.74.0
  libboost-atomic1.74-dev libboost-system1.74.0 libboost-system1.74-dev
  liblog4cplus-2.0.5 liblog4cplus-dev libfmt9 libfmt-dev
  libgtest-dev libgmock-dev libutfcpp-dev
)
i386_sysroot="${TARNXML_I386_SYSROOT:-/opt/tarnxml/i386-sysroot}"
i386_stamp="$i386_sysroot/.complete-2"

want_i386=0
for arg in "$@"; do
  case "$arg" in
    --i386) want_i386=1 ;;
    -h|--help) sed -n '2,8p' "$0"; exit 0 ;;
    *) echo "install-deps.sh: unknown option '$arg'" >&2; exit 2 ;;
  esac
done

missing=()
is_installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

for p in "${packages[@]}"; do is_installed "$p" || missing+=("$p"); done
if [ "$want_i386" = 1 ]; then
  for p in "${i386_host_packages[@]}"; do is_installed "$p" || missing+=("$p"); done
fi

[ "${#missing[@]}" -eq 0 ] && { [ "$want_i386" = 0 ] || [ -f "$i386_stamp" ]; } && exit 0

sudo=""
if [ "$(id -u)" != 0 ]; then
  if command -v sudo >/dev/null 2>&1; then sudo="sudo"; else
    echo "install-deps.sh: missing packages (${missing[*]}) and not root; install them and re-run" >&2
    exit 1
  fi
fi

export DEBIAN_FRONTEND=noninteractive

apt_update() {
  # A mirror in the middle of a sync can fail one index; retry, then go on with what we have and
  # let the install itself decide.
  for attempt in 1 2 3; do
    if $sudo apt-get update -qq >/dev/null 2>&1; then return 0; fi
    echo "install-deps.sh: apt-get update failed (attempt $attempt)" >&2
    sleep $((attempt * 5))
  done
}

if [ "${#missing[@]}" -gt 0 ]; then
  echo "install-deps.sh: installing ${missing[*]}" >&2
  apt_update
  if ! $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null; then
    echo "install-deps.sh: apt-get install failed for: ${missing[*]}" >&2
    exit 1
  fi
fi

if [ "$want_i386" = 1 ] && [ ! -f "$i386_stamp" ]; then
  echo "install-deps.sh: unpacking the i386 sysroot into $i386_sysroot" >&2
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $sudo dpkg --add-architecture i386
  fi
  apt_update
  work=$(mktemp -d)
  chmod 755 "$work"  # apt downloads as the _apt user
  trap 'rm -rf "$work"' EXIT
  (cd "$work" && apt-get download -qq "${i386_sysroot_packages[@]/%/:i386}" >/dev/null)
  $sudo mkdir -p "$i386_sysroot"
  for deb in "$work"/*.deb; do $sudo dpkg-deb -x "$deb" "$i386_sysroot"; done
  $sudo touch "$i386_stamp"
fi
