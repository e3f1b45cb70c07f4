# Cross-builds for 64-bit Windows with the mingw-w64 GCC toolchain (posix thread model,
# which provides std::thread and std::mutex). Debian packages: g++-mingw-w64-x86-64-posix,
# binutils-mingw-w64-x86-64.
#
# The C and C++ runtimes (libgcc, libstdc++, winpthread) are linked statically into
# every DLL and program, so nothing beyond the Windows system DLLs is needed beside them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(HM_MINGW_TRIPLET x86_64-w64-mingw32)
find_program(CMAKE_C_COMPILER NAMES ${HM_MINGW_TRIPLET}-gcc-posix ${HM_MINGW_TRIPLET}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${HM_MINGW_TRIPLET}-g++-posix ${HM_MINGW_TRIPLET}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${HM_MINGW_TRIPLET}-windres)
find_program(CMAKE_OBJDUMP NAMES ${HM_MINGW_TRIPLET}-objdump)

set(CMAKE_FIND_ROOT_PATH /usr/${HM_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Header-only packages (nlohmann_json) come from the build machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# -static makes the linker take libwinpthread, libstdc++ and libgcc from their static
# archives; the Windows import libraries are archives too and stay imports.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
