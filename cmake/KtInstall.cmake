# What is installed, and where: libraries with their headers, their CMake packages and their pkg-config
# modules. All of it may be moved to another prefix as a whole.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Libraries and programs find each other wherever they are; CMAKE_SKIP_INSTALL_RPATH leaves that out.
file(RELATIVE_PATH KT_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

function(kt_install_library name)
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${name} EXPORT ${name}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endfunction()

function(kt_install_program name)
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/${KT_BIN_TO_LIB}")
  install(TARGETS ${name} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endfunction()

# kt_install_package(NAME library...): what find_package(NAME) needs for the targets of the libraries; its
# configuration is NAMEConfig.cmake.in in the current folder.
function(kt_install_package name)
  set(directory ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  set(built ${CMAKE_CURRENT_BINARY_DIR}/package)
  configure_file(${name}Config.cmake.in ${built}/${name}Config.cmake @ONLY)
  write_basic_package_version_file(${built}/${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${built}/${name}Config.cmake ${built}/${name}ConfigVersion.cmake
    DESTINATION ${directory} COMPONENT development)
  foreach(library IN LISTS ARGN)
    kt_install_targets(${name} ${library} ${library}::${library})
  endforeach()
endfunction()

# kt_install_targets(PACKAGE LIBRARY ALIAS): the file of the package that makes the library known by that name.
function(kt_install_targets package library alias)
  string(REGEX MATCH "^(.*::)(.*)$" matched ${alias})
  set_target_properties(${library} PROPERTIES EXPORT_NAME ${CMAKE_MATCH_2})
  install(EXPORT ${library}Targets NAMESPACE ${CMAKE_MATCH_1}
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${package} COMPONENT development)
endfunction()

# kt_get_link_flags(VARIABLE TARGET): what links a library that was found, and those that it needs in turn.
# Empty for one that is built along with this project.
function(kt_get_link_flags variable target)
  get_target_property(was_found ${target} IMPORTED)
  if(NOT was_found)
    set(${variable} "" PARENT_SCOPE)
    return()
  endif()
  get_target_property(file ${target} LOCATION)
  cmake_path(GET file PARENT_PATH folder)
  cmake_path(GET file STEM name)
  string(REGEX REPLACE "^lib" "-l" flags ${name})
  if(NOT folder IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    list(PREPEND flags -L${folder})
  endif()
  get_target_property(needed ${target} INTERFACE_LINK_LIBRARIES)
  foreach(library IN LISTS needed)
    if(TARGET ${library})
      get_target_property(type ${library} TYPE)
      if(type MATCHES "(STATIC|SHARED|UNKNOWN)_LIBRARY")
        kt_get_link_flags(more ${library})
        list(APPEND flags ${more})
      endif()
    endif()
  endforeach()
  set(${variable} ${flags} PARENT_SCOPE)
endfunction()

# kt_install_pkg_config(NAME DESCRIPTION REQUIRES LIBS_PRIVATE)
# LIBS_PRIVATE is for static libraries. It isn't Requires.private, since pkg-config hands the macros of modules
# that stand there to each client.
function(kt_install_pkg_config name description requires libs_private)
  foreach(words IN ITEMS requires libs_private)
    list(JOIN ${words} " " ${words})
  endforeach()
  file(RELATIVE_PATH up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" up "${up}")
  # Appending an absolute path replaces what is there, as it should.
  set(libdir "\${prefix}")
  cmake_path(APPEND libdir "${CMAKE_INSTALL_LIBDIR}")
  set(includedir "\${prefix}")
  cmake_path(APPEND includedir "${CMAKE_INSTALL_INCLUDEDIR}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()
