#!/usr/bin/env bash
# Installs every Debian package Tovin needs to build and test. Idempotent: it asks dpkg first,
# so a machine that already has everything pays a second or so and never touches the network.
#
#   scripts/setup.sh            packages for building, running and testing
#   scripts/setup.sh --fuzz     also clang and its libFuzzer runtime
set -euo pipefail

packages=(
    # toolchain, with a compiler cache the package build shares
    build-essential cmake ninja-build pkg-config git ccache
    # the Debian package: its build and its check
    debhelper lintian
    # Qt, and the system services the platform layer talks to
    qt6-base-dev qt6-webengine-dev qt6-webchannel-dev libpulse-dev libx11-dev libxcb1-dev libxss-dev
    libsodium-dev libarchive-dev minisign openssl
    # the camera coach: the camera, its pose model on the CPU, and its voice
    qt6-multimedia-dev gstreamer1.0-plugins-good libopencv-dev
    # pictures with and without a person, for checking the pose model
    opencv-doc
    qt6-speech-dev qt6-speech-speechd-plugin speech-dispatcher speech-dispatcher-espeak-ng espeak-ng
    # tests and benchmarks
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    # the end-to-end checks' small helpers (the unkind neighbour's connections, sway's tree)
    python3
    # the calendar needs real zone data to pin time zones in tests
    tzdata
    # real parts for the platform tests: a sound server, an X server and input, a private bus
    pulseaudio pulseaudio-utils xvfb xauth xdotool x11-xserver-utils dbus-daemon openbox
    # the desktop's media graph, which the call detector reads (recordings, cameras, shared
    # screens), and a PipeWire desktop of its own for the tests: the daemon, its session manager,
    # its Pulse server and its command-line tools
    libpipewire-0.3-dev pipewire wireplumber pipewire-pulse pipewire-bin
    fonts-dejavu-core
    # a tray for the resident's benchmark to click, as a person's desktop has
    trayer
    # the workout web app's end-to-end checks drive Debian's Chromium
    chromium
    # the shield on Wayland: Qt's Wayland platform, the protocol files and scanner for the shortcuts
    # inhibitor, and a real compositor (sway, headless) with a terminal, key injection and screenshots
    qt6-wayland qt6-wayland-dev qt6-wayland-dev-tools qt6-base-private-dev libwayland-dev wayland-protocols
    sway foot wtype grim
    # the shield under GNOME Shell and KWin, each headless: the compositors, the idle and
    # fake-input protocols' descriptions, KDE's service cache (KWin's screenshots), and the bus
    # tools the checks and the GNOME extension's install use
    gnome-shell mutter xdg-desktop-portal python3-dbus libglib2.0-bin
    kwin-wayland plasma-wayland-protocols libkf5service-bin
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

# The web app builds with Vite 7, which needs Node.js 20.19 or later. A machine without a node
# gets Debian's, which is older; a newer one then comes from the npm registry (web-node below).
node_ok() {
    command -v node >/dev/null 2>&1 &&
        node -e 'const [a,b]=process.versions.node.split(".").map(Number);process.exit(a>20||(a===20&&b>=19)?0:1)'
}
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
    for p in nodejs npm; do
        if [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" != "install ok installed" ]; then
            missing+=("$p")
        fi
    done
fi

install_newer_node() {
    local root
    root=$(cd "$(dirname "$0")/.." && pwd)
    if [ ! -x "$root/.tools/node/node_modules/node/bin/node" ]; then
        echo "setup: Node.js $(node --version) is too old for the web build; fetching Node 22 from npm"
        npm install --no-audit --no-fund --prefix "$root/.tools/node" node@22 >/dev/null
    fi
}

if [ ${#missing[@]} -eq 0 ]; then
    node_ok || install_newer_node
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

node_ok || install_newer_node
