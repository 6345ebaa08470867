// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The whole simulator: virtual tags, a simulated radio, a virtual clock.
#ifndef KVFOBSIMULATOR_KVFOBSIMULATOR_H
#define KVFOBSIMULATOR_KVFOBSIMULATOR_H

#include "KVFobSimulator/SimulatedRadio.h"
#include "KVFobSimulator/TagBehaviour.h"
#include "KVFobSimulator/VirtualEventQueue.h"
#include "KVFobSimulator/VirtualTag.h"

#endif  // KVFOBSIMULATOR_KVFOBSIMULATOR_H
