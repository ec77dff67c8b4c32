// Configuration tables for tests: a builder that writes the dispenser, tank
// and cistern tables (and the colourant-data tables) into a directory in the
// layouts the reference host creates, with values stored the way tables from
// the field hold them (DISP_ID and CIST_ID as right-aligned text), and a
// test fixture that points the library at such a directory.
#ifndef QSLAVE_TEST_DISPENSER_TABLES_H
#define QSLAVE_TEST_DISPENSER_TABLES_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/qdbase.h"
#include "refhost/qdb/config_schema.h"

namespace qtest {

// One record of the dispenser table. Every field has the value of a plain,
// well-formed record; tests change what they are about.
struct DispenserRow {
  long id = 1;
  bool x = false;
  int slave_addr = 1;  // SLAVE
  std::string descr = "Test dispenser";
  std::string options = "00000000000000000000000000000000";
  std::string model;
  std::string serial_n;
  std::string hide_id = "ZARVO";
  std::string communic;
  std::string cfg_str;
  std::string values;
  double threshold = 0.0;
  long data_id = 0;
};

// One record of the tank table.
struct TankRow {
  long disp_id = 1;
  int tank = 1;
  long cnt_id = 0;
  double cur_q = 0.0;
  double res_q = 0.0;
  double max_q = 0.0;
  double threshold = 0.0;
  std::string status_flg = "00000000";
  long cist_id = 0;  // written "%5ld": "    0" = no cistern
  std::string mpx;
  double resolut = 0.0;
};

// One record of the cistern table.
struct CisternRow {
  long id = 1;
  int users = 0;
  double max_q = 0.0;
  double cur_q = 0.0;
  double res_q = 0.0;
};

// One record of the colourant table (colorants.dbf).
struct ColorantRow {
  long id = 1;
  std::string code;
  std::string descr;
  double spec_w = 1000.0;
};

// One record of the cans table (cans.dbf).
struct CanRow {
  long id = 1;
  int h_min = 0;
  int h_max = 0;
  bool zero_flag = false;
  bool no_punch = false;
  std::string flags;
};

// The text of a COMMUNIC field: port at 0-1 ("%2d"), baud rate at 2-7
// ("%6d"), parity letter at 8, the two-digit line parameters at 10-11 and
// 12-13, the time-out at 41-49 ("%9.3f").
std::string Communic(int port, int baud, char parity, int param10_11,
                     int param12_13, double timeout);

// A text of `length` blanks with each piece written at its position
// (character positions counted from 0), e.g. for CFG_STR.
std::string FixedText(int length, const std::map<int, std::string>& pieces);

// Writes configuration tables into a directory. The constructor creates the
// dispenser, tank and cistern tables empty in the reference layouts; each
// Add appends one record at once (the file is complete when it returns), so
// tests may write tables before and between library calls as long as the
// library does not hold them open.
class DispenserTables {
 public:
  explicit DispenserTables(const std::string& dir);
  DispenserTables(const DispenserTables&) = delete;
  DispenserTables& operator=(const DispenserTables&) = delete;

  const std::string& dir() const { return dir_; }
  // Full name of a table's file.
  std::string FileOf(QdbSchemaTable table) const;

  // Deletes a table's file, so that the table is missing.
  void Remove(QdbSchemaTable table);
  // Replaces a table by an empty one in its reference layout without the
  // named fields (e.g. a dispenser table without MODEL or SERIAL_N).
  // Returns false if the table could not be created.
  bool RecreateWithout(QdbSchemaTable table,
                       const std::vector<std::string>& dropped);
  // Replaces a table by an empty one in its reference layout with the
  // given fields narrowed or widened (e.g. OPTIONS only 4 characters wide).
  bool RecreateWithWidths(QdbSchemaTable table,
                          const std::map<std::string, int>& widths);
  // The same with whole field descriptions (type, width, decimals) put in
  // place of the reference ones of the same name (e.g. CIST_ID as N(10)).
  bool RecreateWithFields(QdbSchemaTable table, const std::vector<QdbField>& fields);

  // Each returns the record number of the appended record (1-based), or 0
  // when the record could not be written. Fields the table lacks are left
  // out.
  long AddDispenser(const DispenserRow& row);
  long AddTank(const TankRow& row);
  long AddCistern(const CisternRow& row);
  long AddColorant(const ColorantRow& row);  // creates colorants.dbf
  long AddCan(const CanRow& row);            // creates cans.dbf

  // Creates the colourant table empty (if it is not there yet).
  bool CreateColorants();

  // A field of the dispenser record with the given ID as an independent
  // dBase reader (python3-dbfread) sees it on disk: texts without their
  // trailing blanks, numbers as Python prints them. "<none>" when no record
  // has that id, "<error>" when the file cannot be read.
  std::string ReadDispenserField(long id, const std::string& field) const;

 private:
  bool EnsureTable(QdbSchemaTable table);
  std::string dir_;
};

}  // namespace qtest

#endif
