#!/usr/bin/env bash
# Installs the build and test dependencies from Debian's packages. Safe to run again:
# packages already present are left alone and nothing is fetched.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git
  libgtest-dev libgmock-dev libbenchmark-dev
  libcurl4-openssl-dev libssl-dev libboost1.81-dev
  nlohmann-json3-dev libicu-dev libcli11-dev libcpp-httplib-dev
  libopencc-dev opencc libsecret-1-dev
  python3 python3-websockets dbus gnome-keyring curl
  tar gzip unzip libarchive-tools
  libpocketsphinx-dev pocketsphinx pocketsphinx-en-us pocketsphinx-testdata sctk
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
