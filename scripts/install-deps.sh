#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and run Ombrelo, only those missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libsqlite3-dev libicu-dev nlohmann-json3-dev libasio-dev libspdlog-dev libfmt-dev libcli11-dev
  libx11-dev libxss-dev libsystemd-dev libsecret-1-dev
  libwayland-dev wayland-protocols plasma-wayland-protocols
  libgtest-dev libgmock-dev libbenchmark-dev
  # real desktop pieces the capture tests drive
  xvfb openbox xdotool x11-utils dbus dbus-x11 sqlite3 tzdata locales
  # Wayland compositors the capture tests run headless
  sway wtype kwin-wayland gnome-shell
  # real readers of the exported files
  python3 python3-openpyxl unzip libxml2-utils
  # the browsers the window's and the extension's tests drive
  chromium firefox-esr
)

# Node.js and npm run the agent tests' official MCP client; a Node.js already
# installed from elsewhere (with its own npm) is kept.
command -v npm >/dev/null 2>&1 || packages+=(nodejs npm)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
