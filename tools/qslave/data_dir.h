// The data directory and the table files in it, as the reference host finds
// them: dir/base.dbf, or dir/BASE.DBF when the lower-case name is absent.
#ifndef QSLAVE_CLI_DATA_DIR_H
#define QSLAVE_CLI_DATA_DIR_H

#include <string>

// The directory the library will use (QSLAVE_DATA, else the current
// directory). False with *error when it cannot be told or is longer than
// the library accepts.
bool CurrentDataDir(std::string* dir, std::string* error);

// Checks that dir exists and is a directory; false with *error otherwise.
bool CheckDirectory(const std::string& dir, std::string* error);

// Creates dir and any missing parent directories (as mkdir -p); an
// existing directory is fine. False with *error otherwise.
bool MakeDirectories(const std::string& dir, std::string* error);

// The existing file of a table (lower-case name first), or "" when there
// is none. Any directory entry under the name counts.
std::string ExistingTableFile(const std::string& dir, const char* base);

// The lower-case file name of a table, for messages and for new tables.
std::string TableFile(const std::string& dir, const char* base);

#endif
