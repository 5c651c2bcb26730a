# Cross build for 64-bit Windows with Debian's mingw-w64 (posix thread model):
#   cmake -S . -B build/windows -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# scripts/windows.sh does this with the libraries from scripts/windows-deps.sh.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(ORM_MINGW_TRIPLE x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${ORM_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ORM_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${ORM_MINGW_TRIPLE}-windres)

# The cross-built libraries (scripts/windows-deps.sh), in the cache the script uses.
if(DEFINED ENV{ORM_MINGW_CACHE})
  set(ORM_MINGW_PREFIX $ENV{ORM_MINGW_CACHE}/prefix)
else()
  set(ORM_MINGW_PREFIX $ENV{HOME}/.cache/orm-mingw/prefix)
endif()

# Libraries and packages come from the mingw tree and the prefix of the cross-built libraries
# only: nothing of the Linux system's /usr may enter the build.
set(CMAKE_FIND_ROOT_PATH /usr/${ORM_MINGW_TRIPLE} ${ORM_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
