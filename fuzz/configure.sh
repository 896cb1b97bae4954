#!/usr/bin/env bash
# Configures build-fuzz: clang with AddressSanitizer, UndefinedBehaviorSanitizer and the libFuzzer
# coverage hooks. The same build serves the fuzz targets and a sanitized run of the test suite.
# Installs clang when it is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang++ >/dev/null || ! ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1; then
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends clang libclang-rt-dev >/dev/null
fi
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQT_FUZZ=ON -DQT_SANITIZE=ON -DQT_BUILD_BENCH=OFF "${launcher[@]}" >/dev/null
