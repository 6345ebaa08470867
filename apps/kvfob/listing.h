/// How the tags that a scan has heard are shown.
#ifndef APPS_KVFOB_LISTING_H
#define APPS_KVFOB_LISTING_H

#include <cstdint>
#include <string>

#include "KVFobLink/KVTracker.h"
#include "KVFobLink/KVTrackerCollections.h"
#include "apps/kvfob/console.h"

namespace kvfob {

/// One tag as a JSON object, without a line end. What is not known is null.
std::string toJson(const KVTracker& tracker);

/// The tags as a table with a heading, strongest first, in at most `height` lines.
std::string toTable(const KVTrackers& trackers, const Console& console,
                    std::size_t height = SIZE_MAX);

}  // namespace kvfob

#endif  // APPS_KVFOB_LISTING_H
