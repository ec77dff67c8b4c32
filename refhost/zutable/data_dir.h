// Where the colourant-data tables live.
#ifndef QSLAVE_REFHOST_DATA_DIR_H
#define QSLAVE_REFHOST_DATA_DIR_H

#include <string>

// The host's data directory (Zu_LocalPathEx). false when it cannot be told.
bool DataDirectory(std::string* dir);

// The directory of colourant-data set dataId: its subdirectory dataN of the
// data directory for dataId N > 0 when that exists, else the data directory
// itself. false when the data directory cannot be told.
bool DataSetDirectory(long dataId, std::string* dir);

#endif
