// The host's driver factory: every dispenser type gets a simulator.
#include <new>

#include "host/cdispenser.h"
#include "simulated_dispenser.h"

extern "C" CDispenser* CDispenser_CreateNew(int type, int variant) {
  // Null only when memory runs out (the simulator's own state included):
  // the library treats it as "no driver", and no exception may cross into
  // a C caller.
  try {
    return new SimulatedDispenser(type, variant);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

extern "C" void CDispenser_Delete(CDispenser* dsp, int) { delete dsp; }
