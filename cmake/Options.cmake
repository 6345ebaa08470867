# How all of the project's own code is compiled.
include(CheckPIESupported)
check_pie_supported()

add_library(kv_options INTERFACE)
target_include_directories(kv_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(kv_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fstack-protector-strong)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # With -O3 it sees overlapping copies in `"text" + std::string` (its bug 105651).
  target_compile_options(kv_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
target_link_options(kv_options INTERFACE -Wl,-z,relro,-z,now)
if(KVFOB_SANITIZE)
  target_compile_options(kv_options INTERFACE
    -fsanitize=${KVFOB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kv_options INTERFACE -fsanitize=${KVFOB_SANITIZE})
elseif(CMAKE_BUILD_TYPE MATCHES "Rel")
  # Some distributions define it already, with another value.
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
