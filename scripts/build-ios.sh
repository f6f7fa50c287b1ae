#!/usr/bin/env bash
# Builds the tweak for iOS and packages it as two .deb files (rootful and rootless layouts).
#
# Inputs, by path (see docs/ios-build.md):
#   TACTORA_IOS_SDK       iPhoneOS SDK directory                          (required)
#   TACTORA_IOS_HEADERS   CydiaSubstrate/Activator/RocketBootstrap headers (required with the SDK)
#   TACTORA_IOS_LIBS      their stubs (rootless ones under iphone/rootless) (required with the SDK)
#   TACTORA_LUA_SOURCE    src/ of a Lua 5.2 source tree (default: fetched with apt-get source)
# Output: build/ios/packages/com.tactora.tactora_<version>_iphoneos-arm{,64}.deb
# Without an SDK it prints one line and succeeds, so the test suite runs anywhere.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"

if [ -z "${TACTORA_IOS_SDK:-}" ] || [ ! -d "${TACTORA_IOS_SDK}" ]; then
  echo "iOS build skipped: no iPhoneOS SDK (set TACTORA_IOS_SDK)"
  exit 0
fi
fail() { echo "build-ios: $*" >&2; exit 1; }
for var in TACTORA_IOS_HEADERS TACTORA_IOS_LIBS; do
  [ -n "${!var:-}" ] && [ -d "${!var}" ] || fail "$var must name a directory (see docs/ios-build.md)"
done
for tool in clang++ ninja cmake dpkg-deb; do command -v "$tool" >/dev/null || fail "$tool is missing"; done
command -v ld64.lld >/dev/null || command -v ld64.lld-14 >/dev/null || fail "ld64.lld is missing (Debian: lld)"
[ -d "${TACTORA_LIBCXX_HEADERS:-/usr/lib/llvm-14/include/c++/v1}" ] ||
  fail "no libc++ headers: install libc++-14-dev or set TACTORA_LIBCXX_HEADERS"

out="$here/build/ios"
mkdir -p "$out"

