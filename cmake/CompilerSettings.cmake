# Warnings (errors, with both compilers) and the sanitizers that the presets choose.
set(SCHEDULEHELPER_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")

add_library(project_settings INTERFACE)
target_compile_options(project_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(project_settings INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()
# g++ 12 sees overflows that can't be where it inlines headers that were compiled beforehand (gcc-release has none, and
# these warnings), and uninitialised members of std::variant in the code that the sanitizers add.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  if(NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
    add_compile_options(-Wno-array-bounds -Wno-stringop-overflow)
  endif()
  if(SCHEDULEHELPER_SANITIZE)
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
if(SCHEDULEHELPER_SANITIZE)
  add_compile_options(-fsanitize=${SCHEDULEHELPER_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SCHEDULEHELPER_SANITIZE})
endif()

# compile_headers_once(TARGET [LIKE]): what most files include of the standard library is compiled beforehand, else it takes
# nearly half of their time; once for TARGET, or with LIKE what was compiled for that one (whose options are the same). Not
# in gcc-release and clang-tidy, which find a file that lacks an include.
function(compile_headers_once target)
  if(ARGC GREATER 1)
    target_precompile_headers(${target} REUSE_FROM ${ARGV1})
  else()
    target_precompile_headers(${target} PRIVATE <algorithm> <atomic> <cstdint> <cstdio> <cstring> <filesystem> <functional>
      <map> <memory> <optional> <string> <string_view> <vector>)
  endif()
endfunction()

# leave_unoptimised(TARGET): in a sanitizer build the optimiser takes most of the time; for code whose speed no test
# depends on it is left out.
function(leave_unoptimised target)
  if(SCHEDULEHELPER_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()
