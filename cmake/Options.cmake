# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

# How all of the project's own code is compiled.
if((KVFOB_PROGRAM OR KVFOB_TESTS) AND NOT KVFOB_SIMULATOR)
  message(FATAL_ERROR "The program and the tests use the simulator: set KVFOB_SIMULATOR, or turn them off")
endif()
if((KVFOB_TESTS OR KVFOB_FUZZ) AND NOT KVFOB_PROGRAM)
  message(FATAL_ERROR "The tests and the fuzzers use the program: set KVFOB_PROGRAM, or turn them off")
endif()

if(NOT CMAKE_CXX_STANDARD OR CMAKE_CXX_STANDARD LESS 20 OR CMAKE_CXX_STANDARD EQUAL 98)
  set(CMAKE_CXX_STANDARD 20)
endif()
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ${PROJECT_IS_TOP_LEVEL})
# In one folder, where the program finds the library; within a greater build that folder is our own.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
include(CheckPIESupported)
check_pie_supported()

add_library(kv_options INTERFACE)
target_include_directories(kv_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(kv_options INTERFACE -fstack-protector-strong)
if(KVFOB_STRICT)
  target_compile_options(kv_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
endif()
if(KVFOB_STRICT AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # With -O3 it sees overlapping copies in `"text" + std::string` (its bug 105651).
  target_compile_options(kv_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
target_link_options(kv_options INTERFACE -Wl,-z,relro,-z,now)
if(KVFOB_SANITIZE)
  target_compile_options(kv_options INTERFACE
    -fsanitize=${KVFOB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kv_options INTERFACE -fsanitize=${KVFOB_SANITIZE})
elseif(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  # Some compilers define it by themselves, with another value; what the one who builds chose holds.
  target_compile_options(kv_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
if(KVFOB_COVERAGE)
  target_compile_options(kv_options INTERFACE --coverage -O0)
  target_link_options(kv_options INTERFACE --coverage)
endif()

# kv_part(name SOURCES... LINK targets...): one folder of the library, compiled once for both of its forms.
function(kv_part name)
  cmake_parse_arguments(PART "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${PART_SOURCES})
  target_link_libraries(${name} PUBLIC kv_options ${PART_LINK})
endfunction()
