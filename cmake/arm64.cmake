# A toolchain file: g++ for arm64, with the libraries that packaging/unpack-arm64 has unpacked into build/arm64-root.
# What is built runs under qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

cmake_path(SET root NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-root)
set(CMAKE_PREFIX_PATH ${root}/usr)
# Before those of this system, some of which depend on the processor.
set(CMAKE_CXX_FLAGS_INIT "-isystem ${root}/usr/include/aarch64-linux-gnu")
foreach(kind IN ITEMS EXE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,-rpath-link,${root}/usr/lib/aarch64-linux-gnu")
endforeach()
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=${root}/usr/lib/aarch64-linux-gnu)

# Headers alone: this system's serve.
set(Boost_NO_BOOST_CMAKE ON)
set(Boost_INCLUDE_DIR /usr/include)
