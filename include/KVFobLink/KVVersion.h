// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/* The version of the library. This header can be included from C. */
#ifndef KVFOBLINK_KVVERSION_H
#define KVFOBLINK_KVVERSION_H

#include "KVFobLink/KVExport.h"

/* The release, after semantic versioning: what the build, the packages and the shared library's
   name are derived from. */
#define KVFOBLINK_VERSION_MAJOR 1
#define KVFOBLINK_VERSION_MINOR 1
#define KVFOBLINK_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the interface as text, "KVFobLink 1.0", and as a number below; the release is told
   by the macros. Zero-terminated. */
KVFOB_EXPORT extern const unsigned char KVFobLinkVersionString[];

/* The version as a number: 1.0. */
KVFOB_EXPORT extern const double KVFobLinkVersionNumber;

#ifdef __cplusplus
}
#endif

#endif /* KVFOBLINK_KVVERSION_H */
