// What can go wrong where.
#include "tests/simulator/faults_world.h"

namespace kvsim {
namespace {

struct Step {
  const char* name;
  RoadStep step;
};

constexpr Step kHandshake[] = {
    {"connection", RoadStep::Connecting},
    {"service discovery", RoadStep::ServiceDiscovery},
    {"characteristic discovery", RoadStep::CharacteristicDiscovery},
    {"information read", RoadStep::InformationRead},
    {"subscription", RoadStep::Subscribe},
    {"opening value", RoadStep::OpeningRead},
    {"token write", RoadStep::TokenWrite},
    {"password write", RoadStep::BindWrite},
    {"password answer", RoadStep::BindAnswer},
};

/// From here on the tag has a subscriber, so it can say anything at any moment.
bool subscribed(RoadStep step) { return step >= RoadStep::OpeningRead; }

bool possible(const Place& place, Fault fault) {
  const bool scanning = place.errand == Errand::Scan;
  const bool discovery =
      place.step == RoadStep::ServiceDiscovery || place.step == RoadStep::CharacteristicDiscovery;
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
  std::vector<Place> places = {{"scanning: advertisement", Errand::Scan, RoadStep::Connecting}};
  for (const Step& step : kHandshake) {
    places.push_back({std::string("binding: ") + step.name, Errand::Bind, step.step});
  }
  for (const Step& step : kHandshake) {
    places.push_back({std::string("coming back: ") + step.name, Errand::ComeBack, step.step});
  }
  places.push_back({"ringing: write", Errand::Ring, RoadStep::CommandWrite});
  places.push_back({"ringing: answer", Errand::Ring, RoadStep::CommandAnswer});
  places.push_back({"loss distance: write", Errand::SetDistance, RoadStep::DistanceWrite});
  places.push_back({"signal strength: reading", Errand::ReadSignal, RoadStep::RssiRead});
  places.push_back({"unbinding: write", Errand::Unbind, RoadStep::CommandWrite});
  places.push_back({"unbinding: answer", Errand::Unbind, RoadStep::CommandAnswer});
  return places;
}

}  // namespace

bool Place::isAnswer() const {
  return step == RoadStep::BindAnswer || step == RoadStep::CommandAnswer;
}

int Place::cipherCall() const {
  switch (step) {
    case RoadStep::OpeningRead:
    case RoadStep::CommandWrite:
      return 1;
    case RoadStep::TokenWrite:
    case RoadStep::CommandAnswer:
      return 2;
    case RoadStep::BindWrite:
      return 3;
    case RoadStep::BindAnswer:
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
