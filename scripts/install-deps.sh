#!/usr/bin/env bash
# Installs every Debian 12 package Quorvale needs to build, test, benchmark and run.
# Safe to run again: packages already present are left as they are.
set -euo pipefail

packages=(
    # toolchain
    build-essential cmake ninja-build pkg-config git clang clang-format libclang-rt-14-dev
    # test and benchmark frameworks
    libgtest-dev libgmock-dev libbenchmark-dev
    # image and colour libraries the engine calls
    libpng-dev libjpeg62-turbo-dev libtiff-dev zlib1g-dev liblcms2-dev
    # URL downloads of pictures
    libcurl4-openssl-dev
    # an outside check of exported files in tests
    imagemagick
    # benchmark anchors
    libopencv-imgproc-dev libmypaint-dev
    # the application and a display for it when none is running
    qt6-base-dev xvfb xauth
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: all ${#packages[@]} packages present"
    exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "install-deps: run as root or install sudo" >&2; exit 1; }
    sudo="sudo"
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
