// How full a circuit is, for the levels page and its JSON:
//  - "critical": below its reserve (the library's verdict 0: it cannot be
//    served);
//  - "warning": below twice its reserve (verdict 1: at reserve);
//  - "low": at least twice its reserve but below a quarter of its maximum
//    (a refill will soon be due);
//  - "ok": otherwise;
//  - "unknown": no colourant, no record, or levels that cannot be read.
// A secondary tank of a linked group shares its reservoir's state.
#ifndef QSLAVE_CLI_LEVEL_STATES_H
#define QSLAVE_CLI_LEVEL_STATES_H

#include "tank_rows.h"

const char* LevelState(const TankRow& row);

#endif
