# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

# Mbed TLS before 3.6 brings neither a CMake package nor a pkg-config file.
find_library(MBEDCRYPTO_LIBRARY mbedcrypto)
find_path(MBEDCRYPTO_INCLUDE_DIR mbedtls/aes.h)
if(MBEDCRYPTO_LIBRARY AND MBEDCRYPTO_INCLUDE_DIR AND NOT TARGET MbedTLS::mbedcrypto)
  add_library(MbedTLS::mbedcrypto UNKNOWN IMPORTED)
  set_target_properties(MbedTLS::mbedcrypto PROPERTIES
    IMPORTED_LOCATION "${MBEDCRYPTO_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${MBEDCRYPTO_INCLUDE_DIR}")
endif()
