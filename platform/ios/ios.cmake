# The tweak: the core, Lua 5.2 and platform/ios/ cross-compiled into Tactora.dylib, linked once per
# package layout (rootful: stubs with /usr/lib and /Library/Frameworks install names; rootless:
# @rpath install names resolved under /var/jb). Included by the top CMakeLists.txt with
# TACTORA_PLATFORM=ios and cmake/ios.toolchain.cmake.
enable_language(OBJCXX)

foreach(var TACTORA_IOS_HEADERS TACTORA_IOS_LIBS TACTORA_LUA_SOURCE)
  if(NOT ${var})
    message(FATAL_ERROR "${var} is not set (see docs/ios-build.md)")
  endif()
endforeach()
if(NOT EXISTS ${TACTORA_LUA_SOURCE}/lua.h OR NOT EXISTS ${TACTORA_LUA_SOURCE}/lapi.c)
  message(FATAL_ERROR "TACTORA_LUA_SOURCE=${TACTORA_LUA_SOURCE} holds no Lua sources")
endif()

# --- Lua 5.2, as its own makefile builds it for a POSIX system with dlopen ----------------------
file(GLOB TACTORA_LUA_SOURCES ${TACTORA_LUA_SOURCE}/*.c)
list(FILTER TACTORA_LUA_SOURCES EXCLUDE REGEX "/(lua|luac)\\.c$")
add_library(tactora_lua STATIC ${TACTORA_LUA_SOURCES})
target_include_directories(tactora_lua SYSTEM PUBLIC ${TACTORA_LUA_SOURCE})
target_compile_definitions(tactora_lua PRIVATE LUA_COMPAT_ALL LUA_USE_POSIX LUA_USE_DLOPEN)
target_compile_options(tactora_lua PRIVATE -include ${CMAKE_SOURCE_DIR}/platform/ios/LuaSystemShim.h)
target_compile_options(tactora_lua PRIVATE -w)  # not our code

# --- the core ----------------------------------------------------------------------------------
target_link_libraries(tactora_core PUBLIC tactora_lua sqlite3)

# The dylib exports nothing: CydiaSubstrate runs it through its constructor and Objective-C
# classes register through the runtime, so no symbol of ours can clash with SpringBoard's or
# another tweak's.
foreach(target tactora_lua tactora_core)
  set_target_properties(${target} PROPERTIES C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
endforeach()

# --- the platform layer, compiled once ---------------------------------------------------------
file(GLOB TACTORA_IOS_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/ios/*.mm)
add_library(tactora_ios OBJECT ${TACTORA_IOS_SOURCES})
set_target_properties(tactora_ios PROPERTIES OBJCXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(tactora_ios PRIVATE ${CMAKE_SOURCE_DIR}/platform)
target_include_directories(tactora_ios SYSTEM PRIVATE ${TACTORA_IOS_HEADERS})
target_compile_options(tactora_ios PRIVATE ${TACTORA_WARNINGS} -fobjc-arc -F${TACTORA_IOS_LIBS})
target_link_libraries(tactora_ios PRIVATE tactora_core)

set(TACTORA_IOS_FRAMEWORKS Foundation CoreFoundation UIKit CoreGraphics QuartzCore IOKit IOSurface
    AudioToolbox AVFoundation ImageIO Security)

# --- one dylib per package layout --------------------------------------------------------------
function(tactora_tweak layout packageRoot stubs)
  set(target tactora_tweak_${layout})
  set(TACTORA_LAYOUT ${layout})
  set(TACTORA_PACKAGE_ROOT ${packageRoot})
  configure_file(${CMAKE_SOURCE_DIR}/platform/ios/PackageRoot.mm.in
                 ${CMAKE_BINARY_DIR}/${layout}/PackageRoot.mm @ONLY)
  add_library(${target} SHARED $<TARGET_OBJECTS:tactora_ios> ${CMAKE_BINARY_DIR}/${layout}/PackageRoot.mm)
  set_target_properties(${target} PROPERTIES OBJCXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR}/core)
  target_compile_options(${target} PRIVATE ${TACTORA_WARNINGS} -fobjc-arc)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME Tactora PREFIX "" SUFFIX ".dylib"
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${layout})
  foreach(framework ${TACTORA_IOS_FRAMEWORKS})
    target_link_libraries(${target} PRIVATE "-framework ${framework}")
  endforeach()
  # GraphicsServices is a private framework: its stub sits apart from the public ones.
  target_link_libraries(${target} PRIVATE -F${TACTORA_IOS_SDK}/System/Library/PrivateFrameworks
    "-framework GraphicsServices")
  target_link_libraries(${target} PRIVATE tactora_core
    -F${stubs} "-framework CydiaSubstrate"
    ${stubs}/libactivator.tbd ${stubs}/librocketbootstrap.tbd)
  target_link_options(${target} PRIVATE
    -Wl,-install_name,${packageRoot}/Library/MobileSubstrate/DynamicLibraries/Tactora.dylib
    -Wl,-adhoc_codesign -Wl,-dead_strip)
  if(packageRoot)
    target_link_options(${target} PRIVATE -Wl,-rpath,${packageRoot}/usr/lib -Wl,-rpath,${packageRoot}/Library/Frameworks)
  endif()
endfunction()

tactora_tweak(rootful "" ${TACTORA_IOS_LIBS})
if(NOT TACTORA_IOS_ROOTLESS_LIBS)
  set(TACTORA_IOS_ROOTLESS_LIBS ${TACTORA_IOS_LIBS}/iphone/rootless)
endif()
tactora_tweak(rootless "/var/jb" ${TACTORA_IOS_ROOTLESS_LIBS})
include(${CMAKE_SOURCE_DIR}/platform/ios/doctor/doctor.cmake)
