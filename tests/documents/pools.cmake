# Those that programs of the guide use beside this project's.
find_package(Boost QUIET)
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(GLIB QUIET IMPORTED_TARGET glib-2.0)
endif()
find_package(Poco QUIET COMPONENTS Foundation)
find_package(Qt5 QUIET COMPONENTS Core)
find_package(TBB QUIET)
