# The modules of the Python package for other systems, which scripts/wheels.py packs: those of
# CPython 3.11 and those of the stable ABI, both with the component of this build tree. The headers
# are in PATH_FILTER_PYTHON_3.11 and PATH_FILTER_PYTHON_3.13, for Windows the libraries beside them.
set(Python_INTERPRETER_ID Python)
set(SKBUILD_SOABI cpython-of-another)  # none to ask: scripts/wheels.py names the files
set(SKBUILD_SOSABI abi3)
foreach(part Interpreter Module SABIModule)
  add_library(Python::${part} INTERFACE IMPORTED)
endforeach()
if(WIN32)
  target_link_libraries(Python::Module INTERFACE ${PATH_FILTER_PYTHON_3.11}/../libs/python311.lib)
  target_link_libraries(Python::SABIModule INTERFACE ${PATH_FILTER_PYTHON_3.13}/../libs/python3.lib)
endif()
foreach(PATH_FILTER_PYTHON 3.11 3.13)
  set(Python_VERSION ${PATH_FILTER_PYTHON})
  set(Python_INCLUDE_DIRS ${PATH_FILTER_PYTHON_${PATH_FILTER_PYTHON}})
  add_subdirectory(python python-${PATH_FILTER_PYTHON})
endforeach()
# nanobind takes cstdio for granted, which neither libc++ nor Python.h includes with the stable ABI.
target_compile_options(nanobind-static-abi3 PUBLIC "SHELL:-include Python.h" "SHELL:-include cstdio")
if(PATH_FILTER_TARGET MATCHES "linux-gnu")
  # glibc ends a thread by the unwinder of this library. zig's own, inside a module, fails on it
  # when Python ends and a daemon thread of its comes back from a question.
  file(GLOB unwinder ${PROJECT_SOURCE_DIR}/build/python/a*64/lib/${CMAKE_SYSTEM_PROCESSOR}-linux-gnu/libgcc_s.so.1)
  foreach(module _core3.11 _core3.13 _native3.11 _native3.13)
    target_link_libraries(${module} PRIVATE ${unwinder})
  endforeach()
endif()
if(APPLE)  # zig's linker reads no list of the symbols that Python has
  set_property(TARGET _core3.11 _core3.13 _native3.11 _native3.13 PROPERTY
    LINK_OPTIONS -undefined dynamic_lookup -Wl,-s)
endif()
