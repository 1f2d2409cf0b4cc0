# CMake's toolchain for every system but the one it runs on: the Python package ziglang, a clang
# with libc++ and the C libraries of all of them, which
# scripts/cross-files.sh installs. It serves all targets: Debian's cross compilers know glibc 2.36 alone, no musl for C++ and no macOS.
#
# PATH_FILTER_TARGET is zig's name of the target, with the oldest glibc or macOS that is promised:
# x86_64-linux-gnu.2.28, aarch64-linux-musl, aarch64-macos.11.0, x86_64-windows-gnu.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PATH_FILTER_TARGET)
get_filename_component(root ${CMAKE_CURRENT_LIST_DIR}/.. ABSOLUTE)
file(GLOB zig ${root}/build/zig/lib/python3*/site-packages/ziglang/zig)

string(REGEX MATCH "^([^-]*)-([a-z]*)" _ ${PATH_FILTER_TARGET})
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_MATCH_1})
set(systems linux Linux windows Windows macos Darwin freebsd FreeBSD)
list(FIND systems ${CMAKE_MATCH_2} system)
math(EXPR system "${system} + 1")
list(GET systems ${system} CMAKE_SYSTEM_NAME)

set(CMAKE_C_COMPILER ${zig} cc -target ${PATH_FILTER_TARGET})
set(CMAKE_CXX_COMPILER ${zig} c++ -target ${PATH_FILTER_TARGET})
if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT CMAKE_SYSTEM_PROCESSOR STREQUAL CMAKE_HOST_SYSTEM_PROCESSOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static)
  if(NOT PATH_FILTER_TARGET MATCHES "musl")
    list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -L ${root}/build/python/arm64)
  endif()
endif()
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-14)  # CMake asks for it on macOS
if(CMAKE_SYSTEM_NAME STREQUAL "Windows")
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
endif()
foreach(tool ar ranlib rc)  # CMake wants each as one file
  string(TOUPPER CMAKE_${tool} variable)
  set(${variable} ${root}/build/zig/bin/zig-${tool})
  file(WRITE ${${variable}}.new "#!/bin/sh\nexec '${zig}' ${tool} \"$@\"\n")
  file(CHMOD ${${variable}}.new PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  file(RENAME ${${variable}}.new ${${variable}})
endforeach()

# The libraries come after project(), when there are compilers.
set(CMAKE_PROJECT_path_filter_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/zig_libraries.cmake)

file(GLOB nanobind_DIR ${root}/build/zig/lib/python3*/site-packages/nanobind/cmake)
