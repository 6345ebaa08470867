// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// KVFobLink: a client library for Bluetooth Low Energy key-finder tags. This header includes all
/// the others but the platforms' own.
#ifndef KVFOBLINK_KVFOBLINK_H
#define KVFOBLINK_KVFOBLINK_H

#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVCrc16.h"
#include "KVFobLink/KVDeviceInfo.h"
#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTracker.h"
#include "KVFobLink/KVTrackerManager.h"
#include "KVFobLink/KVUtils.h"
#include "KVFobLink/KVVersion.h"

#endif  // KVFOBLINK_KVFOBLINK_H
