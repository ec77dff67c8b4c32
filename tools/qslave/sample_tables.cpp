#include "sample_tables.h"

#include <stdio.h>

#include <utility>

namespace {

// A text of blanks with each piece written at its position (from 0), as
// the dispenser record keeps settings at fixed positions.
std::string Positioned(std::initializer_list<std::pair<size_t, const char*>> pieces) {
  std::string text;
  for (const auto& piece : pieces) {
    const std::string value = piece.second;
    if (text.size() < piece.first + value.size()) text.resize(piece.first + value.size(), ' ');
    text.replace(piece.first, value.size(), value);
  }
  return text;
}

// Serial line: port 1, 9600 baud, no parity, line parameters 08 and 01,
// answers awaited 2.5 seconds.
std::string Communication() {
  return Positioned({{0, " 1"}, {2, "  9600"}, {8, "N"}, {10, "08"},
                     {12, "01"}, {41, "    2.500"}});
}

// Machine parameters: shelf travel 90 % of 300 (positions 1-3, 4-7),
// preferred shelf height 150 (33-36), splitting at 50.0 % (37-40, in
// tenths) above 10 (41-44), manual puncher fitted (45).
std::string MachineParameters() {
  return Positioned({{1, "090"}, {4, "0300"}, {33, "0150"}, {37, "0500"},
                     {41, "0010"}, {45, "1"}});
}

std::vector<Record> Dispensers() {
  return {{
      Long("ID", 1),
      Logical("X", true),
      Long("SLAVE", 1),
      Text("DESCR", "Sample dispenser"),
      // Door switch fitted (4), preferred shelf position for cans (5).
      Text("OPTIONS", "00001100000000000000000000000000"),
      Text("MODEL", "Z12"),
      Text("SERIAL_N", "SN-000123"),
      Text("HIDE_ID", "ZARVO"),
      Text("COMMUNIC", Communication()),
      Text("CFG_STR", MachineParameters()),
      Text("VALUES", "10;20;30"),
      Double("THRESHOLD", 0.0),
      Long("DATA_ID", 0),
  }};
}

// An id as tables from the field hold it in a text field: five characters,
// right-aligned.
std::string TextId(long id) {
  char text[24];
  snprintf(text, sizeof text, "%5ld", id);
  return text;
}

struct TankSample {
  int tank;
  long colourant;
  double cur, res, max, threshold;
  const char* flags;
  long cistern;
  const char* mpx;
  double resolution;
};

const TankSample kTanks[] = {
    // White: a linked pair on cistern 1; the master carries the quantities.
    {1, 1, 3000.0, 400.0, 4000.0, 0.0, "00000000", 1, "", 0.01},
    {2, 1, -1.0, -1.0, -1.0, 0.0, "00000000", 1, "", 0.01},
    // Black: two independent tanks that may dispense together.
    {3, 2, 1500.0, 200.0, 2000.0, 0.0, "10000000", 0, "", 0.001},
    {4, 2, 1800.0, 200.0, 2000.0, 20.0, "10000000", 0, "", 0.01},
    {5, 3, 1200.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {6, 4, 900.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {7, 5, 1600.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {8, 6, 1400.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {9, 7, 1000.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {10, 8, 700.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {11, 9, 1100.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
    {12, 10, 1300.0, 150.0, 2000.0, 0.0, "00000000", 0, "1;", 0.005},
};

std::vector<Record> Tanks() {
  std::vector<Record> records;
  for (const TankSample& t : kTanks) {
    records.push_back({
        Text("DISP_ID", TextId(1)),
        Long("TANK", t.tank),
        Long("CNT_ID", t.colourant),
        Double("CUR_Q", t.cur),
        Double("RES_Q", t.res),
        Double("MAX_Q", t.max),
        Double("THRESHOLD", t.threshold),
        Text("STATUS_FLG", t.flags),
        Text("CIST_ID", TextId(t.cistern)),
        Text("MPX", t.mpx),
        Double("RESOLUT", t.resolution),
    });
  }
  return records;
}

// The reservoir of the white pair (tanks 1 and 2).
std::vector<Record> Cisterns() {
  return {{
      Long("ID", 1),
      Long("USERS", 2),
      Double("MAX_Q", 4000.0),
      Double("CUR_Q", 3000.0),
      Double("RES_Q", 400.0),
  }};
}

struct ColourantSample {
  long id;
  const char* code;
  const char* description;
  double weight;  // grams per litre
};

const ColourantSample kColourants[] = {
    {1, "W01", "Titanium white", 1850.0}, {2, "BK2", "Carbon black", 1150.0},
    {3, "Y03", "Oxide yellow", 1700.0},   {4, "R04", "Oxide red", 1950.0},
    {5, "B05", "Phthalo blue", 1100.0},   {6, "G06", "Phthalo green", 1150.0},
    {7, "M07", "Magenta", 1080.0},        {8, "O08", "Organic orange", 1120.0},
    {9, "V09", "Violet", 1060.0},         {10, "Y10", "Lemon yellow", 1200.0},
};

std::vector<Record> Colourants() {
  std::vector<Record> records;
  for (const ColourantSample& c : kColourants) {
    records.push_back({Long("ID", c.id), Text("CODE", c.code),
                       Text("DESCR", c.description), Double("SPEC_W", c.weight)});
  }
  return records;
}

// Half a litre, a litre (raised to the preferred shelf position) and a
// large can that is neither pre-positioned nor punched.
std::vector<Record> Cans() {
  return {
      {Long("ID", 1), Long("H_MIN", 80), Long("H_MAX", 120),
       Logical("ZERO_FLAG", false), Logical("NO_PUNCH", false), Text("FLAGS", "0")},
      {Long("ID", 2), Long("H_MIN", 150), Long("H_MAX", 200),
       Logical("ZERO_FLAG", false), Logical("NO_PUNCH", false), Text("FLAGS", "1")},
      {Long("ID", 3), Long("H_MIN", 220), Long("H_MAX", 260),
       Logical("ZERO_FLAG", true), Logical("NO_PUNCH", true), Text("FLAGS", "00")},
  };
}

}  // namespace

std::vector<SampleTable> SampleTables() {
  return {
      {QDB_SCHEMA_DISPS, Dispensers()},
      {QDB_SCHEMA_TANKS, Tanks()},
      {QDB_SCHEMA_CISTERN, Cisterns()},
      {QDB_SCHEMA_COLORANTS, Colourants()},
      {QDB_SCHEMA_CANS, Cans()},
  };
}
