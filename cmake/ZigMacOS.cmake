# Cross-compiles the macOS build from Linux with zig as the compiler and linker, against a
# macOS SDK. One architecture per build directory; join them with lipo afterwards.
#   -DBWK_ZIG=/path/to/zig            zig 0.11
#   -DBWK_MACOS_SDK=/path/to/MacOSX.sdk  headers, framework and library stubs, Apple's libc++
#   CMAKE_OSX_ARCHITECTURES           arm64 or x86_64 (one of them)
#   CMAKE_OSX_DEPLOYMENT_TARGET       the oldest macOS the output runs on
# zig puts its own macOS C headers first unless it is given the SDK as its C library, and
# links its own libc++ unless told not to: the wrappers written here make it use the SDK's
# headers and link against the SDK's /usr/lib/libc++.1.dylib stub, as a Mac build does.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES BWK_ZIG BWK_MACOS_SDK)

foreach(required BWK_ZIG BWK_MACOS_SDK)
  if(NOT ${required})
    message(FATAL_ERROR "${required} is not set: see the comment at the top of ${CMAKE_CURRENT_LIST_FILE}")
  endif()
endforeach()
if(NOT CMAKE_OSX_ARCHITECTURES MATCHES "^(arm64|x86_64)$")
  message(FATAL_ERROR "CMAKE_OSX_ARCHITECTURES must be one architecture (arm64 or x86_64), not '${CMAKE_OSX_ARCHITECTURES}'")
endif()
if(NOT CMAKE_OSX_DEPLOYMENT_TARGET)
  set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
endif()
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_OSX_ARCHITECTURES})
set(CMAKE_OSX_SYSROOT ${BWK_MACOS_SDK})

if(CMAKE_OSX_ARCHITECTURES STREQUAL "arm64")
  set(_bwk_target aarch64-macos.${CMAKE_OSX_DEPLOYMENT_TARGET})
else()
  set(_bwk_target x86_64-macos.${CMAKE_OSX_DEPLOYMENT_TARGET})
endif()

set(_bwk_wrappers ${CMAKE_BINARY_DIR}/zig-wrappers)
file(WRITE ${_bwk_wrappers}/libc.txt
  "include_dir=${BWK_MACOS_SDK}/usr/include\nsys_include_dir=${BWK_MACOS_SDK}/usr/include\n"
  "crt_dir=${BWK_MACOS_SDK}/usr/lib\nmsvc_lib_dir=\nkernel32_lib_dir=\ngcc_dir=\n")
foreach(tool cc c++ ar ranlib)
  # Two arguments of CMake's are dropped: its probe of the compiler asks the linker to be
  # verbose, which zig's linker refuses; and "-x objective-c++" before an .mm file makes zig
  # add -ObjC++ as well, which clang then reports as unused (the suffix is enough for both).
  file(WRITE ${_bwk_wrappers}/${tool}
    "#!/bin/sh\n"
    "x=\n"
    "for a do\n"
    "  shift\n"
    "  if [ -n \"$x\" ]; then x=; [ \"$a\" = objective-c++ ] && continue; set -- \"$@\" -x; fi\n"
    "  case $a in -Wl,-v) continue ;; -x) x=1; continue ;; esac\n"
    "  set -- \"$@\" \"$a\"\n"
    "done\n"
    "ZIG_LIBC='${_bwk_wrappers}/libc.txt' exec '${BWK_ZIG}' ${tool} ")
  if(tool STREQUAL "cc" OR tool STREQUAL "c++")
    file(APPEND ${_bwk_wrappers}/${tool} "-target ${_bwk_target} ")
  endif()
  file(APPEND ${_bwk_wrappers}/${tool} "\"$@\"\n")
  file(CHMOD ${_bwk_wrappers}/${tool} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
endforeach()

set(CMAKE_C_COMPILER ${_bwk_wrappers}/cc)
set(CMAKE_CXX_COMPILER ${_bwk_wrappers}/c++)
set(CMAKE_OBJCXX_COMPILER ${_bwk_wrappers}/c++)
set(CMAKE_AR ${_bwk_wrappers}/ar CACHE FILEPATH "" FORCE)
set(CMAKE_RANLIB ${_bwk_wrappers}/ranlib CACHE FILEPATH "" FORCE)
# Asked for by CMake's Darwin support; only an install would use it.
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool-14 llvm-install-name-tool install_name_tool REQUIRED)

# Apple's libc++: its headers before the C headers, its library stub at link time.
set(CMAKE_CXX_FLAGS_INIT "-nostdinc++ -I${BWK_MACOS_SDK}/usr/include/c++/v1")
set(CMAKE_OBJCXX_FLAGS_INIT "-nostdinc++ -I${BWK_MACOS_SDK}/usr/include/c++/v1")
# zig's linker finds frameworks only on explicit search paths, and does not follow the
# libraries a framework re-exports: Foundation's libobjc is named here (CoreFoundation is
# linked by the project itself).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-nostdlib++ -F${BWK_MACOS_SDK}/System/Library/Frameworks")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-nostdlib++ -F${BWK_MACOS_SDK}/System/Library/Frameworks")
set(CMAKE_CXX_STANDARD_LIBRARIES "${BWK_MACOS_SDK}/usr/lib/libc++.1.tbd ${BWK_MACOS_SDK}/usr/lib/libobjc.A.tbd")
set(CMAKE_OBJCXX_STANDARD_LIBRARIES "${CMAKE_CXX_STANDARD_LIBRARIES}")

set(CMAKE_FIND_ROOT_PATH ${BWK_MACOS_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
