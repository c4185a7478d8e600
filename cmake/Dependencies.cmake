# What the device or Debian provides. Each as one imported target; nothing is vendored or downloaded.
find_package(Threads REQUIRED)
find_package(CURL 7.85 REQUIRED)

# liblog lives in a directory of its own on Debian; on the device it is the platform's.
find_path(LIBLOG_INCLUDE_DIR android/log.h PATHS /usr/include/android REQUIRED)
find_library(LIBLOG_LIBRARY log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED)
add_library(liblog::liblog UNKNOWN IMPORTED)
set_target_properties(liblog::liblog PROPERTIES
  IMPORTED_LOCATION ${LIBLOG_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${LIBLOG_INCLUDE_DIR}
  INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${LIBLOG_INCLUDE_DIR})

# No loader looks there by itself: what is installed carries the directory along.
get_filename_component(liblog_directory ${LIBLOG_LIBRARY} DIRECTORY)
if(NOT liblog_directory IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  set(CMAKE_INSTALL_RPATH ${liblog_directory})
endif()

# Where the platform does not confine its processes for them.
if(INET_AGENT_PLATFORM STREQUAL workstation)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)
endif()
