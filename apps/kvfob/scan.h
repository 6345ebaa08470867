#ifndef APPS_KVFOB_SCAN_H
#define APPS_KVFOB_SCAN_H

#include "apps/kvfob/options.h"
#include "apps/kvfob/session.h"

namespace kvfob {

/// Listens for tags and lists them: a table, redrawn on a terminal as tags are heard, or
/// one JSON object a tag in the end.
Outcome runScan(Session& session, const Options& options);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_H
