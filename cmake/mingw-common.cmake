# Shared part of the MinGW-w64 toolchains: compilers, find roots and the Wine runner.
set(CMAKE_C_COMPILER ${PELMARK_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${PELMARK_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${PELMARK_MINGW_TRIPLE}-windres)
# Libraries built for MinGW by scripts/setup.sh (pugixml, GoogleTest) live under build/deps.
get_filename_component(_pelmark_root "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(PELMARK_DEPS_PREFIX "${_pelmark_root}/build/deps/${PELMARK_MINGW_TRIPLE}")
set(CMAKE_FIND_ROOT_PATH /usr/${PELMARK_MINGW_TRIPLE} "${PELMARK_DEPS_PREFIX}")
set(CMAKE_PREFIX_PATH "${PELMARK_DEPS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Tests of the Windows build run under Wine; ctest prefixes every test command with this.
set(CMAKE_CROSSCOMPILING_EMULATOR "${_pelmark_root}/scripts/wine-run.sh")
