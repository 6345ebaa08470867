// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVVersion.h"

extern "C" {

const unsigned char KVFobLinkVersionString[] = "KVFobLink 1.0";
const double KVFobLinkVersionNumber = 1.0;

}  // extern "C"
