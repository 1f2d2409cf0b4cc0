# Gives utf8proc::utf8proc. Debian's utf8proc comes without a CMake package. Installed with
# the component, whose static library needs it where it is linked.
if(TARGET utf8proc::utf8proc)  # built along with the component
  return()
endif()
find_path(Utf8proc_INCLUDE_DIR utf8proc.h)
find_library(Utf8proc_LIBRARY utf8proc)
mark_as_advanced(Utf8proc_INCLUDE_DIR Utf8proc_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Utf8proc REQUIRED_VARS Utf8proc_LIBRARY Utf8proc_INCLUDE_DIR)

if(Utf8proc_FOUND)
  add_library(utf8proc::utf8proc UNKNOWN IMPORTED)
  set_target_properties(utf8proc::utf8proc PROPERTIES
    IMPORTED_LOCATION ${Utf8proc_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${Utf8proc_INCLUDE_DIR})
endif()
