# Cross-compiles for arm64 iOS devices from a Linux host with Debian's clang and LLVM's ld64.lld.
#
# Inputs, given by path (cache variables or environment variables of the same name):
#   TACTORA_IOS_SDK      an iPhoneOS SDK directory (e.g. .../iPhoneOS14.5.sdk)
#   TACTORA_IOS_HEADERS  a directory holding CydiaSubstrate.h, libactivator/ and rocketbootstrap/
#   TACTORA_IOS_LIBS     a directory holding CydiaSubstrate.framework, libactivator.tbd and
#                        librocketbootstrap.tbd
#   TACTORA_LUA_SOURCE   the src/ directory of a Lua 5.2 source tree
#   TACTORA_LIBCXX_HEADERS  libc++ headers (the SDKs carry none); default: Debian's libc++-14-dev
# Optional: TACTORA_IOS_MIN (deployment target, default 13.0), TACTORA_IOS_ARCHS (one of arm64,
# arm64e; default arm64). arm64e needs a clang and an ld64 of Apple's ABI (Xcode's, or a Linux build
# of Apple's LLVM and ld64), given as TACTORA_IOS_ARM64E_CC (its clang; clang++ is looked up
# beside it) and TACTORA_IOS_ARM64E_LD (its ld64): Debian's clang emits an older arm64e ABI and
# LLVM's ld64.lld does not link arm64e at all.
set(CMAKE_SYSTEM_NAME iOS)
set(CMAKE_SYSTEM_PROCESSOR arm64)

foreach(var TACTORA_IOS_SDK TACTORA_IOS_HEADERS TACTORA_IOS_LIBS TACTORA_LUA_SOURCE
            TACTORA_LIBCXX_HEADERS TACTORA_IOS_MIN TACTORA_IOS_ARCHS TACTORA_IOS_ARM64E_CC
            TACTORA_IOS_ARM64E_LD)
  if(NOT DEFINED ${var} AND DEFINED ENV{${var}})
    set(${var} "$ENV{${var}}")
  endif()
endforeach()
if(NOT TACTORA_IOS_SDK)
  message(FATAL_ERROR "no iPhoneOS SDK: set TACTORA_IOS_SDK")
endif()
if(NOT TACTORA_IOS_MIN)
  set(TACTORA_IOS_MIN 13.0)
endif()
if(NOT TACTORA_IOS_ARCHS)
  set(TACTORA_IOS_ARCHS arm64)
endif()
if(NOT TACTORA_LIBCXX_HEADERS)
  set(TACTORA_LIBCXX_HEADERS /usr/lib/llvm-14/include/c++/v1)
endif()
# try_compile projects see these too.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TACTORA_IOS_SDK TACTORA_IOS_HEADERS TACTORA_IOS_LIBS
    TACTORA_LUA_SOURCE TACTORA_LIBCXX_HEADERS TACTORA_IOS_MIN TACTORA_IOS_ARCHS TACTORA_IOS_ARM64E_CC
    TACTORA_IOS_ARM64E_LD)

if(TACTORA_IOS_ARCHS STREQUAL "arm64e")
  if(NOT TACTORA_IOS_ARM64E_CC OR NOT TACTORA_IOS_ARM64E_LD)
    message(FATAL_ERROR "arm64e needs TACTORA_IOS_ARM64E_CC and TACTORA_IOS_ARM64E_LD (Apple's clang and ld64)")
  endif()
  get_filename_component(tactoraArm64eBin ${TACTORA_IOS_ARM64E_CC} DIRECTORY)
  set(TACTORA_CLANG ${TACTORA_IOS_ARM64E_CC})
  find_program(TACTORA_CLANGXX NAMES clang++ PATHS ${tactoraArm64eBin} NO_DEFAULT_PATH REQUIRED)
  set(TACTORA_LD64 ${TACTORA_IOS_ARM64E_LD})
  # ld64 of Xcode 12 and later; the driver then passes -platform_version.
  set(TACTORA_LINKER_VERSION 711)
elseif(TACTORA_IOS_ARCHS STREQUAL "arm64")
  find_program(TACTORA_CLANG NAMES clang clang-14 REQUIRED)
  find_program(TACTORA_CLANGXX NAMES clang++ clang++-14 REQUIRED)
  find_program(TACTORA_LD64 NAMES ld64.lld ld64.lld-14 REQUIRED)
  set(TACTORA_LINKER_VERSION 609)
else()
  message(FATAL_ERROR "TACTORA_IOS_ARCHS=${TACTORA_IOS_ARCHS}: one slice per build, arm64 or arm64e")
endif()
# LLVM's binary tools understand Mach-O; GNU ar would write archives without a symbol index.
find_program(CMAKE_AR NAMES llvm-ar llvm-ar-14 REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib llvm-ranlib-14 REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14 REQUIRED)
find_program(CMAKE_NM NAMES llvm-nm llvm-nm-14)
find_program(CMAKE_OBJDUMP NAMES llvm-objdump llvm-objdump-14)
find_program(CMAKE_STRIP NAMES llvm-strip llvm-strip-14)

set(CMAKE_C_COMPILER ${TACTORA_CLANG})
set(CMAKE_CXX_COMPILER ${TACTORA_CLANGXX})
set(CMAKE_OBJCXX_COMPILER ${TACTORA_CLANGXX})
set(CMAKE_OBJC_COMPILER ${TACTORA_CLANG})
foreach(lang C CXX OBJC OBJCXX)
  set(CMAKE_${lang}_COMPILER_TARGET ${TACTORA_IOS_ARCHS}-apple-ios${TACTORA_IOS_MIN})
endforeach()

set(CMAKE_OSX_SYSROOT ${TACTORA_IOS_SDK} CACHE PATH "" FORCE)
set(CMAKE_OSX_ARCHITECTURES ${TACTORA_IOS_ARCHS} CACHE STRING "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET ${TACTORA_IOS_MIN} CACHE STRING "" FORCE)

# The SDK has no C++ headers: take LLVM's libc++ headers and link the SDK's libc++.tbd.
set(CMAKE_CXX_FLAGS_INIT "-nostdinc++ -isystem ${TACTORA_LIBCXX_HEADERS} -stdlib=libc++")
set(CMAKE_OBJCXX_FLAGS_INIT "-nostdinc++ -isystem ${TACTORA_LIBCXX_HEADERS} -stdlib=libc++")
# -mlinker-version makes the driver pass -platform_version, which ld64.lld requires.
# Apple's ld64 (the arm64e build) takes the same flags.
# The compile flags reach the link line too, where -nostdinc++ means nothing.
set(TACTORA_IOS_LINK_FLAGS
    "-fuse-ld=${TACTORA_LD64} -mlinker-version=${TACTORA_LINKER_VERSION} -stdlib=libc++ -Wno-unused-command-line-argument")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${TACTORA_IOS_LINK_FLAGS}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${TACTORA_IOS_LINK_FLAGS}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${TACTORA_IOS_LINK_FLAGS}")

set(CMAKE_FIND_ROOT_PATH ${TACTORA_IOS_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Compiler checks build a static library: linking a test executable needs no code signing.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
