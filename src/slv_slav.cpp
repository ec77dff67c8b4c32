// The slave object: construction, copy, destruction, clean-up and the small
// configuration queries that read single values of the dispenser record.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#include <new>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_slav";

// The debug switch file, a name kept from the machines' DOS heritage; on
// this platform it is looked up relative to the current directory.
const char kDebugFile[] = "C:\\quser\\dspdebug.dbg";

// putenv keeps the pointer it is given, so the text lives here for good.
char g_dspEnv[1100];

void ExportDataPath() {
  char path[1024];
  if (!Zu_LocalPathEx(path, sizeof path)) return;
  // A path too long for the variable is not exported at all rather than cut.
  if (snprintf(g_dspEnv, sizeof g_dspEnv, "DSP=%s", path) >= static_cast<int>(sizeof g_dspEnv)) {
    return;
  }
  putenv(g_dspEnv);
}

// The simulation switch of the first live object: the debug file wins over
// the DSPDEBUG variable. 256 means "on" in both.
void ReadDebugSwitch() {
  FILE* file = fopen(kDebugFile, "r");
  if (file != nullptr) {
    char line[130] = "";
    if (fgets(line, sizeof line, file) != nullptr) {
      long n = strtol(line, nullptr, 10);
      slave::debug = (n == 256) ? 1 : static_cast<int>(n);
    }
    fclose(file);
  }
  if (slave::debug == 0) {
    const char* value = getenv("DSPDEBUG");
    slave::debug = (value != nullptr && strtol(value, nullptr, 10) == 256) ? 1 : 0;
  }
}

// A purge server that accepts and never answers, or a connection that never
// completes, must not hold a dispense for ever.
const double kPurgeServerTimeout = 5.0;

void InitPurgeServerSettings(slave* s) {
  s->m_PurgeSrvOff = 0;
  snprintf(s->m_PurgeSrvHost, sizeof s->m_PurgeSrvHost, "%s", "127.0.0.1");
  s->m_PurgeSrvPort = 9002;
  s->m_PurgeSrvTimeout = kPurgeServerTimeout;
}

}  // namespace

int slave::debug = 0;
int slave::counter = 0;
void (*slave::Message)(const char*) = SlvTraceMessage;
void (*slave::CommTest)(int, long) = nullptr;

slave::slave(long id)
    : m_Dsp(nullptr), m_Window(nullptr), m_SplitThreshold(0), m_SplitPerc(0),
      m_SeparateThread(1), m_DispId(0), m_Address(0), m_Descr(), m_Options(),
      m_Model(), m_NumTanks(0), m_NumCircuits(0), m_TankRecNo(nullptr),
      m_TankCntId(nullptr), m_LastError(0), m_SingleCircuit(0),
      m_FwVersion(-1), m_PurgeSrvFlag(0), m_DataId(0), m_CommPort(0),
      m_SerialNo(), m_LastDosedFrm(nullptr), m_LastDosedMode(0),
      m_PurgeSrvOff(0), m_PurgeSrvHost(), m_PurgeSrvPort(0), m_PurgeSrvTimeout(0),
      m_LevelsNotBooked(0), m_State(new (std::nothrow) SlvState) {
  // A constructor's own function-try-block would throw again: the body
  // catches, and a failure leaves an object without dispenser.
  InitPurgeServerSettings(this);
  try {
    ExportDataPath();
  } catch (...) {
    SlvNoteFailure(this, kSource, __LINE__, __func__);
  }
  // Counted whatever follows: the destructor counts every object down.
  ++counter;
  try {
    if (counter == 1) {
      ReadDebugSwitch();
      _slv_OpenDatabases();
    }
    Set(id);
  } catch (...) {
    SlvNoteFailure(this, kSource, __LINE__, __func__);
  }
}

