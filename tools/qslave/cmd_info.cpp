// info: the selected dispenser's record, its driver and its tanks.
#include <stdio.h>

#include "commands.h"
#include "dispenser_session.h"
#include "report.h"
#include "text_fields.h"
#include "trace_sink.h"

namespace {

void PrintRecord(slave& s) {
  printf("dispenser:    %ld\n", s.m_DispId);
  printf("address:      %d\n", s.m_Address);
  printf("description:  %s\n", FieldText(s.m_Descr).c_str());
  printf("options:      %s\n", FieldText(s.m_Options).c_str());
  printf("model:        %s\n", FieldText(s.m_Model).c_str());
  printf("serial:       %s\n", FieldText(s.m_SerialNo).c_str());
  printf("driver type:  %d\n", s.m_Dsp->GetType(0, 0));
  printf("comm port:    %d\n", s.GetCommPort());
  printf("tanks:        %d\n", s.m_NumTanks);
  printf("circuits:     %d\n", s.m_NumCircuits);
}

// One line per tank number; a number without a record is a gap in the
// dispenser's numbering.
void PrintTanks(const slave& s) {
  for (int tank = 1; tank <= s.m_NumTanks; ++tank) {
    const long record = s.m_TankRecNo[tank - 1];
    const long colourant = s.m_TankCntId[tank - 1];
    if (record == 0) {
      printf("tank %3d: no tank record\n", tank);
    } else if (colourant == 0) {
      printf("tank %3d: no colourant\n", tank);
    } else {
      printf("tank %3d: colourant %ld\n", tank, colourant);
    }
  }
}

// The library's own report of the dispenser, which it writes to the trace.
// Its messages each begin with a line end, so the report opens with a
// blank line that sets it off from the lines above.
void PrintReport(slave& s) {
  std::string report;
  {
    TraceCapture capture;
    s.Dump();
    report = capture.Text();
  }
  if (report.empty()) return;
  if (report.back() != '\n') report += '\n';
  fputs(report.c_str(), stdout);
}

}  // namespace

int RunInfo(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 0, &status)) return status;
  std::string error;
  std::unique_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  PrintRecord(*s);
  PrintTanks(*s);
  PrintReport(*s);
  return kExitOk;
}
