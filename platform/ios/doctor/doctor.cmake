# tactora-doctor, the self-test command shipped in both packages: the core's checks and the
# CFMessagePort adapter, run outside SpringBoard. Linked once per package layout, like the dylib,
# because RocketBootstrap's install name differs. Included by platform/ios/ios.cmake.
function(tactora_doctor layout packageRoot stubs)
  set(target tactora_doctor_${layout})
  add_executable(${target}
    ${CMAKE_SOURCE_DIR}/platform/ios/doctor/DoctorMain.mm
    ${CMAKE_SOURCE_DIR}/platform/ios/CFMessagePorts.mm
    ${CMAKE_SOURCE_DIR}/platform/ios/IOSInstallation.mm
    ${CMAKE_BINARY_DIR}/${layout}/PackageRoot.mm)
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR}/core)
  target_include_directories(${target} SYSTEM PRIVATE ${TACTORA_IOS_HEADERS})
  target_compile_options(${target} PRIVATE ${TACTORA_WARNINGS} -fobjc-arc)
  set_target_properties(${target} PROPERTIES
    MACOSX_BUNDLE FALSE OUTPUT_NAME tactora-doctor RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${layout})
  target_link_libraries(${target} PRIVATE tactora_core "-framework Foundation" "-framework CoreFoundation"
    ${stubs}/librocketbootstrap.tbd)
  target_link_options(${target} PRIVATE -Wl,-adhoc_codesign -Wl,-dead_strip)
  if(packageRoot)
    target_link_options(${target} PRIVATE -Wl,-rpath,${packageRoot}/usr/lib)
  endif()
endfunction()

tactora_doctor(rootful "" ${TACTORA_IOS_LIBS})
tactora_doctor(rootless "/var/jb" ${TACTORA_IOS_ROOTLESS_LIBS})
