// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_DECODE_FOUND_H
#define APPS_KVFOB_DECODE_FOUND_H

#include <string>

#include "apps/kvfob/base/json.h"

namespace kvfob {

/// One thing that was understood, for people and for scripts.
struct Found {
  std::string text;
  std::string event;  ///< What kind of thing, in a word.
  Json facts;         ///< The members that it has beside the kind, time and adapter.
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_FOUND_H
