# Toolchain of Debian's cross compilers, with the libraries of a root folder that scripts/cross fills.
#
#   TRELVO_TRIPLET   such as arm-linux-gnueabihf
#   TRELVO_ROOT      the root folder
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TRELVO_TRIPLET TRELVO_ROOT)

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${TRELVO_TRIPLET})
set(CMAKE_C_COMPILER ${TRELVO_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TRELVO_TRIPLET}-g++)
# Nothing here is linked with what older compilers made.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

set(CMAKE_SYSROOT ${TRELVO_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TRELVO_ROOT})
# Where Debian's compiler has another name than the folder of the libraries.
string(REGEX REPLACE "^i686-" "i386-" TRELVO_FOLDER ${TRELVO_TRIPLET})
set(ENV{PKG_CONFIG_LIBDIR}
  ${TRELVO_ROOT}/usr/lib/${TRELVO_FOLDER}/pkgconfig:${TRELVO_ROOT}/usr/share/pkgconfig)
