#!/usr/bin/env bash
# Installs, through apt-get, every Debian package that building and testing Tactora needs and
# that this machine does not have yet. Safe to run again: it installs only what is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config clang lld libclang-rt-14-dev
  liblua5.2-dev lua5.2 libsqlite3-dev sqlite3 libssl-dev libpng-dev
  libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev libcpp-httplib-dev
  libopencv-imgproc-dev  # bench_image_search times OpenCV's template matching beside the search
  nodejs npm chromium time python3
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
# Node.js may come from another Debian repository under the same name; any working node and npm do.
if command -v node >/dev/null && command -v npm >/dev/null; then
  missing=("${missing[@]/nodejs}"); missing=("${missing[@]/npm}")
fi
read -r -a missing <<<"${missing[*]:-}"

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
