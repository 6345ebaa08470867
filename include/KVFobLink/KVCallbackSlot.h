// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A callback property.
#ifndef KVFOBLINK_KVCALLBACKSLOT_H
#define KVFOBLINK_KVCALLBACKSLOT_H

#include <memory>
#include <utility>

/// Holds one callback, and survives what the callback does: it may replace or clear itself, or
/// destroy the slot. Calling it does not copy the callable. `Function` is a `std::function`.
template <typename Function>
class KVCallbackSlot {
 public:
  /// The callback, empty when there is none. The reference holds until the next `set`.
  const Function& get() const {
    static const Function kNone;
    return function_ ? *function_ : kNone;
  }

  void set(Function function) {
    auto next = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    const auto dropped = std::exchange(function_, std::move(next));
  }

  explicit operator bool() const { return function_ != nullptr; }

  /// Calls the callback; without one it does nothing.
  template <typename... Args>
  void operator()(Args&&... args) const {
    if (const auto held = function_) (*held)(std::forward<Args>(args)...);
  }

 private:
  std::shared_ptr<const Function> function_;
};

#endif  // KVFOBLINK_KVCALLBACKSLOT_H
