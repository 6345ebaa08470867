// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/scan_screen.h"

#include <algorithm>
#include <utility>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kRedraw = 100ms;
// Rows that change places all the time cannot be read.
constexpr std::chrono::milliseconds kArrange = 1s;
constexpr std::size_t kFilterMost = 32;

}  // namespace

ScanScreen::ScanScreen(Session& session, const Options& options, ScanMemory& memory, TagList& tags,
                       std::function<void()> refresh)
    : session_(session),
      options_(options),
      memory_(memory),
      tags_(tags),
      refresh_(std::move(refresh)),
      start_(session.loop().queue().now()),
      order_(options.sort),
      screen_(
          session.loop(), [this](const Key& key) { typed(key); }, [this] { draw(); }) {
  screen_.takeMouse();
  session_.console().divertNotes([this](std::string_view text) {
    say(std::string(text), Style::Warn);
    draw();
  });
  tick();
}

ScanScreen::~ScanScreen() {
  watch_.reset();
  session_.console().divertNotes({});
}

void ScanScreen::typed(const Key& key) {
  if (prompt_) {
    typedInPrompt(key);
  } else if (typingFilter_) {
    typedInFilter(key);
  } else if (panel_ == ScanPanel::Help) {
    panel_ = ScanPanel::None;
  } else if (isCharacter(key, 'q')) {
    return session_.finish({});
  } else if (!moved(key)) {
    command(key);
  }
  draw();
}

void ScanScreen::typedInPrompt(const Key& key) {
  if (key.kind == KeyKind::Escape) {
    prompt_.reset();
    return say("nothing was bound");
  }
  auto password = prompt_->type(key);
  if (!password) return;
  const auto tag = prompt_->tag();
  save_ = prompt_->save();
  prompt_.reset();
  const auto noted = memory_.begin(tag, *password, save_);
  if (noted.code != kDone) return say(nameOf(tag) + ": " + noted.message, Style::Bad);
  begin(ErrandKind::Bind, tag, std::move(*password));
}

void ScanScreen::typedInFilter(const Key& key) {
  if (moved(key)) return;
  if (key.kind == KeyKind::Enter || key.kind == KeyKind::Escape) typingFilter_ = false;
  if (key.kind == KeyKind::Escape) filter_.clear();
  typeInto(filter_, key, kFilterMost);
  arrange();
}

bool ScanScreen::moved(const Key& key) {
  const bool typing = typingFilter_;
  const auto layout = layoutOf(panel_, look());
  const auto page = static_cast<std::ptrdiff_t>(std::max<std::size_t>(1, layout.room()));
  const auto all = static_cast<std::ptrdiff_t>(tags_.shown().size());
  if (key.kind == KeyKind::Up || (!typing && isCharacter(key, 'k'))) {
    tags_.move(-1);
  } else if (key.kind == KeyKind::Down || (!typing && isCharacter(key, 'j'))) {
    tags_.move(1);
  } else if (key.kind == KeyKind::PageUp) {
    tags_.move(-page);
  } else if (key.kind == KeyKind::PageDown) {
    tags_.move(page);
  } else if (key.kind == KeyKind::Home) {
    tags_.move(-all);
  } else if (key.kind == KeyKind::End) {
    tags_.move(all);
  } else if (key.kind == KeyKind::WheelUp) {
    tags_.move(-3);
  } else if (key.kind == KeyKind::WheelDown) {
    tags_.move(3);
  } else if (key.kind == KeyKind::Click) {
    const auto place = first_ + key.row - layout.top - 1;
    if (key.row > layout.top && key.row < layout.end && place < tags_.shown().size()) {
      tags_.select(place);
    }
  } else {
    return false;
  }
  return true;
}

void ScanScreen::command(const Key& key) {
  if (key.kind == KeyKind::Escape) return leavePart();
  if (isCharacter(key, '?')) {
    panel_ = ScanPanel::Help;
  } else if (isCharacter(key, '/')) {
    typingFilter_ = true;
  } else if (isCharacter(key, 's')) {
    order_ = nextOrder(order_);
    arrange();
    say("sorted by " + std::string(orderName(order_)));
  }
  const auto* tag = tags_.selectedTag();
  if (tag == nullptr) return;
  if (key.kind == KeyKind::Enter) {
    tags_.select(tags_.selected());
    panel_ = panel_ == ScanPanel::Details ? ScanPanel::None : ScanPanel::Details;
  }
  const bool acts = isCharacter(key, 'r') || isCharacter(key, 'b') || isCharacter(key, 'w');
  if (!acts) return;
  // Whatever comes of it is about this tag, wherever it goes.
  tags_.select(tags_.selected());
  if (errand_) {
    return say(nameOf(errand_->address()) + " comes first; Esc gives it up", Style::Warn);
  }
  if (isCharacter(key, 'r')) return ring(*tag);
  if (isCharacter(key, 'b')) return askToBind(*tag);
  watch(*tag);
}

// Escape takes back one thing at a time.
void ScanScreen::leavePart() {
  if (errand_) {
    say(nameOf(errand_->address()) + ": given up", Style::Warn);
    errand_.reset();
  } else if (panel_ != ScanPanel::None) {
    panel_ = ScanPanel::None;
  } else {
    filter_.clear();
    arrange();
  }
}

const Secret* ScanScreen::passwordFor(const HeardTag& tag, const std::string& verb) {
  const auto& address = tag.row.address;
  auto [found, added] = passwords_.try_emplace(address);
  if (added) found->second = memory_.password(address);
  if (!found->second.text().empty()) return &found->second;
  passwords_.erase(found);
  say(nameOf(address) + (tag.row.bound ? ": its password is not saved; b, with it, saves it by Tab"
                                       : ": to " + verb + " it, bind it first, with b"),
      Style::Warn);
  return nullptr;
}

