// Zu_DataIdFromSlaveId: which colourant-data set serves a dispenser.
#include <string>

#include "data_dir.h"
#include "host/qdbase.h"
#include "host/zutable.h"

namespace {

// Reads the dispenser table in record order with a Qdbase object of its
// own, so no table the caller holds open is moved or closed.
long ReadDataId(Qdbase* disps, long dispId) {
  if (!disps->Open()) return 0;
  if (disps->FieldNo("DATA_ID") == 0) return 0;
  for (int more = disps->Top(); more; more = disps->Next()) {
    long id = 0;
    if (!disps->ReadLong("ID", &id) || id != dispId) continue;
    long dataId = 0;
    if (!disps->ReadLong("DATA_ID", &dataId)) return 0;
    // Data sets are numbered from 1; anything below means the data
    // directory itself.
    return dataId > 0 ? dataId : 0;
  }
  return 0;
}

}  // namespace

long Zu_DataIdFromSlaveId(long dispId) {
  std::string dir;
  if (!DataDirectory(&dir)) return 0;
  Qdbase disps;
  const char* none[] = {nullptr};
  if (!disps.SetFiles(dir.c_str(), "disps", 0, none, none)) return 0;
  long dataId = ReadDataId(&disps, dispId);
  disps.Close();
  return dataId;
}
