# How everything here is compiled, and the one function that makes a folder's library.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON) # the daemon is at home on Linux
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# Small: what is not reached is not linked. Frame pointers and unwind tables stay: a crash report walks the former or, on
# 32-bit ARM, the latter.
set(CMAKE_CXX_FLAGS_RELEASE "-Os")
set(CMAKE_C_FLAGS_RELEASE "-Os")
# Not on 32-bit ARM: when it optimizes at link time, GCC (still in 12) ends a cleanup with _Unwind_Resume, where that
# processor's C++ ABI wants __cxa_end_cleanup. The library then mistakes the cleanups of a cancelled thread for nested ones
# and aborts at the second frame that has any.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()

# In debug builds the sanitizers' traces need only line numbers; a debugger wants -DTESSEL_DEBUG_INFO=-g, which takes longer.
set(TESSEL_DEBUG_INFO -g1 CACHE STRING "What debug builds say of themselves")
set(CMAKE_CXX_FLAGS_DEBUG ${TESSEL_DEBUG_INFO})
set(CMAKE_C_FLAGS_DEBUG ${TESSEL_DEBUG_INFO})

# Programs are loaded at addresses that change from start to start, whatever the compiler's default.
include(CheckPIESupported)
check_pie_supported()

option(TESSEL_STRIP "Strip what a release links; Debian's packages have their symbols in packages of their own" ON)

set(TESSEL_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")

add_library(tessel_options INTERFACE)
target_compile_definitions(tessel_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(tessel_options INTERFACE
  -Wall -Wextra -Werror -Wformat=2 -Wshadow -Wundef -Wvla
  $<$<CXX_COMPILER_ID:GNU>:-Wcast-align> # clang complains about the kernel's own macros too
  $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wnon-virtual-dtor -Woverloaded-virtual>
  -fno-omit-frame-pointer -funwind-tables -fvisibility=hidden
  $<$<CONFIG:Release>:-ffunction-sections -fdata-sections>
  $<$<CONFIG:Debug>:-Og>)
target_link_options(tessel_options INTERFACE
  $<$<AND:$<CONFIG:Release>,$<BOOL:${TESSEL_STRIP}>,$<NOT:$<BOOL:$<TARGET_PROPERTY:TESSEL_KEEP_SYMBOLS>>>>:-s>
  $<$<CONFIG:Release>:-Wl,--gc-sections -Wl,--as-needed -Wl,-O1>
  # Everything bound at the start: tables that nobody can overwrite later, and a quarter less memory (bench/README.md).
  -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

# Overrun buffers end the process instead of returning to an address of the attacker's. Sanitizers see them earlier, and more
# of them without the C library's own checks. A C library may lack what the first needs.
include(CheckCXXSourceCompiles)
if(NOT TESSEL_SANITIZE)
  set(CMAKE_REQUIRED_FLAGS -fstack-protector-strong)
  check_cxx_source_compiles("int main(int argc, char** argv) { char text[9] = {}; text[argc] = **argv; return text[8]; }"
    TESSEL_HAS_STACK_PROTECTOR)
  unset(CMAKE_REQUIRED_FLAGS)
  if(TESSEL_HAS_STACK_PROTECTOR)
    target_compile_options(tessel_options INTERFACE -fstack-protector-strong)
    target_link_options(tessel_options INTERFACE -fstack-protector-strong)
  endif()
  target_compile_options(tessel_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
if(TESSEL_SANITIZE)
  target_compile_options(tessel_options INTERFACE -fsanitize=${TESSEL_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(tessel_options INTERFACE -fsanitize=${TESSEL_SANITIZE})
endif()

# The wire records: headers only.
add_library(tessel_wire INTERFACE)
target_include_directories(tessel_wire INTERFACE ${PROJECT_SOURCE_DIR}/include)

# tessel_library(NAME SOURCES file... LINKS library...)
# One static library per folder. LINKS are the only libraries it may use: a wrong arrow does not link.
function(tessel_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS")
  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC tessel_wire ${arg_LINKS} PRIVATE tessel_options)
endfunction()

# tessel_program(NAME)
# What is installed of a release carries no symbols; the same file with them stays in symbols/, for "tesselctl crash show
# --symbols".
function(tessel_program name)
  target_link_options(${name} PRIVATE
    "$<$<AND:$<CONFIG:Release>,$<BOOL:${TESSEL_OWN_CXX}>>:-static-libstdc++;-static-libgcc>")
  if(CMAKE_BUILD_TYPE STREQUAL "Release" AND TESSEL_STRIP)
    set_target_properties(${name} PROPERTIES TESSEL_KEEP_SYMBOLS ON)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/symbols)
    add_custom_command(TARGET ${name} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:${name}> ${CMAKE_BINARY_DIR}/symbols/
      COMMAND ${CMAKE_STRIP} $<TARGET_FILE:${name}>)
  endif()
endfunction()
