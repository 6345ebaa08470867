// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/links.h"

namespace kvfob {

Session& Links::to(const std::string& address) {
  auto& session = sessions_[address];
  if (!session || !kept_ || !session->begin()) {
    session.reset();  // its link ends before another one is made
    session = std::make_unique<Session>(radio_, loop_, console_);
    if (kept_) session->keepLink();
  }
  return *session;
}

}  // namespace kvfob
