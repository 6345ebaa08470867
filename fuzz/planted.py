# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""Faults that the fuzzers must find, one of each kind: fuzzer, file, text, what it becomes."""

PLANTED = [
    ("advertisement", "protocol/advertisement.cpp", "product > kLastProduct", "product > kLastProduct + 1"),
    ("advertisement", "protocol/advertisement.cpp", "kAddressSize - 1 - i", "kAddressSize - i"),
    ("frame", "protocol/frame.cpp", "length > kMostPayload + 1", "length > kMostPayload + 2"),
    ("cipher", "toolkit/common_tool.cpp", "text.substr(0, text.find('\\0'))", "text"),
    ("hex", "protocol/hex.h", "i + 1 < text.size()", "i < text.size()"),
    ("pattern", "platform/linux/pattern_matcher.cpp", "kTimeLimit{400}", "kTimeLimit{400'000}"),
    ("btsnoop", "apps/kvfob/decode/byte_reader.h", "if (count > left_.size())", "if (count > left_.size() + 1)"),
    ("bluez", "platform/linux/bluez/object_tree.cpp", "      node.mapped().connected = false;\n", ""),
    # What is freed while it is in use, a secret in the log, a second thread, a report too many.
    ("tag", "tracker/session.cpp", 'log("device token validated.");', "log(password_.value_or(std::string()));"),
    ("tag", "tracker/rssi_poller.cpp", "  stop();\n  auto timer",
     "  static_cast<void>(new std::shared_ptr<KVTimerThread>(timer_));\n  auto timer"),
    ("tag", "tracker/link.cpp", "  binding = false;\n  return true;", "  return true;"),
    # An index that disagrees with its collection, a list that changes, a callback that frees itself.
    ("application", "tracker/tracker_index.cpp", "  unfile(tracker);\n  memberships.erase(it);",
     "  memberships.erase(it);"),
    ("application", "manager/collections.cpp", "  data_->index.removeOne(*removed);\n  data_->reset();",
     "  data_->index.removeOne(*removed);"),
    ("application", "include/KVFobLink/KVCallbackSlot.h", "if (const auto held = function_)",
     "if (const auto* held = function_.get())"),
]
