# The libraries that the other targets are built with, of Debian's packages: the headers of those
# that are headers only, laid out apart from the C library's beside them, and the sources of the
# others, which scripts/debian-files.sh fetches into build/debian.
enable_language(C)
set(staged ${PROJECT_BINARY_DIR}/staged)
file(MAKE_DIRECTORY ${staged})
foreach(header xxhash.h xxh3.h sqlite3.h sqlite3ext.h CLI toml++ nlohmann)
  file(CREATE_LINK /usr/include/${header} ${staged}/${header} SYMBOLIC)
endforeach()
include_directories(SYSTEM ${staged})
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)  # no file tells where it was built
add_link_options(-s)
set(XXHASH_INCLUDE_DIR ${staged})
set(SQLITE3EXT_INCLUDE_DIR ${staged})
set(SQLite3_INCLUDE_DIR ${staged})
set(SQLite3_LIBRARY sqlite3)
# Not to be passed on by CMake, for the sake of Debian's packages that name it.
list(APPEND CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES /usr/include)

function(add_library_of name)
  add_library(${name} STATIC EXCLUDE_FROM_ALL ${ARGN})
  list(GET ARGN 0 file)
  get_filename_component(folder ${file} DIRECTORY)
  target_include_directories(${name} SYSTEM PUBLIC ${folder} ${folder}/.. ${folder}/../include)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${name} PRIVATE -w)
endfunction()
file(GLOB utf8proc ${PROJECT_SOURCE_DIR}/build/debian/utf8proc-*/utf8proc.c)
add_library_of(utf8proc ${utf8proc})
target_compile_definitions(utf8proc PUBLIC UTF8PROC_STATIC)
add_library(utf8proc::utf8proc ALIAS utf8proc)
set(googletest /usr/src/googletest/googletest/src)
add_library_of(gtest_main ${googletest}/gtest-all.cc ${googletest}/gtest_main.cc)
add_library(GTest::gtest_main ALIAS gtest_main)

if(APPLE)  # zig's linker ends in a fault on -bundle; Python loads either
  set(CMAKE_SHARED_MODULE_CREATE_CXX_FLAGS "-shared -Wl,-headerpad_max_install_names")
endif()
