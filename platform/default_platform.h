// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_DEFAULT_PLATFORM_H
#define PLATFORM_DEFAULT_PLATFORM_H

#include <memory>

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// Makes the platform that a process gets without asking. Defined by the system's own folder.
std::shared_ptr<KVPlatform> makeDefaultPlatform();

}  // namespace kv

#endif  // PLATFORM_DEFAULT_PLATFORM_H
