// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The options of the Linux platform behind their public face.
#ifndef PLATFORM_LINUX_SETTINGS_H
#define PLATFORM_LINUX_SETTINGS_H

#include "KVFobLink/KVLinuxPlatform.h"

class KVLinuxSettings::Data {
 public:
  KVLinuxOptions options;
};

#endif  // PLATFORM_LINUX_SETTINGS_H
