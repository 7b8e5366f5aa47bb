#!/usr/bin/env bash
# Installs every Debian 12 package that the build, tests, benchmarks and demo need.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config clang
  libboost1.81-dev libboost-json1.81-dev libboost-url1.81-dev
  libcurl4-openssl-dev libicu-dev libcpp-httplib-dev
  libfmt-dev libspdlog-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "bootstrap: missing packages: ${missing[*]}" >&2
  echo "bootstrap: run as root, or install them with:" >&2
  echo "  sudo apt-get update && sudo apt-get install -y --no-install-recommends ${missing[*]}" >&2
  exit 1
fi

echo "bootstrap: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
