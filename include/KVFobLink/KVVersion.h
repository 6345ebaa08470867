/* The version of the library. This header can be included from C. */
#ifndef KVFOBLINK_KVVERSION_H
#define KVFOBLINK_KVVERSION_H

#include "KVFobLink/KVExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The version as text: "KVFobLink 1.0". Zero-terminated. */
KVFOB_EXPORT extern const unsigned char KVFobLinkVersionString[];

/* The version as a number: 1.0. */
KVFOB_EXPORT extern const double KVFobLinkVersionNumber;

#ifdef __cplusplus
}
#endif

#endif /* KVFOBLINK_KVVERSION_H */