slave::slave(const slave& o)
    : m_Dsp(nullptr), m_Window(nullptr), m_SplitThreshold(0), m_SplitPerc(0),
      m_SeparateThread(1), m_DispId(0), m_Address(0), m_Descr(), m_Options(),
      m_Model(), m_NumTanks(0), m_NumCircuits(0), m_TankRecNo(nullptr),
      m_TankCntId(nullptr), m_LastError(0), m_SingleCircuit(0),
      m_FwVersion(-1), m_PurgeSrvFlag(0), m_DataId(0), m_Text(),
      m_CommPort(0), m_SerialNo(), m_LastDosedFrm(nullptr), m_LastDosedMode(0),
      m_PurgeSrvOff(0), m_PurgeSrvHost(), m_PurgeSrvPort(0), m_PurgeSrvTimeout(0),
      m_LevelsNotBooked(0), m_State(new (std::nothrow) SlvState) {
  // A copy is a configuration snapshot for tank and colourant queries: it
  // shares no driver and never opens the tables.
  InitPurgeServerSettings(this);
  ++counter;
  try {

    m_DispId = o.m_DispId;
    m_Address = o.m_Address;
    snprintf(m_Descr, sizeof m_Descr, "%s", o.m_Descr);
    snprintf(m_Options, sizeof m_Options, "%s", o.m_Options);
    snprintf(m_Model, sizeof m_Model, "%s", o.m_Model);

    m_NumTanks = o.m_NumTanks;
    if (m_State != nullptr && o.m_State != nullptr) *m_State = *o.m_State;
    if (m_NumTanks > 0 && o.m_TankRecNo != nullptr && o.m_TankCntId != nullptr) {
      const size_t bytes = sizeof(long) * static_cast<size_t>(m_NumTanks);
      m_TankRecNo = static_cast<long*>(malloc(bytes));
      m_TankCntId = static_cast<long*>(malloc(bytes));
      if (m_TankRecNo == nullptr || m_TankCntId == nullptr) {
        TarvoTrace("\n%s(%d): ***** memory alloc error! ****** ", kSource, __LINE__);
        clean();
        return;
      }
      memcpy(m_TankRecNo, o.m_TankRecNo, bytes);
      memcpy(m_TankCntId, o.m_TankCntId, bytes);
    } else {
      m_NumTanks = 0;
    }

    m_LastError = o.m_LastError;
    m_SingleCircuit = o.m_SingleCircuit;
    m_Window = o.m_Window;
    m_SplitThreshold = o.m_SplitThreshold;
    m_SplitPerc = o.m_SplitPerc;
    m_SeparateThread = o.m_SeparateThread;
    m_Text = o.m_Text;
  } catch (...) {
    clean();
    SlvNoteFailure(this, kSource, __LINE__, __func__);
  }
}

slave::~slave() {
  try {
    if (counter-- == 1) _slv_CloseDatabases();
  } catch (...) {
    SlvNoteFailure(this, kSource, __LINE__, __func__);
  }
  clean();
  delete m_State;
}

int slave::clean() {
  m_DispId = 0;
  m_Address = 0;
  memset(m_Descr, 0, sizeof m_Descr);
  memset(m_Options, 0, sizeof m_Options);
  memset(m_Model, 0, sizeof m_Model);
  m_NumTanks = 0;
  m_NumCircuits = 0;
  free(m_TankRecNo);
  free(m_TankCntId);
  m_TankRecNo = nullptr;
  m_TankCntId = nullptr;
  if (m_State != nullptr) {
    // A call in progress (Write selects the dispenser again) keeps its count.
    const int depth = m_State->callDepth;
    *m_State = SlvState();
    m_State->callDepth = depth;
  }
  m_LastError = 0;
  m_SingleCircuit = 0;
  m_DataId = 0;
  m_FwVersion = -1;
  m_Window = nullptr;
  m_SplitThreshold = 0;
  m_SplitPerc = 0;
  m_SeparateThread = 1;
  if (m_Dsp != nullptr) {
    CDispenser_Delete(m_Dsp, 0);
    m_Dsp = nullptr;
  }
  memset(m_SerialNo, 0, sizeof m_SerialNo);
  // The last dosed text is dropped, not freed: only ClearLastDosedFormula
  // releases it (a host may still hold the pointer).
  m_LastDosedFrm = nullptr;
  m_LastDosedMode = 0;
  return 1;
}

int slave::GetCommPort() { return m_CommPort; }

int slave::LevelsNotBooked() { return m_LevelsNotBooked; }

int slave::EnableSeparateThread(int on) {
  const int previous = m_SeparateThread;
  m_SeparateThread = (on == 1) ? 1 : 0;
  return previous;
}

void slave::SetWindowSlave(void* window) { m_Window = window; }

