#!/usr/bin/env bash
# Installs every Debian package that building, testing and running Quillarium needs.
# Idempotent: packages already present are left alone, so a second run costs one dpkg query.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config ccache clang-format git
  # application framework
  qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins
  # image engine
  libopencv-dev libopencv-contrib-dev opencv-data
  libraw-dev libexiv2-dev libheif-dev libde265-0
  libturbojpeg0-dev libjpeg62-turbo-dev libpng-dev libtiff-dev liblcms2-dev
  liblensfun-dev liblensfun-data-v1
  libdlib-dev libopenblas0-pthread libopenblas-dev liblapack-dev
  # records, sharing, devices, secrets
  nlohmann-json3-dev libqrencode-dev libsecret-1-dev libgphoto2-dev
  # fonts with Vietnamese glyphs
  fonts-noto-core
  # tests and benchmarks
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  hyperfine libimage-exiftool-perl xvfb xauth python3
  # peers the benchmarks compare against
  libraw-bin libvips-tools time darktable rawtherapee imagemagick
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
