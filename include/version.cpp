#include "KVFobLink/KVVersion.h"

extern "C" {

const unsigned char KVFobLinkVersionString[] = "KVFobLink 1.0";
const double KVFobLinkVersionNumber = 1.0;

}  // extern "C"
