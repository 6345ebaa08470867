"""Faults that the fuzzers must find, one of each kind: fuzzer, file, text, what it becomes."""

PLANTED = [
    ("advertisement", "manager/advertised_frame.cpp", "bytes[1] > kLastProduct", "bytes[1] > kLastProduct + 1"),
    ("advertisement", "manager/advertised_frame.cpp", "kAddressSize - 1 - i", "kAddressSize - i"),
    ("frame", "toolkit/command_frame.cpp", "length > kMostPayload + 1", "length > kMostPayload + 2"),
    ("cipher", "toolkit/cipher.cpp", "text.substr(0, text.find('\\0'))", "text"),
    ("hex", "toolkit/hex.cpp", "i + 1 < units.size()", "i < units.size()"),
    ("pattern", "platform/linux/pattern_matcher.cpp", "kTimeLimit{400}", "kTimeLimit{400'000}"),
    ("btsnoop", "apps/kvfob/decode/byte_reader.h", "if (count > left_.size())", "if (count > left_.size() + 1)"),
    ("bluez", "platform/linux/bluez/object_tree.cpp", "      node.mapped().connected = false;\n", ""),
    # What is freed while it is in use, a secret in the log, a second thread, a report too many.
    ("tag", "tracker/handshake.cpp", 'log("device token validated.");', "log(password_.value_or(std::string()));"),
    ("tag", "tracker/rssi_poller.cpp", "  stop();\n  auto timer",
     "  static_cast<void>(new std::shared_ptr<KVTimerThread>(timer_));\n  auto timer"),
    ("tag", "tracker/answers.cpp", "    binding_ = false;\n", ""),
    ("tag", "manager/binding.cpp", "        manager->release();\n        if (alive) alive->finishBinding",
     "        if (alive) alive->finishBinding"),
    # An index that disagrees with its collection, a list that changes, a callback that frees itself.
    ("application", "tracker/tracker_index.cpp", "  unfile(tracker);\n  tracker.memberships_.erase(it);",
     "  tracker.memberships_.erase(it);"),
    ("application", "manager/collections.cpp", "  table_->index.removeOne(*removed);\n  table_->snapshots.reset();",
     "  table_->index.removeOne(*removed);"),
    ("application", "include/KVFobLink/KVCallbackSlot.h", "if (const auto held = function_)",
     "if (const auto* held = function_.get())"),
]
