# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

# Debian's cross-compilers and the packages of the other architecture. The environment tells which, because CMake reads this
# anew for each check: KVFOB_TRIPLET, as aarch64-linux-gnu, and KVFOB_EMULATOR, as qemu-aarch64-static.
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "$ENV{KVFOB_TRIPLET}")
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER $ENV{KVFOB_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER $ENV{KVFOB_TRIPLET}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR $ENV{KVFOB_EMULATOR})
