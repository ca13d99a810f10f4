# Preprocessor definitions a set of CMPI headers from outside the tree needs before the project's
# C and C++ sources compile against it. The answer depends on what the headers do, never on
# where they lie:
#  - headers whose cmpios.h picks the platform from CMPI_PLATFORM_LINUX_GENERIC_GNU get it on
#    Linux (without it one set stops with #error, another leaves CMPI_EXPORT empty, so the
#    provider entry points would stay hidden);
#  - headers that declare thread functions __cdecl in C++ (CMPI_THREAD_CDECL) get __cdecl defined
#    empty, since GCC and Clang do not know that calling convention on x86_64 Linux.
# The result is stored in the variable named by out_var, as a list of NAME=VALUE definitions.
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

function(diagcore_cmpi_header_definitions dir out_var)
  set(definitions "")
  file(STRINGS "${dir}/cmpios.h" platform_lines REGEX "CMPI_PLATFORM_LINUX_GENERIC_GNU")
  if(platform_lines AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    list(APPEND definitions CMPI_PLATFORM_LINUX_GENERIC_GNU=1)
  endif()

  # A thread function declared the way the headers ask for, as the host's thread service does.
  set(probe [=[
#include <cmpift.h>
static CMPI_THREAD_RETURN CMPI_THREAD_CDECL run(void* parm) { return parm; }
int main() { return run(nullptr) != nullptr; }
]=])
  # The check results are cached; a key made from the folder re-runs them when it changes.
  string(MD5 key "${dir}")
  string(SUBSTRING "${key}" 0 12 key)
  cmake_push_check_state(RESET)
  set(CMAKE_REQUIRED_QUIET ON)
  set(CMAKE_REQUIRED_INCLUDES "${dir}")
  list(TRANSFORM definitions PREPEND "-D" OUTPUT_VARIABLE CMAKE_REQUIRED_DEFINITIONS)
  check_cxx_source_compiles("${probe}" DIAGCORE_CMPI_CXX_AS_IS_${key})
  if(NOT DIAGCORE_CMPI_CXX_AS_IS_${key})
    list(APPEND CMAKE_REQUIRED_DEFINITIONS "-D__cdecl=")
    check_cxx_source_compiles("${probe}" DIAGCORE_CMPI_CXX_NO_CDECL_${key})
    if(NOT DIAGCORE_CMPI_CXX_NO_CDECL_${key})
      message(FATAL_ERROR "The CMPI headers in ${dir} do not compile as C++ "
                          "(tried with ${definitions} and then with __cdecl defined empty)")
    endif()
    list(APPEND definitions "__cdecl=")
  endif()
  cmake_pop_check_state()

  set(${out_var} "${definitions}" PARENT_SCOPE)
endfunction()
