# Debian's cross compiler for s390x, which has the highest byte first, with its libraries from the packages of
# that architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE s390x-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x-static)
# What is installed for the processor that builds is of no use here.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/s390x-linux-gnu/pkgconfig:/usr/share/pkgconfig)
