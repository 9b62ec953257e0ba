#!/usr/bin/env bash
# Installs a build into a folder of its own and builds the example driver against what is there, once
# through find_package, once through pkg-config; then the example platform, which is run too.
#
# usage: build_against_installed.sh BUILD_DIRECTORY SOURCE_DIRECTORY C_COMPILER CXX_COMPILER
set -euo pipefail
build=$1 source=$2 compiler=$3 cxx_compiler=$4

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
prefix=$folder/prefix
cmake --install "$build" --prefix "$prefix" >"$folder/install.log" || { cat "$folder/install.log"; exit 1; }

# Moved after the installation: nothing may hold the place where it was first.
mv "$prefix" "$folder/moved"
prefix=$folder/moved
libraries=$(dirname "$(find "$prefix" -name liblum.so)")

expect_usage() {
  local status=0
  "$@" >"$folder/out" 2>&1 || status=$?
  grep -q '^usage: ' "$folder/out" && [ "$status" -eq 2 ] || { cat "$folder/out"; exit 1; }
}

cmake -S "$source/tests/package/find_package" -B "$folder/by-cmake" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$compiler" \
  -DDRIVER_SOURCE="$source/examples/minimal_driver.c" >"$folder/cmake.log" || { cat "$folder/cmake.log"; exit 1; }
cmake --build "$folder/by-cmake"
expect_usage "$folder/by-cmake/driver"

export PKG_CONFIG_PATH=$libraries/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs lum_linux)"
"$compiler" -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Wpedantic -Werror \
  "$source/examples/minimal_driver.c" "${flags[@]}" -o "$folder/by-pkg-config"
expect_usage env LD_LIBRARY_PATH="$libraries" "$folder/by-pkg-config"

cmake -S "$source/examples/own_platform" -B "$folder/own-platform" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx_compiler" \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >"$folder/cmake.log" || { cat "$folder/cmake.log"; exit 1; }
cmake --build "$folder/own-platform"
export LUM_STORE=$folder/store
"$folder/own-platform/own_platform" >"$folder/out" 2>&1 || { cat "$folder/out"; exit 1; }
diff - "$folder/out" <<END
controllers created: 2
OWN PLATFORM: 41.00 C, LED normal
END
LUM_STORE=$folder/conformance-store "$folder/own-platform/conformance" texts trees checkpoints \
  >"$folder/out" 2>&1 || { cat "$folder/out"; exit 1; }

[ "$(pkg-config --modversion lum)" = "$(sed -n 's/^project(lum VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")" ]
for file in sbin/lumd bin/lumctl bin/lum-module-image bin/lum-trace lib/systemd/system/lumd.service \
            share/man/man8/lumd.8 share/man/man1/lumctl.1 share/bash-completion/completions/lumctl \
            share/zsh/site-functions/_lumctl share/fish/vendor_completions.d/lumctl.fish \
            lib/sysusers.d/lumd.conf lib/udev/rules.d/70-lumd.rules \
            share/man/man1/lum-module-image.1 share/man/man1/lum-trace.1 share/doc/lum/examples/node.toml share/doc/lum/examples/lumd-network.conf \
            share/doc/lum/examples/minimal_driver.c share/doc/lum/examples/own_platform/CMakeLists.txt \
            share/doc/lum/examples/simulated/node.toml; do
  [ -s "$prefix/$file" ] || { echo "$file was not installed"; exit 1; }
done
# The unit names where things were to be installed; here they are elsewhere.
sed "s|^ExecStart=[^ ]*|ExecStart=$prefix/sbin/lumd|" "$prefix/lib/systemd/system/lumd.service" >"$folder/lumd.service"
systemd-analyze verify --man=no "$folder/lumd.service"
# With the drop-in for the network, every line of which is in force.
mkdir "$folder/lumd.service.d"
sed 's/^#\([A-Z][A-Za-z]*=\)/\1/' "$prefix/share/doc/lum/examples/lumd-network.conf" >"$folder/lumd.service.d/network.conf"
systemd-analyze verify --man=no "$folder/lumd.service" 2>&1 | tee "$folder/out"
[ ! -s "$folder/out" ]
LD_LIBRARY_PATH=$libraries "$prefix/sbin/lumd" --check --config "$prefix/share/doc/lum/examples/node.toml"
