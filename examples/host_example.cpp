// A minimal host program: selects a dispenser, prints its record and the
// colourant in each tank, asks the machine for its status and decodes it.
//
// Build against an installed qslave:
//   g++ -std=c++17 host_example.cpp $(pkg-config --cflags --libs qslave)
// Run where the tables are (or with QSLAVE_DATA naming their directory):
//   ./a.out [DISPENSER_ID]
// Without an id the default dispenser of disps.dbf is used.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "slave.h"

namespace {

// The record's texts come padded with blanks on the right.
std::string Trimmed(const char* text, size_t size) {
  std::string s(text, strnlen(text, size));
  s.erase(s.find_last_not_of(' ') + 1);
  return s;
}

void PrintRecord(slave& dispenser) {
  printf("dispenser:   %ld\n", dispenser.m_DispId);
  printf("address:     %d\n", dispenser.m_Address);
  printf("description: %s\n", Trimmed(dispenser.m_Descr, sizeof dispenser.m_Descr).c_str());
  printf("options:     %s\n", Trimmed(dispenser.m_Options, sizeof dispenser.m_Options).c_str());
  printf("model:       %s\n", Trimmed(dispenser.m_Model, sizeof dispenser.m_Model).c_str());
  printf("serial:      %s\n", Trimmed(dispenser.m_SerialNo, sizeof dispenser.m_SerialNo).c_str());
  printf("tanks:       %d\n", dispenser.m_NumTanks);
}

// Each tank's colourant id, and its code from the colourant table.
void PrintTanks(slave& dispenser) {
  for (int tank = 1; tank <= dispenser.m_NumTanks; ++tank) {
    const long colourant = dispenser.m_TankCntId[tank - 1];
    char code[11] = "";
    if (colourant == 0 ||
        !_slv_GetColorantCode(dispenser.m_DispId, tank, code, sizeof code)) {
      strcpy(code, "-");
    }
    printf("  tank %2d: colourant %ld %s\n", tank, colourant, code);
  }
}

// Returns false when the machine did not answer.
bool PrintStatus(slave& dispenser) {
  char query[] = "/!";
  const int status = dispenser.sendcommand(query, nullptr, 0);
  if (status == -1) {
    printf("status:      no answer\n");
    return false;
  }
  const struct {
    const char* name;
    int on;
  } bits[] = {
      {"stop pressed", dispenser.IsStopPressed(status)},
      {"start released", dispenser.IsStartReleased(status)},
      {"error queue empty", dispenser.IsErrorQueueEmpty(status)},
      {"error queue overflow", dispenser.IsErrorQueueOverflow(status)},
      {"busy", dispenser.IsBusy(status)},
      {"busy (automatic process)", dispenser.IsBusyForAutomaticProcess(status)},
      {"can present", dispenser.IsCanPresent(status)},
      {"door closed", dispenser.IsDoorClosed(status)},
      {"emergency pressed", dispenser.IsEmergencyPressed(status)},
      {"busy (nozzle wash)", dispenser.IsBusyForNozzleWash(status)},
  };
  printf("status word: %d\n", status);
  for (const auto& bit : bits) {
    printf("  %-25s %s\n", bit.name, bit.on ? "yes" : "no");
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const long id = argc > 1 ? atol(argv[1]) : 0;
  slave dispenser(id);
  if (dispenser.m_DispId < 1 || dispenser.m_Dsp == nullptr) {
    fprintf(stderr, "host_example: no dispenser %ld in the tables\n", id);
    return 1;
  }
  // This program dispenses nothing; no purge server needs telling.
  dispenser.m_PurgeSrvOff = 1;
  PrintRecord(dispenser);
  PrintTanks(dispenser);
  return PrintStatus(dispenser) ? 0 : 1;
}
