# Cross-compiles the module for 64-bit ARM Linux on an x86-64 Debian host:
# the compilers of g++-aarch64-linux-gnu (with the glibc and libstdc++ of its
# arm64-cross packages) and the aarch64 CPython headers that ./dev unpacks
# from Debian's arm64 packages into RAID_AARCH64_ROOT (default
# build/aarch64/root of this tree).  The build host's interpreter cannot
# describe the target, so CMakeLists.txt asks FindPython for the headers only.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

if(DEFINED ENV{RAID_AARCH64_ROOT})
  set(RAID_AARCH64_ROOT "$ENV{RAID_AARCH64_ROOT}")
else()
  get_filename_component(RAID_AARCH64_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build/aarch64/root" ABSOLUTE)
endif()
file(GLOB RAID_AARCH64_PYTHON_INCLUDE "${RAID_AARCH64_ROOT}/usr/include/python3.*")
if(NOT RAID_AARCH64_PYTHON_INCLUDE)
  message(FATAL_ERROR "no aarch64 Python headers under ${RAID_AARCH64_ROOT}/usr/include (./dev unpacks them)")
endif()
list(GET RAID_AARCH64_PYTHON_INCLUDE 0 RAID_AARCH64_PYTHON_INCLUDE)

set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu "${RAID_AARCH64_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Forced over the build host's headers that scikit-build-core suggests.
set(Python_INCLUDE_DIR "${RAID_AARCH64_PYTHON_INCLUDE}" CACHE PATH "aarch64 CPython headers" FORCE)
set(Python_SOSABI "abi3" CACHE STRING "" FORCE)
# Debian's pyconfig.h includes <aarch64-linux-gnu/python3.X/pyconfig.h>.
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES "${RAID_AARCH64_ROOT}/usr/include")
