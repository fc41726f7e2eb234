#!/usr/bin/env bash
# Installs every Debian package Tovin needs to build and test. Idempotent: it asks dpkg first,
# so a machine that already has everything pays a second or so and never touches the network.
#
#   scripts/setup.sh            packages for building, running and testing
#   scripts/setup.sh --fuzz     also clang and its libFuzzer runtime
set -euo pipefail

packages=(
    # toolchain
    build-essential cmake ninja-build pkg-config git
    # Qt, and the system services the platform layer talks to
    qt6-base-dev qt6-webengine-dev qt6-webchannel-dev libpulse-dev libx11-dev libxss-dev
    # tests and benchmarks
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    # the calendar needs real zone data to pin time zones in tests
    tzdata
    # real parts for the platform tests: a sound server, an X server and input, a private bus
    pulseaudio pulseaudio-utils xvfb xauth xdotool x11-xserver-utils dbus-daemon
    fonts-dejavu-core
)

for arg in "$@"; do
    case "$arg" in
        --fuzz) packages+=(clang libclang-rt-14-dev) ;;
        *) echo "setup.sh: unknown option $arg" >&2; exit 2 ;;
    esac
done

missing=()
for p in "${packages[@]}"; do
    # "install ok installed" is the only state that means the package is really there.
    if [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" != "install ok installed" ]; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "setup: installing ${missing[*]}"
sudo=()
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
        sudo=(sudo)
    else
        echo "setup: these packages are missing and I am not root: ${missing[*]}" >&2
        exit 1
    fi
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get -o DPkg::Lock::Timeout=600 update -qq
"${sudo[@]}" apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends "${missing[@]}"
