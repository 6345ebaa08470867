// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What can go wrong where.
#include "tests/simulator/faults_world.h"

namespace kvsim {
namespace {

struct Step {
  const char* name;
  Procedure step;
};

constexpr Step kHandshake[] = {
    {"connection", Procedure::Connecting},
    {"service discovery", Procedure::ServiceDiscovery},
    {"characteristic discovery", Procedure::CharacteristicDiscovery},
    {"information read", Procedure::InformationRead},
    {"subscription", Procedure::Subscribe},
    {"opening value", Procedure::OpeningRead},
    {"token write", Procedure::TokenWrite},
    {"password write", Procedure::BindWrite},
    {"password answer", Procedure::BindAnswer},
};

// From here on the tag has a subscriber, so it can say anything at any moment.
bool subscribed(Procedure step) { return step >= Procedure::OpeningRead; }

bool possible(const Place& place, Fault fault) {
  const bool scanning = place.operation == Operation::Scan;
  const bool discovery =
      place.step == Procedure::ServiceDiscovery || place.step == Procedure::CharacteristicDiscovery;
  switch (fault) {
    case Fault::Drop:
    case Fault::Refusal:
      return !scanning;
    case Fault::Garbage:
      return scanning || discovery || subscribed(place.step);
    case Fault::Duplicate:
      return scanning || subscribed(place.step);
    case Fault::Reorder:
      return place.isAnswer();
    case Fault::CipherFailure:
      return place.cipherCall() != 0;
    case Fault::Silence:
    case Fault::AdapterOff:
      break;
  }
  return true;
}

std::vector<Place> allPlaces() {
  std::vector<Place> places = {{"scanning: advertisement", Operation::Scan, Procedure::Connecting}};
  for (const Step& step : kHandshake) {
    places.push_back({std::string("binding: ") + step.name, Operation::Bind, step.step});
  }
  for (const Step& step : kHandshake) {
    places.push_back({std::string("coming back: ") + step.name, Operation::ComeBack, step.step});
  }
  places.push_back({"ringing: write", Operation::Ring, Procedure::CommandWrite});
  places.push_back({"ringing: answer", Operation::Ring, Procedure::CommandAnswer});
  places.push_back({"loss distance: write", Operation::SetDistance, Procedure::DistanceWrite});
  places.push_back({"signal strength: reading", Operation::ReadSignal, Procedure::RssiRead});
  places.push_back({"unbinding: write", Operation::Unbind, Procedure::CommandWrite});
  places.push_back({"unbinding: answer", Operation::Unbind, Procedure::CommandAnswer});
  return places;
}

}  // namespace

bool Place::isAnswer() const {
  return step == Procedure::BindAnswer || step == Procedure::CommandAnswer;
}

int Place::cipherCall() const {
  switch (step) {
    case Procedure::OpeningRead:
    case Procedure::CommandWrite:
      return 1;
    case Procedure::TokenWrite:
    case Procedure::CommandAnswer:
      return 2;
    case Procedure::BindWrite:
      return 3;
    case Procedure::BindAnswer:
      return 4;
    default:
      return 0;
  }
}

std::vector<Trouble> allTroubles() {
  std::vector<Trouble> troubles;
  for (const Place& place : allPlaces()) {
    for (std::size_t i = 0; i < std::size(kFaultNames); ++i) {
      const auto fault = static_cast<Fault>(i);
      if (possible(place, fault)) troubles.push_back({place, fault});
    }
  }
  return troubles;
}

}  // namespace kvsim
