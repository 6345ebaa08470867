// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef TESTS_SUPPORT_NO_LOG_H
#define TESTS_SUPPORT_NO_LOG_H

#include "KVFobLink/KVPlatform.h"

namespace kvtest {

/// For tests that look at what happens, not at what is said of it.
class NoLog final : public KVLog {
 public:
  void write(std::string_view /*line*/) override {}
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_NO_LOG_H
