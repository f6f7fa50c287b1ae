#!/usr/bin/env bash
# Builds the tweak for iOS and packages it as two .deb files (rootful and rootless layouts).
#
# Inputs, by path (see docs/ios-build.md):
#   TACTORA_IOS_SDK       iPhoneOS SDK directory                          (required)
#   TACTORA_IOS_HEADERS   CydiaSubstrate/Activator/RocketBootstrap headers (required with the SDK)
#   TACTORA_IOS_LIBS      their stubs (rootless ones under iphone/rootless) (required with the SDK)
#   TACTORA_LUA_SOURCE    src/ of a Lua 5.2 source tree (default: fetched with apt-get source)
#   TACTORA_IOS_FLOOR_STUBS  the .tbd stubs of the oldest SDK the package serves (iOS 13: theos'
#                         iPhoneOS13.7.sdk) (optional: with it, every import must be exported there)
#   TACTORA_IOS_ARM64E_CC, TACTORA_IOS_ARM64E_LD   a clang and an ld64 of Apple's arm64e ABI (Xcode's,
#                         or a Linux build of Apple's LLVM and ld64) (optional: with both, the
#                         dylib is fat, arm64 + arm64e; without, arm64 only)
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
# The arm64e compile-only pass needs a clang that knows the pointer-authentication flags.
command -v clang-19 >/dev/null || fail "clang-19 is missing (Debian: clang-19)"
command -v ld64.lld >/dev/null || command -v ld64.lld-14 >/dev/null || fail "ld64.lld is missing (Debian: lld)"
arm64e=""
if [ -n "${TACTORA_IOS_ARM64E_CC:-}${TACTORA_IOS_ARM64E_LD:-}" ]; then
  [ -x "${TACTORA_IOS_ARM64E_CC:-}" ] && [ -x "${TACTORA_IOS_ARM64E_LD:-}" ] ||
    fail "TACTORA_IOS_ARM64E_CC and TACTORA_IOS_ARM64E_LD must both name executables (see docs/ios-build.md)"
  lipo=$(command -v llvm-lipo || command -v llvm-lipo-14) || fail "llvm-lipo is missing (Debian: llvm)"
  arm64e=yes
fi
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

# Pointer authentication: every file of the core and the platform layer compiles for arm64e, under
# the arm64e ABI's signing of calls, returns and vtables, without a warning. Debian's clang cannot
# make a loadable arm64e slice (an older ABI, and no linker), but it does check the code: a function
# pointer that must be re-signed (PointerAuth.h) or an intrinsic used wrongly shows here.
ptrauth_flags=(-target arm64e-apple-ios14.0 -fptrauth-calls -fptrauth-returns -fptrauth-intrinsics
  -fptrauth-auth-traps -fptrauth-indirect-gotos -fptrauth-vtable-pointer-address-discrimination
  -fptrauth-vtable-pointer-type-discrimination -fptrauth-init-fini)
libcxx=${TACTORA_LIBCXX_HEADERS:-/usr/lib/llvm-14/include/c++/v1}
common=(-fsyntax-only -isysroot "$TACTORA_IOS_SDK" -nostdinc++ -isystem "$libcxx" -std=c++20 -Os -DNDEBUG
  -I "$here/platform" -I "$here/core" -isystem "$TACTORA_IOS_HEADERS" -isystem "$TACTORA_LUA_SOURCE"
  -F "$TACTORA_IOS_LIBS" -Wall -Wextra -Werror)
ptrauth_log="$out/arm64e-check.log"
: >"$ptrauth_log"
checked=0
for file in $(find platform/ios -name "*.mm" | sort) "$out/cmake/rootful/PackageRoot.mm" $(find core -name '*.cpp' | sort); do
  case $file in *.mm) language=(-x objective-c++ -fobjc-arc) ;; *) language=(-x c++) ;; esac
  clang-19 "${ptrauth_flags[@]}" "${common[@]}" "${language[@]}" "$file" >>"$ptrauth_log" 2>&1 ||
    { cat "$ptrauth_log" >&2; fail "$file does not compile cleanly for arm64e"; }
  checked=$((checked + 1))
done
echo "build-ios: arm64e compile-only pass clean ($checked files)"

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
# Linking against a newer SDK binds imports the oldest firmware may not have; only its stubs tell.
if [ -n "${TACTORA_IOS_FLOOR_STUBS:-}" ]; then
  [ -d "$TACTORA_IOS_FLOOR_STUBS" ] || fail "TACTORA_IOS_FLOOR_STUBS is not a directory: $TACTORA_IOS_FLOOR_STUBS"
  python3 "$here/scripts/ios-floor-imports.py" "$nm" "$TACTORA_IOS_FLOOR_STUBS:$TACTORA_IOS_LIBS" \
    "$out"/cmake/{rootful,rootless}/{Tactora.dylib,tactora-doctor} ||
    fail "imports above are not exported by the stubs in $TACTORA_IOS_FLOOR_STUBS"
  echo "build-ios: every import is exported by the stubs in $TACTORA_IOS_FLOOR_STUBS"
fi

# With Apple's arm64e toolchain, a second build makes the arm64e slice (its ABI begins with iOS 14),
# checked as the arm64 one is, and each layout's dylib becomes fat.
mkdir -p "$out/dylibs"
for layout in rootful rootless; do
  cp "$out/cmake/$layout/Tactora.dylib" "$out/dylibs/Tactora-$layout.dylib"
  cp "$out/cmake/$layout/tactora-doctor" "$out/dylibs/tactora-doctor-$layout"