# Lua 5.2 from Debian's source package, unless a tree is given.
if [ -z "${TACTORA_LUA_SOURCE:-}" ]; then
  lua="$out/lua"
  if [ ! -f "$lua/src/lapi.c" ]; then
    echo "build-ios: fetching Lua 5.2 sources with apt-get source"
    apt="$out/apt"
    mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$out/lua-download"
    echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian bookworm main" \
      >"$apt/sources.list"
    opts=(-o "Dir::Etc::SourceList=$apt/sources.list" -o Dir::Etc::SourceParts=/nonexistent -o APT::Sandbox::User=root
          -o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt/cache")
    apt-get "${opts[@]}" update -qq
    (cd "$out/lua-download" && apt-get "${opts[@]}" source --download-only lua5.2 >/dev/null)
    rm -rf "$lua" && mkdir -p "$lua"
    tar -xzf "$out"/lua-download/lua5.2_*.orig.tar.gz -C "$lua" --strip-components=1
  fi
  export TACTORA_LUA_SOURCE="$lua/src"
fi

# The host's library search path must not leak into the device link.
unset LIBRARY_PATH
export TACTORA_IOS_SDK TACTORA_IOS_HEADERS TACTORA_IOS_LIBS
cmake -G Ninja -S "$here" -B "$out/cmake" -DCMAKE_BUILD_TYPE=MinSizeRel -DTACTORA_PLATFORM=ios \
  -DCMAKE_TOOLCHAIN_FILE="$here/cmake/ios.toolchain.cmake" -DTACTORA_TESTS=OFF -DTACTORA_BENCH=OFF >/dev/null
log="$out/build.log"
if ! cmake --build "$out/cmake" -j 2 >"$log" 2>&1; then
  cat "$log" >&2
  fail "the build failed"
fi
# Lua is built with -w, so every warning left is ours.
if grep -q "warning:" "$log"; then
  grep -B2 -A4 "warning:" "$log" >&2
  fail "the build has warnings"
fi

# Each dylib names the injector, Activator and RocketBootstrap where its jailbreak keeps them, is
# signed, and depends on nothing but the system and those three.
objdump=$(command -v llvm-objdump || command -v llvm-objdump-14) || fail "llvm-objdump is missing (Debian: llvm)"
nm=$(command -v llvm-nm || command -v llvm-nm-14) || fail "llvm-nm is missing (Debian: llvm)"
check_dylib() {
  local dylib=$1 layout=$2 headers libraries
  headers=$("$objdump" --macho --private-headers "$dylib")
  libraries=$(awk '/cmd LC_LOAD_DYLIB|cmd LC_LOAD_WEAK_DYLIB/ {getline; getline; print $2}' <<<"$headers")
  local expected
  if [ "$layout" = rootful ]; then
    expected="/Library/Frameworks/CydiaSubstrate.framework/CydiaSubstrate /usr/lib/libactivator.dylib /usr/lib/librocketbootstrap.dylib"
  else
    expected="@rpath/CydiaSubstrate.framework/CydiaSubstrate @rpath/libactivator.dylib @rpath/librocketbootstrap.dylib"
    for path in /var/jb/usr/lib /var/jb/Library/Frameworks; do
      grep -q "path $path " <<<"$headers" || fail "$dylib has no run path $path"
    done
  fi
  for library in $expected; do
    grep -qxF "$library" <<<"$libraries" || fail "$dylib does not load $library"
  done
  local other
  other=$(grep -vxF $(printf -- '-e %s ' $expected) <<<"$libraries" |
          grep -vE '^(/System/Library/(Frameworks|PrivateFrameworks)/|/usr/lib/)' || true)
  [ -z "$other" ] || fail "$dylib loads unexpected libraries: $other"
  [ "$layout" = rootless ] && grep -qE '^(/usr/lib/lib(activator|rocketbootstrap)|/Library/Frameworks/)' <<<"$libraries" &&
    fail "$dylib mixes rootful library paths into the rootless layout"
  grep -q "cmd LC_CODE_SIGNATURE" <<<"$headers" || fail "$dylib is not signed"
  # (Whole outputs are kept: grep -q ending a pipe early would fail the pipe under pipefail.)
  local sections classes
  sections=$("$objdump" --macho --section-headers "$dylib")
  classes=$("$objdump" --macho --objc-meta-data "$dylib")
  grep -q __mod_init_func <<<"$sections" || fail "$dylib has no load-time constructor"
  grep -q __objc_nlclslist <<<"$sections" && grep -qE "name 0x[0-9a-f]+ ActionListener$" <<<"$classes" ||
    fail "$dylib has no Activator listener class loaded at start"
  [ -z "$("$objdump" --macho --exports-trie "$dylib" | grep -v -e "^Exports trie:" -e "Tactora.dylib:$" -e "^$" || true)" ] ||
    fail "$dylib exports symbols"
  grep -qE "^ +platform ios$" <<<"$headers" || fail "$dylib is not built for iOS"
  # Every imported symbol is bound to the library that provides it; none is left to a flat
  # lookup at load time, where a missing one would only show on the device.
  local unbound
  unbound=$("$nm" -m "$dylib" | grep "(undefined)" | grep -v "(from " || true)
  [ -z "$unbound" ] || fail "$dylib has symbols bound to no library: $unbound"
  return 0
}
for layout in rootful rootless; do check_dylib "$out/cmake/$layout/Tactora.dylib" "$layout"; done
# The self-test command: an iOS executable, signed, every import bound, loading nothing but the
# system and RocketBootstrap (where its layout keeps it).
check_doctor() {
  local tool=$1 layout=$2 headers libraries other unbound
  headers=$("$objdump" --macho --private-headers "$tool")
  [[ $("$objdump" --macho --private-header "$tool") == *EXECUTE* ]] || fail "$tool is not an executable"
  grep -qE "^ +platform ios$" <<<"$headers" || fail "$tool is not built for iOS"
  grep -q "cmd LC_CODE_SIGNATURE" <<<"$headers" || fail "$tool is not signed"
  libraries=$(awk '/cmd LC_LOAD_DYLIB|cmd LC_LOAD_WEAK_DYLIB/ {getline; getline; print $2}' <<<"$headers")
  local rocket=/usr/lib/librocketbootstrap.dylib
  [ "$layout" = rootless ] && rocket=@rpath/librocketbootstrap.dylib
  grep -qxF "$rocket" <<<"$libraries" || fail "$tool does not load $rocket"
  other=$(grep -vxF "$rocket" <<<"$libraries" | grep -vE '^(/System/Library/(Frameworks|PrivateFrameworks)/|/usr/lib/)' || true)
  [ -z "$other" ] || fail "$tool loads unexpected libraries: $other"
  unbound=$("$nm" -m "$tool" | grep "(undefined)" | grep -v "(from " || true)
  [ -z "$unbound" ] || fail "$tool has symbols bound to no library: $unbound"
}
for layout in rootful rootless; do check_doctor "$out/cmake/$layout/tactora-doctor" "$layout"; done

version=$(sed -n 's/^project(Tactora VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
packages="$out/packages"
rm -rf "$packages" && mkdir -p "$packages"
for layout in rootful rootless; do
  case $layout in
    rootful) prefix=""; arch=iphoneos-arm; firmware=13.0 ;;
    rootless) prefix="/var/jb"; arch=iphoneos-arm64; firmware=15.0 ;;
  esac
  stage="$out/stage-$layout"
  rm -rf "$stage"
  libdir="$stage$prefix/Library/MobileSubstrate/DynamicLibraries"
  mkdir -p "$stage/DEBIAN" "$libdir"
  install -m 0755 "$out/cmake/$layout/Tactora.dylib" "$libdir/Tactora.dylib"
  install -m 0644 platform/ios/Tactora.plist "$libdir/Tactora.plist"
  install -D -m 0755 "$out/cmake/$layout/tactora-doctor" "$stage$prefix/usr/bin/tactora-doctor"
  sed -e "s/@VERSION@/$version/" -e "s/@ARCHITECTURE@/$arch/" -e "s/@FIRMWARE@/$firmware/" \
    platform/ios/package/control.in >"$stage/DEBIAN/control"
  deb="$packages/com.tactora.tactora_${version}_${arch}.deb"
  dpkg-deb --root-owner-group -Zgzip -b "$stage" "$deb" >/dev/null

  # The package holds exactly the dylib, its filter and the self-test command, and its control
  # file parses.
  expected=$(printf '%s\n' "./$prefix/Library/MobileSubstrate/DynamicLibraries/Tactora.dylib" \
                            "./$prefix/Library/MobileSubstrate/DynamicLibraries/Tactora.plist" \
                            "./$prefix/usr/bin/tactora-doctor" | sed 's|//|/|' | sort)
  actual=$(dpkg-deb --contents "$deb" | awk '$1 !~ /^d/ {print $6}' | sort)
  [ "$actual" = "$expected" ] || fail "$deb holds unexpected files: $actual"
  [ "$(dpkg-deb --field "$deb" Architecture)" = "$arch" ] || fail "$deb has the wrong architecture"
  dpkg-deb --info "$deb" >/dev/null || fail "$deb has no valid control file"
  echo "build-ios: $deb"
done
