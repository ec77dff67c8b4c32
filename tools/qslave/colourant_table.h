// Codes and descriptions of the colourants, from the colourant table of the
// dispenser's colourant data, so that reports can name what a circuit holds.
#ifndef QSLAVE_CLI_COLOURANT_TABLE_H
#define QSLAVE_CLI_COLOURANT_TABLE_H

#include <map>
#include <string>

struct ColourantNames {
  std::string code;
  std::string description;
};

class ColourantTable {
 public:
  // Reads every record of the colourant table of data id data_id. A table
  // that cannot be read leaves the lookup empty: reports then show "-".
  explicit ColourantTable(long data_id);

  // The colourant's code, "-" when the table does not list it.
  std::string Code(long id) const;
  // The colourant's description, "" when the table does not list it.
  std::string Description(long id) const;

 private:
  std::map<long, ColourantNames> names_;
};

#endif