done
if [ -n "$arm64e" ]; then
  export TACTORA_IOS_ARM64E_CC TACTORA_IOS_ARM64E_LD
  TACTORA_IOS_ARCHS=arm64e TACTORA_IOS_MIN=14.0 \
    cmake -G Ninja -S "$here" -B "$out/cmake-arm64e" -DCMAKE_BUILD_TYPE=MinSizeRel -DTACTORA_PLATFORM=ios \
    -DCMAKE_TOOLCHAIN_FILE="$here/cmake/ios.toolchain.cmake" -DTACTORA_TESTS=OFF -DTACTORA_BENCH=OFF >/dev/null
  if ! cmake --build "$out/cmake-arm64e" -j 2 >"$out/build-arm64e.log" 2>&1; then
    cat "$out/build-arm64e.log" >&2
    fail "the arm64e build failed"
  fi
  if grep -q "warning:" "$out/build-arm64e.log"; then
    grep -B2 -A4 "warning:" "$out/build-arm64e.log" >&2
    fail "the arm64e build has warnings"
  fi
  for layout in rootful rootless; do
    slice="$out/cmake-arm64e/$layout/Tactora.dylib"
    check_dylib "$slice" "$layout"
    "$lipo" -create "$out/cmake/$layout/Tactora.dylib" "$slice" -output "$out/dylibs/Tactora-$layout.dylib"
    [ "$("$lipo" -archs "$out/dylibs/Tactora-$layout.dylib")" = "arm64 arm64e" ] ||
      fail "the $layout dylib is not fat arm64 + arm64e"
    check_doctor "$out/cmake-arm64e/$layout/tactora-doctor" "$layout"
    "$lipo" -create "$out/cmake/$layout/tactora-doctor" "$out/cmake-arm64e/$layout/tactora-doctor" \
      -output "$out/dylibs/tactora-doctor-$layout"
  done
  echo "build-ios: dylibs are fat: arm64 + arm64e"
else
  echo "build-ios: arm64 only (loads on A8 to A11; set TACTORA_IOS_ARM64E_CC and TACTORA_IOS_ARM64E_LD for arm64e)"
fi

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
  mkdir -p "$stage/DEBIAN"
  staged=()
  # Installs $1 at the device path $3 (under the layout's prefix) with mode $2.
  stage_file() {
    install -D -m "$2" "$1" "$stage$prefix$3"
    staged+=("$prefix$3")
  }
  stage_file "$out/dylibs/Tactora-$layout.dylib" 0755 /Library/MobileSubstrate/DynamicLibraries/Tactora.dylib
  stage_file platform/ios/Tactora.plist 0644 /Library/MobileSubstrate/DynamicLibraries/Tactora.plist
  stage_file "$out/dylibs/tactora-doctor-$layout" 0755 /usr/bin/tactora-doctor
  # Every new interpreter runs it first; a user's edits to it survive upgrades (a conffile).
  stage_file resources/Extensions.lua 0644 /Applications/Tactora.app/Extensions.lua
  echo "$prefix/Applications/Tactora.app/Extensions.lua" >"$stage/DEBIAN/conffiles"
  sed -e "s/@VERSION@/$version/" -e "s/@ARCHITECTURE@/$arch/" -e "s/@FIRMWARE@/$firmware/" \
    platform/ios/package/control.in >"$stage/DEBIAN/control"
  deb="$packages/com.tactora.tactora_${version}_${arch}.deb"
  dpkg-deb --root-owner-group -Zgzip -b "$stage" "$deb" >/dev/null

  # The package holds exactly the staged files (the dylib, its filter, Extensions.lua and the
  # self-test command), its filter names both processes by bundle and by
  # executable, Extensions.lua is a conffile, and its control file parses.
  expected=$(printf '.%s\n' "${staged[@]}" | sort)
  actual=$(dpkg-deb --contents "$deb" | awk '$1 !~ /^d/ {print $6}' | sort)
  [ "$actual" = "$expected" ] || fail "$deb holds unexpected files: $actual"
  filter=$(dpkg-deb --fsys-tarfile "$deb" | tar -xO ".$prefix/Library/MobileSubstrate/DynamicLibraries/Tactora.plist")
  for name in com.apple.springboard com.apple.backboardd SpringBoard backboardd; do
    grep -q "<string>$name</string>" <<<"$filter" || fail "$deb's filter does not name $name"
  done
  grep -q "<key>Executables</key>" <<<"$filter" || fail "$deb's filter names no executables"
  [ "$(dpkg-deb --ctrl-tarfile "$deb" | tar -xO ./conffiles)" = "$prefix/Applications/Tactora.app/Extensions.lua" ] ||
    fail "$deb does not keep Extensions.lua as a conffile"
  [ "$(dpkg-deb --field "$deb" Architecture)" = "$arch" ] || fail "$deb has the wrong architecture"
  dpkg-deb --info "$deb" >/dev/null || fail "$deb has no valid control file"
  echo "build-ios: $deb ($(stat -c %s "$deb") bytes; dylib $(stat -c %s "$out/dylibs/Tactora-$layout.dylib") bytes)"
done
