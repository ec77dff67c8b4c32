#include "tank_rows.h"

namespace {

// The master of each secondary tank: in a linked group only the master
// carries quantities; the others hold -1.
void FindMasters(slave& s, std::vector<TankRow>* rows) {
  const int count = s.NumCnts();
  std::vector<long> colourants(count + 1, 0);
  if (count > 0) s.CntsList(colourants.data());
  for (int i = 0; i < count; ++i) {
    ColourantInDispenser tanks(&s);
    if (!tanks.Read(colourants[i])) continue;
    int master = 0;
    for (int k = 0; k < tanks.m_NumTanks && master == 0; ++k) {
      if (tanks.m_Tanks[k].max_q != -1.0) master = tanks.m_Tanks[k].tank;
    }
    for (int k = 0; k < tanks.m_NumTanks; ++k) {
      const int tank = tanks.m_Tanks[k].tank;
      if (tanks.m_Tanks[k].max_q == -1.0 && tank >= 1 && tank <= s.m_NumTanks) {
        (*rows)[tank - 1].master = master;
      }
    }
  }
}

}  // namespace

std::vector<TankRow> ReadTanks(slave& s) {
  std::vector<int> tanks;
  for (int tank = 1; tank <= s.m_NumTanks; ++tank) tanks.push_back(tank);
  const std::vector<CircuitLevel> levels = ReadLevels(s, tanks);
  std::vector<TankRow> rows;
  for (const CircuitLevel& level : levels) {
    const int tank = level.circuit;
    TankRow row{level, s.m_TankRecNo[tank - 1] != 0, 0.0, 0, 0, 0};
    s.TankSoglia(tank, &row.threshold, &row.sim, &row.susp);
    rows.push_back(row);
  }
  FindMasters(s, &rows);
  return rows;
}

Json TankRowsJson(const std::vector<TankRow>& rows, const ColourantTable& names) {
  Json out = Json::array();
  for (const TankRow& row : rows) {
    const CircuitLevel& l = row.level;
    Json item = Json::object();
    item["circuit"] = l.circuit;
    item["record"] = row.has_record;
    item["colourant"] = l.colourant != 0 ? Json(l.colourant) : Json(nullptr);
    item["code"] = names.Code(l.colourant);
    item["current"] = LevelValue(l.known, l.current);
    item["reserve"] = LevelValue(l.known, l.reserve);
    item["maximum"] = LevelValue(l.known, l.maximum);
    item["threshold"] = row.threshold;
    item["sim"] = row.sim != 0;
    item["susp"] = row.susp != 0;
    item["shares_reservoir_of"] = row.master != 0 ? Json(row.master) : Json(nullptr);
    out.push_back(item);
  }
  return out;
}

std::vector<ChartBar> Bars(const std::vector<TankRow>& rows, const ColourantTable& names) {
  std::vector<ChartBar> bars;
  for (const TankRow& row : rows) {
    const CircuitLevel& l = row.level;
    ChartBar bar{l.circuit, names.Code(l.colourant), l.known && l.maximum > 0.0, l.current,
                 l.reserve, l.maximum, row.threshold, row.master, ""};
    if (!row.has_record) bar.empty_note = "no tank";
    else if (l.colourant == 0) bar.empty_note = "no colourant";
    bars.push_back(bar);
  }
  return bars;
}

