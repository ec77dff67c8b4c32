#!/usr/bin/env bash
# Installs the Debian packages qslave needs to build, test, benchmark and fuzz.
# Does nothing when every package is already there; run as root (or with sudo).
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libflxmlrpc-dev       # XML-RPC client for the purge server
  libgtest-dev libgmock-dev
  libbenchmark-dev
  python3-dbf python3-dbfread   # an independent dBase implementation for interop tests
  clang libclang-rt-14-dev llvm # fuzz targets and sanitizer builds
  valgrind
  nlohmann-json3-dev    # the tool's --json documents
  libcpp-httplib-dev    # the HTTP server of qslave serve
  libreadline-dev       # line editing and history in qslave shell
  chromium fonts-dejavu-core python3-websocket  # the page test drives headless chromium
  dpkg-dev file         # cpack -G DEB and the package test (dpkg -x)
  man-db                # the manual page test reads qslave.1 with man
  strace                # the system-call fault sweeps of the tool
  zlib1g-dev            # checksums of the journal fuzz target's entries
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "deps.sh: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
