// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/world.h"

#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <optional>
#include <string>

#include "protocol/hex.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

constexpr std::size_t kUsual = 3;
constexpr std::size_t kFew = 50;
// In dB: what comes in is weaker than a radio hears.
constexpr double kOutOfReach = 95;

// Carried round and round: `middle` dB away, more or less.
kvsim::PathLoss roundabout(double middle, double more, Seconds round, double begin) {
  return [=](std::chrono::nanoseconds now) {
    return middle + more * std::sin(2 * std::numbers::pi * (Seconds(now) / round + begin));
  };
}

// The same, but out of reach for the second half of each round.
kvsim::PathLoss comingAndGoing(const kvsim::PathLoss& path, Seconds round, double begin) {
  return [=](std::chrono::nanoseconds now) {
    const double rounds = Seconds(now) / round + begin;
    return rounds - std::floor(rounds) < 0.5 ? path(now) : kOutOfReach;
  };
}

kvsim::TagSpec specOf(std::size_t number) {
  constexpr std::uint64_t kFirst = 0x0a1b'2c3d'4e5f;
  const std::array<kvsim::TagSpec, kUsual> usual{
      {{.battery = 235, .password = kBoundTagPassword},
       {.model = std::uint8_t{5}, .battery = 181, .password = {}},
       {.model = {}, .battery = 18, .password = {}}}};
  auto spec = number < kUsual ? usual[number]
                              : kvsim::TagSpec{.model = static_cast<std::uint8_t>(number % 7),
                                               .battery = static_cast<std::uint8_t>(number * 47),
                                               .password = {}};
  std::array<std::uint8_t, 6> address{};
  for (std::size_t i = 0; i < address.size(); ++i) {
    address[i] = static_cast<std::uint8_t>((kFirst + number) >> (40 - 8 * i));
  }
  spec.address = kv::hexText(address);
  return spec;
}

double lossOf(std::size_t number) {
  constexpr std::array<double, kUsual> kUsualLosses{46, 55, 71};
  return number < kUsual ? kUsualLosses[number] : 42 + static_cast<double>(number * 13 % 41);
}

void carryAbout(kvsim::SimulatedRadio& radio, const std::shared_ptr<kvsim::VirtualTag>& tag,
                std::size_t number) {
  const auto part = static_cast<double>(number * 5 % 8) / 8;
  const auto path = roundabout(lossOf(number), 3 + 3 * static_cast<double>(number % 5),
                               Seconds(25 + static_cast<double>(number % 4) * 10), part);
  const bool leaves = number >= kUsual && number % 4 == 3;
  radio.setPathLoss(tag, leaves ? comingAndGoing(path, 60s, part) : path);
}

// What a watcher sees: the tag is carried away and back, its button pressed, its link lost.
void walk(kvsim::SimulatedRadio& radio, const std::shared_ptr<kvsim::VirtualTag>& tag) {
  radio.setPathLoss(
      tag, kvsim::pathThrough({{0s, 45}, {4s, 45}, {8s, 56}, {12s, 66}, {16s, 56}, {20s, 45}}));
  radio.queue().postAfter(5s, [tag] { tag->pressButton(); });
  radio.queue().postAfter(13s, [&radio, tag] { radio.dropLink(tag); });
}

}  // namespace

std::chrono::milliseconds advertisingInterval(std::size_t tags) {
  return tags > kFew ? 1000ms : 100ms;
}

void fillWorld(kvsim::SimulatedRadio& radio, const Options& options) {
  const auto count = options.simTags == 0 ? kUsual : options.simTags;
  for (std::size_t number = 0; number < count; ++number) {
    const auto tag = radio.addTag(specOf(number));
    radio.setPathLoss(tag, [loss = lossOf(number)](auto) { return loss; });
    if (options.command == Command::Scan) carryAbout(radio, tag, number);
    if (options.command == Command::Watch) walk(radio, tag);
  }
}

}  // namespace kvfob
