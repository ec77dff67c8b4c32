// Readable reports of the selected dispenser, written to the trace: its
// record, its tanks, and how each colourant is distributed over them.
#include <stdlib.h>
#include <string.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_dump";

const char* OptionWord(const slave* s, int pos, const char* word) {
  return SlvOptionOn(s->m_Options, pos) ? word : "";
}

const char* YesNo(int flag) { return flag ? "Yes" : " No"; }

}  // namespace

void slave::Dump() try {
  if (m_DispId < 1) return;
  TarvoTrace("\nSLAVE INFO");
  TarvoTrace("\nid.................: %ld", m_DispId);
  TarvoTrace("\naddress............: %d", m_Address);
  TarvoTrace("\nname...............: \"%s\"", m_Descr);
  TarvoTrace("\nlast error.........: %d", LastError());
  TarvoTrace("\nn. tanks...........: %d", m_NumTanks);
  TarvoTrace("\nhw. options........: %s %s %s %s %s", OptionWord(this, 0, "SHELF "),
             OptionWord(this, 1, "PUNCHER "), OptionWord(this, 2, "CAP "),
             OptionWord(this, 3, "STOPPER "), OptionWord(this, 4, "DOOR "));
  // The id is printed unsigned and followed by a letter l, as hosts parse it.
  TarvoTrace("\ndataid............: \"%ul\"\n", static_cast<unsigned>(m_DataId));
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}

void slave::DumpTanks() try {
  SlvCallScope call(this);
  if (m_DispId < 1) return;
  TarvoTrace("\n\nTANKS INFO");
  TarvoTrace("\n Tank  Cnt        Cur        Res        Max    Thres");
  SlvDriverCopies copies(this);
  for (int tank = 1; tank <= m_NumTanks && m_TankCntId != nullptr; ++tank) {
    const long cnt = m_TankCntId[tank - 1];
    if (cnt == 0) continue;
    double cur = 0.0, res = 0.0, max = 0.0, threshold = 0.0;
    TankQnts(tank, &cur, &res, &max);
    TankSoglia(tank, &threshold, nullptr, nullptr);
    TarvoTrace("\n %4d %4ld %10.2lf %10.2lf %10.2lf %8.0lf", tank, cnt, cur, res, max, threshold);
  }
  copies.Write();
  TarvoTrace("\n");
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}

void slave::DumpCntsInTanks() try {
  SlvCallScope call(this);
  if (m_DispId < 1) return;
  CZutable colorants;
  Qdbase* table = SlvOpenColorants(this, &colorants, kSource, __LINE__);
  if (table == nullptr) {
    return;
  }
  if (m_NumTanks < 1) {
    colorants.Close();
    return;
  }
  // The tanks of every colourant, in tank order, gathered in one pass over
  // the tank map: the table may list many colourants and the dispenser
  // many tanks.
  std::unordered_map<long, std::vector<int>> tanksOf;
  for (int tank = 1; tank <= m_NumTanks && m_TankCntId != nullptr; ++tank) {
    if (m_TankCntId[tank - 1] > 0) tanksOf[m_TankCntId[tank - 1]].push_back(tank);
  }
  const std::vector<int> none;
  TarvoTrace("\nCOLORANT DISTRIBUTION INFO");
  TarvoTrace("\n Cnt                               SpecW    Tank     Thres   Sim  Susp        Cur");
  table->SelectIdx(1);
  SlvDriverCopies copies(this);
  for (int more = table->Top(); more && !table->Eof(); more = table->Next()) {
    long id = 0;
    char descr[25] = "";
    table->ReadLong("ID", &id);
    table->ReadString("DESCR", descr, sizeof descr, 1, 1);
    const long recno = table->RecNo();
    const double weight = colorants.SpecificWeight(id);
    if (table->RecNo() != recno) table->Go(recno);
    const std::string first = SlvFormat("\n%5ld %-24.24s %10.2lf", id, descr, weight);
    const auto found = tanksOf.find(id);
    const std::vector<int>& tanks = found != tanksOf.end() ? found->second : none;
    const int k = static_cast<int>(tanks.size());
    if (k < 1) {
      TarvoTrace("%s", first.c_str());
      continue;
    }
    for (int i = 0; i < k; ++i) {
      double threshold = 0.0, cur = 0.0;
      int sim = 0, susp = 0;
      TankSoglia(tanks[i], &threshold, &sim, &susp);
      TankQnts(tanks[i], &cur, nullptr, nullptr);
      // Rows after the first are indented by the first part's length.
      TarvoTrace("\n%-*s   %5ld  %8.0lf   %3.3s   %3.3s %10.2lf", static_cast<int>(first.size()),
                 i == 0 ? first.c_str() : "", static_cast<long>(tanks[i]), threshold, YesNo(sim),
                 YesNo(susp), cur);
    }
  }
  copies.Write();
  colorants.Close();
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}
