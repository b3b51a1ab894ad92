#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building, testing, benchmarking and fuzzing
# libtarnxml need. Only what is missing is installed; when everything is present the script
# prints nothing and exits 0. Nothing is downloaded from anywhere but Debian's archive.
#
#   scripts/install-deps.sh          native (x86_64) build, tests, benchmarks, fuzzers, tool
#   scripts/install-deps.sh --i386   additionally the i386 multiarch packages for `make test32`
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
  shared-mime-info
)

i386_packages=(
  g++-multilib
  libxml2-dev:i386 libpugixml-dev:i386
  libboost-dev:i386 libboost-thread-dev:i386 libboost-system-dev:i386
  liblog4cplus-dev:i386 libfmt-dev:i386
  libgtest-dev:i386 libgmock-dev:i386
)

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
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    dpkg --add-architecture i386
    need_update=1
  fi
  for p in "${i386_packages[@]}"; do is_installed "$p" || missing+=("$p"); done
fi

[ "${#missing[@]}" -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" != 0 ]; then
  if command -v sudo >/dev/null 2>&1; then sudo="sudo"; else
    echo "install-deps.sh: missing packages (${missing[*]}) and not root; install them and re-run" >&2
    exit 1
  fi
fi

echo "install-deps.sh: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
# A mirror in the middle of a sync can fail one index; retry, then go on with what we have and
# let the install itself decide.
for attempt in 1 2 3; do
  if $sudo apt-get update -qq >/dev/null 2>&1; then break; fi
  echo "install-deps.sh: apt-get update failed (attempt $attempt)" >&2
  sleep $((attempt * 5))
done
if ! $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null; then
  echo "install-deps.sh: apt-get install failed for: ${missing[*]}" >&2
  exit 1
fi
