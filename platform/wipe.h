// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Wiping of secrets.
#ifndef PLATFORM_WIPE_H
#define PLATFORM_WIPE_H

#include <string.h>

#include <optional>

namespace kv {

/// Overwrites the bytes of a buffer or text that held a secret, and empties it. The compiler cannot
/// leave it out.
template <typename Buffer>
void wipe(Buffer& buffer) {
  if (!buffer.empty()) explicit_bzero(buffer.data(), buffer.size());
  buffer.clear();
}

/// The same for one that may be absent; one that was there is empty afterwards.
template <typename Buffer>
void wipe(std::optional<Buffer>& buffer) {
  if (buffer) wipe(*buffer);
}

}  // namespace kv

#endif  // PLATFORM_WIPE_H
