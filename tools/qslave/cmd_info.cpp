// info: the selected dispenser's record, its driver and its tanks.
#include <stdio.h>

#include "commands.h"
#include "dispenser_session.h"
#include "json_output.h"
#include "report.h"
#include "text_fields.h"
#include "trace_sink.h"

namespace {

Json RecordJson(slave& s) {
  Json record = Json::object();
  record["id"] = s.m_DispId;
  record["address"] = s.m_Address;
  record["description"] = FieldText(s.m_Descr);
  record["options"] = FieldText(s.m_Options);
  record["model"] = FieldText(s.m_Model);
  record["serial"] = FieldText(s.m_SerialNo);
  record["driver_type"] = s.m_Dsp->GetType(0, 0);
  record["comm_port"] = s.GetCommPort();
  record["tanks"] = s.m_NumTanks;
  record["circuits"] = s.m_NumCircuits;
  return record;
}

// Tank numbers without a record have "record": false; tanks without a
// colourant have "colourant": null.
Json TanksJson(const slave& s) {
  Json tanks = Json::array();
  for (int tank = 1; tank <= s.m_NumTanks; ++tank) {
    const long colourant = s.m_TankCntId[tank - 1];
    Json row = Json::object();
    row["tank"] = tank;
    row["record"] = s.m_TankRecNo[tank - 1] != 0;
    row["colourant"] = colourant != 0 ? Json(colourant) : Json(nullptr);
    tanks.push_back(row);
  }
  return tanks;
}

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
std::string DispenserReport(slave& s) {
  TraceCapture capture;
  s.Dump();
  return capture.Text();
}

void PrintReport(const std::string& text) {
  if (text.empty()) return;
  std::string report = text;
  if (report.back() != '\n') report += '\n';
  fputs(report.c_str(), stdout);
}

}  // namespace

int RunInfo(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 0, &status)) return status;
  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  const std::string report = DispenserReport(*s);
  if (JsonOutput()) {
    Json& doc = Document();
    doc["dispenser"] = RecordJson(*s);
    doc["tanks"] = TanksJson(*s);
    doc["report"] = report;
    return kExitOk;
  }
  PrintRecord(*s);
  PrintTanks(*s);
  PrintReport(report);
  return kExitOk;
}