void ScanScreen::ring(const HeardTag& tag) {
  const auto& address = tag.row.address;
  const auto* password = passwordFor(tag, "ring");
  if (password == nullptr) return;
  const auto kind = ringing_.contains(address) ? ErrandKind::Silence : ErrandKind::Ring;
  begin(kind, address, Secret(password->text()));
}

void ScanScreen::askToBind(const HeardTag& tag) {
  prompt_ = std::make_unique<BindPrompt>(tag.row.address);
}

void ScanScreen::watch(const HeardTag& tag) {
  const auto address = tag.row.address;
  const auto* password = passwordFor(tag, "watch");
  if (password == nullptr) return;
  // What the bell will do there is not seen here.
  ringing_.erase(address);
  say({});
  watch_ = std::make_unique<TagWatch>(session_, address, *password, tag.row.name, [this] {
    // The key is still on its way through that screen.
    session_.after(0ms, [this, alive = std::weak_ptr(alive_)] {
      if (alive.expired()) return;
      watch_.reset();
      session_.console().divertNotes(
          [this](std::string_view text) { say(std::string(text), Style::Warn); });
      draw();
    });
  });
}

void ScanScreen::begin(ErrandKind kind, const std::string& address, Secret password) {
  const auto* doing = kind == ErrandKind::Bind ? ": binding…" : ": connecting…";
  say(nameOf(address) + doing, Style::Accent);
  errand_ = std::make_unique<Errand>(session_, kind, address, std::move(password), options_.timeout,
                                     [this](const Outcome& outcome) {
                                       ended(outcome);
                                       draw();
                                     });
}

void ScanScreen::ended(const Outcome& outcome) {
  const auto errand = std::move(errand_);
  const auto name = nameOf(errand->address());
  if (outcome.code != kDone) return failed(*errand, outcome);
  switch (errand->kind()) {
    case ErrandKind::Ring:
      ringing_.insert(errand->address());
      return say(name + ": ringing; r once more silences it", Style::Good);
    case ErrandKind::Silence:
      ringing_.erase(errand->address());
      return say(name + ": silent", Style::Good);
    case ErrandKind::Bind:
      break;
  }
  const auto kept = memory_.end(errand->address(), /*bound=*/true);
  passwords_.insert_or_assign(errand->address(), Secret(errand->password().text()));
  tags_.recall();
  if (kept.code != kDone) return say(name + ": " + kept.message, Style::Bad);
  say(name + (save_ ? ": bound, and its password is saved" : ": bound; its password is not saved"),
      Style::Good);
}

void ScanScreen::failed(const Errand& errand, const Outcome& outcome) {
  auto why = nameOf(errand.address()) + ": " + outcome.message;
  if (outcome.code == kRefused) passwords_.erase(errand.address());
  if (errand.kind() == ErrandKind::Bind) {
    // A tag that was asked and did not answer may have taken the password all the same.
    if (outcome.code == kTimedOut) {
      why += "; it may be bound all the same: bind it again, with the same password";
    } else {
      const auto noted = memory_.end(errand.address(), /*bound=*/false);
      if (noted.code != kDone) why += "; " + noted.message;
    }
  }
  say(why, Style::Bad);
}

void ScanScreen::say(const std::string& what, Style style) {
  note_ = what;
  noteStyle_ = style;
}

std::string ScanScreen::nameOf(const std::string& address) const {
  const auto* tag = tags_.find(address);
  return tag == nullptr || tag->row.name.empty() ? address : tag->row.name;
}

void ScanScreen::tick() {
  session_.after(kRedraw, [this, alive = std::weak_ptr(alive_)] {
    if (!alive.expired()) tick();
  });
  refresh_();
  const auto now = session_.loop().queue().now();
  if (now - arranged_ >= kArrange || tags_.size() != heard_) arrange();
  draw();
}

void ScanScreen::arrange() {
  arranged_ = session_.loop().queue().now();
  heard_ = tags_.size();
  tags_.arrange(order_, filter_);
}

void ScanScreen::draw() {
  if (watch_) return;
  const auto now = look();
  first_ = scrolled(first_, tags_.selected(), tags_.shown().size(), layoutOf(panel_, now).room());
  screen_.show(drawScan(view(), now));
}

ScanView ScanScreen::view() {
  const auto elapsed =
      std::chrono::duration_cast<std::chrono::milliseconds>(session_.loop().queue().now() - start_);
  ScanView view{.rows = {.tags = tags_.shown(),
                         .now = KVPlatform::current().clock->now(),
                         .first = first_,
                         .selected = tags_.selected(),
                         .order = order_},
                .heard = tags_.size(),
                .elapsed = elapsed,
                .simulated = options_.radio == RadioKind::Sim,
                .busy = errand_ != nullptr,
                .filter = filter_,
                .typingFilter = typingFilter_,
                .note = note_,
                .noteStyle = noteStyle_,
                .panel = panel_};
  if (options_.duration) view.left = *options_.duration - elapsed;
  if (const auto* tag = tags_.selectedTag()) {
    const auto known = memory_.find(tag->row.address);
    view.passwordSaved = known && known->saved;
  }
  if (prompt_) {
    view.question = prompt_->question();
    view.answers = {{"Enter", "go on"},
                    {"Esc", "cancel"},
                    {"Tab", prompt_->save() ? "save it: yes" : "save it: no"}};
  }
  return view;
}

}  // namespace kvfob
