// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_SCAN_SCAN_SCREEN_H
#define APPS_KVFOB_SCAN_SCAN_SCREEN_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "apps/kvfob/radio/session.h"
#include "apps/kvfob/scan/bind_prompt.h"
#include "apps/kvfob/scan/errand.h"
#include "apps/kvfob/scan/scan.h"
#include "apps/kvfob/scan/scan_view.h"
#include "apps/kvfob/scan/tag_list.h"
#include "apps/kvfob/terminal/screen.h"
#include "apps/kvfob/watch/tag_watch.h"

namespace kvfob {

/// The tags on the terminal, and what keys do with them.
class ScanScreen {
 public:
  /// @param tags  Kept up to date by `refresh`.
  ScanScreen(Session& session, const Options& options, ScanMemory& memory, TagList& tags,
             std::function<void()> refresh);
  ~ScanScreen();
  ScanScreen(const ScanScreen&) = delete;
  ScanScreen& operator=(const ScanScreen&) = delete;

  /// What it looks like now, for the table that stays when it has gone.
  Look look() const { return screen_.look(session_.console().color()); }
  SortBy order() const { return order_; }

 private:
  void typed(const Key& key);
  void typedInPrompt(const Key& key);
  void typedInFilter(const Key& key);
  bool moved(const Key& key);
  void command(const Key& key);
  void leavePart();
  void ring(const HeardTag& tag);
  void askToBind(const HeardTag& tag);
  void watch(const HeardTag& tag);
  void begin(ErrandKind kind, const std::string& address, Secret password);
  void ended(const Outcome& outcome);
  void failed(const Errand& errand, const Outcome& outcome);

  /// The password of a tag that was bound from here, or why the command needs another step.
  const Secret* passwordFor(const HeardTag& tag, const std::string& verb);
  void say(const std::string& what, Style style = Style::Plain);
  std::string nameOf(const std::string& address) const;

  void tick();
  void arrange();
  void draw();
  ScanView view();

  Session& session_;
  const Options& options_;
  ScanMemory& memory_;
  TagList& tags_;
  const std::function<void()> refresh_;
  const KVEventQueue::Duration start_;
  KVEventQueue::Duration arranged_{0};
  std::size_t heard_ = 0;
  SortBy order_;
  std::string filter_;
  bool typingFilter_ = false;
  ScanPanel panel_ = ScanPanel::None;
  std::size_t first_ = 0;
  std::string note_;
  Style noteStyle_ = Style::Plain;
  std::set<std::string> ringing_;
  std::map<std::string, Secret> passwords_;  // of tags that were bound in this run
  std::unique_ptr<BindPrompt> prompt_;
  bool save_ = false;
  std::unique_ptr<Errand> errand_;
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  Screen screen_;
  std::unique_ptr<TagWatch> watch_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_SCAN_SCREEN_H
