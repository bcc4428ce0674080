// The synthetic vehicle: engine running, truck rolling, values drifting with
// time, seen on whichever data link the channel was opened for.
#pragma once

#include <cstdint>
#include <vector>

#include "qvsim/simulator.h"

namespace qvsim {

// Each source is sent every period_ms; make gives the body for the
// channel's protocol at the time t_ms since the channel opened, or nothing
// when the source is not heard on that data link.
struct VehicleSource {
  const char* name;
  uint32_t period_ms;
  Bytes (*make)(uint8_t protocol, uint64_t t_ms);
};
const std::vector<VehicleSource>& VehicleSources();

// Engine values of the synthetic vehicle at time t_ms.
double EngineRpm(uint64_t t_ms);
double RoadSpeedKmh(uint64_t t_ms);
double CoolantCelsius(uint64_t t_ms);

}  // namespace qvsim
