# What is different with libc++, LLVM's C++ library; docs/compilers.md says why.

include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
  #include <cstddef>
  #ifndef _LIBCPP_VERSION
  #error not libc++
  #endif
  int main() {}" KT_LIBCXX)

# How spdlog gets into libro and the tests. A library of it is compiled against one C++ library, and
# Debian's is against libstdc++: with another one it is compiled in. spdlog::spdlog_header_only would
# still ask for the library of fmt.
option(KT_SPDLOG_HEADER_ONLY "Compile spdlog and fmt in, without their libraries" ${KT_LIBCXX})
if(KT_SPDLOG_HEADER_ONLY)
  find_package(fmt REQUIRED)
  set(KT_SPDLOG $<BUILD_INTERFACE:fmt::fmt-header-only>)
  # Or libro would have a registry of loggers of its own, which no client could redirect. For the same
  # reason kt_add_library leaves all symbols exported.
  set(CMAKE_CXX_VISIBILITY_PRESET default)
else()
  set(KT_SPDLOG spdlog::spdlog)
endif()
