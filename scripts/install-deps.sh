#!/usr/bin/env bash
# Installs, by Debian package name, whatever the build and the suite need and
# this machine lacks. Does nothing when everything is present.
set -euo pipefail

PACKAGES=(
  cmake ninja-build g++ pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  qtbase5-dev libtinyxml-dev libboost-thread-dev libssl-dev uuid-dev
  libx264-dev libvpx-dev libx265-dev libsvtav1enc-dev ffmpeg clang-format libseccomp-dev
  x264 doxygen
  clang libclang-rt-dev
  slurm-wlm munge
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "installing: ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
