#!/usr/bin/env bash
# Installs the build and test dependencies that are missing on a Debian 12 machine:
# the compiler and build tools, pkg-config, GoogleTest, Google Benchmark, and ffmpeg for the
# interoperability tests. Does nothing when everything is already there.
set -euo pipefail

packages=(cmake ninja-build g++ pkgconf libgtest-dev libbenchmark-dev ffmpeg)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