void* slave::GetWindowSlave() { return m_Window; }

int slave::DispenserQuit() try {
  if (m_Dsp == nullptr) return 0;
  const int result = m_Dsp->Quit(1);
  _slv_CloseDatabases();
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// A splitting setting from CFG_STR positions from..to, divided by divisor,
// kept in *member; an unreadable CFG_STR keeps the member's last value.
double SplittingSetting(const slave* s, int from, int to, double divisor, double* member) {
  Qdbase* disp = SlvDispenserRecord(s);
  if (disp == nullptr) return 0.0;
  char cfg[128];
  if (disp->ReadString("CFG_STR", cfg, sizeof cfg, 0, 0)) {
    *member = SlvPieceDouble(cfg, from, to) / divisor;
  }
  return *member;
}

}  // namespace

double slave::GetSplittingPerc() try {
  return SplittingSetting(this, 37, 40, 10.0, &m_SplitPerc);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0.0);
}

double slave::GetSplittingThreshold() try {
  return SplittingSetting(this, 41, 44, 1.0, &m_SplitThreshold);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0.0);
}

int slave::NumSpeeds(int* speeds) try {
  Qdbase* disp = SlvDispenserRecord(this);
  if (disp == nullptr) return 0;
  char values[128];
  if (!disp->ReadString("VALUES", values, sizeof values, 0, 0)) return 0;
  int count = 0;
  char* save = nullptr;
  for (char* token = strtok_r(values, ";,\t\n ", &save); token != nullptr;
       token = strtok_r(nullptr, ";,\t\n ", &save)) {
    // A token that is not a number is a speed of 0; it still counts, so the
    // positions of the others do not move.
    if (speeds != nullptr) speeds[count] = static_cast<int>(strtol(token, nullptr, 10));
    ++count;
  }
  return count;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::IsGravimetric() try {
  if (m_DispId < 1 || m_Dsp == nullptr) return 0;
  CZutable colorants;
  Qdbase* table = SlvOpenColorants(this, &colorants, kSource, __LINE__);
  if (table == nullptr) {
    return 0;
  }
  int result = 0;
  table->SelectIdx(1);
  for (int more = table->Top(); more && !table->Eof(); more = table->Next()) {
    char code[25];
    // A code goes to the driver whole or not at all: one the buffer cannot
    // hold fails the question, since a cut code names another colourant.
    if (table->TextLength("CODE") >= static_cast<int>(sizeof code)) {
      TarvoTrace("\n%s(%d): colorant code of %d characters refused: room for %zu", kSource,
                 __LINE__, table->TextLength("CODE"), sizeof code - 1);
      m_LastError = SLV_ERR_GENERIC;
      result = 0;
      break;
    }
    if (!table->ReadString("CODE", code, sizeof code, 1, 1)) continue;
    char formula[40];
    snprintf(formula, sizeof formula, "(%s:1.0)", code);
    if (m_Dsp->IsGravimetricCnt(formula)) {
      result = 1;
      break;
    }
  }
  colorants.Close();
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::TankSoglia(int tank, double* threshold, int* flag0, int* flag1) try {
  if (threshold != nullptr) *threshold = 0.0;
  if (m_DispId < 1 || tank < 1 || tank > m_NumTanks || m_TankRecNo == nullptr) return 0;
  const long recno = m_TankRecNo[tank - 1];
  Qdbase* tanks = nullptr;
  if (recno < 1 || !_slv_dbhandles(nullptr, &tanks, nullptr)) return 0;
  if (tanks->RecNo() != recno && !tanks->Go(recno)) return 0;

  double value = 0.0;
  if (threshold != nullptr && tanks->ReadDouble("THRESHOLD", &value)) *threshold = value;
  // A flag past the end of a short STATUS_FLG text is off.
  char flags[9];
  const bool haveFlags = tanks->ReadString("STATUS_FLG", flags, sizeof flags, 0, 0) != 0;
  if (flag0 != nullptr) *flag0 = haveFlags && flags[0] != '\0' && flags[0] != '0';
  if (flag1 != nullptr) *flag1 = haveFlags && flags[0] != '\0' && flags[1] != '\0' && flags[1] != '0';
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

void SlaveSetEnvironmentFunc(void (*)(), void (*)()) {}
