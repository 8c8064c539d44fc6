#!/usr/bin/env bash
# Installs everything Quorvel needs to build, run and test on Debian 12.
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

BUILD_PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-webengine-dev qt6-svg-dev
  libgl-dev libvulkan-dev libxkbcommon-dev
  libfreetype-dev libfontconfig-dev
  libgtest-dev googletest
)

# Fonts and font tools made by others: the tests read what they write. The
# accessibility bus and its Python client watch the real window. clang
# and its libFuzzer runtime build the fuzz harnesses.
TEST_PACKAGES=(
  fonts-dejavu-core fonts-urw-base35 fonts-noto-core
  t1utils fondu otf2bdf python3-fonttools python3-jsonschema ruby-prawn tex-gyre
  attr xvfb xauth dbus dbus-x11 pkexec fontconfig poppler-utils libglib2.0-bin
  at-spi2-core python3-pyatspi
  clang libclang-rt-14-dev
  # The package test checks the desktop entry, AppStream data and manual page.
  appstream desktop-file-utils groff-base
)

wanted=("${BUILD_PACKAGES[@]}")
if [ "${1:-}" = "--with-tests" ]; then
  wanted+=("${TEST_PACKAGES[@]}")
fi

missing=()
for p in "${wanted[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ "${#missing[@]}" -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
