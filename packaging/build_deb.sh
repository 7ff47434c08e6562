#!/bin/sh
# Builds the Debian package from a build without tests, and names what came out.
set -eu
cd "$(dirname "$0")/.."
cmake -S . -B build-package -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build build-package
(cd build-package && cpack >/dev/null)
ls -l build-package/*.deb
