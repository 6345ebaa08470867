// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_SCAN_SCAN_H
#define APPS_KVFOB_SCAN_SCAN_H

#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/scan/listing.h"

namespace kvfob {

/// Listens for tags and lists them: a table that lives while the scan goes on where the output is a
/// terminal, and stands there in the end; or one JSON object a tag in the end.
Outcome runScan(Session& session, const Options& options, NameOf nameOf);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_SCAN_H
