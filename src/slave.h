// qslave: the library a tinting application loads to drive colourant
// dispensers.
//
// One `slave` object stands for one dispenser, selected by its id in the
// dispenser table. Through it the application dispenses formulas, keeps the
// tank levels, purges circuits, moves the shelf and reads machine status.
// Everything the library needs from its host (tables, driver, colourant
// data, trace) is declared under host/.
//
// Calls are made from one thread at a time: all objects share the three
// configuration tables, the static hooks and one 512-byte command buffer.
//
// No exception leaves the library: an operation that fails for want of
// memory (or on any exception) answers its failure value, sets error 15 on
// the object and writes one trace line "<source>(<line>): <function>: out
// of memory".
#ifndef QSLAVE_SLAVE_H
#define QSLAVE_SLAVE_H

#include <stddef.h>
#include <wchar.h>

#include <string>

#include "host/cdispenser.h"
#include "host/qdbase.h"
#include "host/zutable.h"

#define QSLAVE_API __attribute__((visibility("default")))

// Result codes of machine commands (index of the message table) and the
// codes the library keeps in m_LastError itself.
enum {
  SLV_NO_ANSWER = -1,
  SLV_SUCCESS = 0,
  SLV_ERR_GENERIC = 15,    // bad input, no memory, a command that cannot be
                           // built whole
  SLV_ERR_NO_TANK = 19,    // a colourant in no tank, or nothing to purge
};

// Size of every work buffer for commands and replies.
enum { SLV_CMD_BUFFER = 512 };

class ColourantInDispenser;

class QSLAVE_API slave {
 public:
  // --- Members, in their declared order ----------------------------------
  CDispenser* m_Dsp;          // owned driver; null without a dispenser
  void* m_Window;             // the host's window handle, never used here
  double m_SplitThreshold;    // last GetSplittingThreshold()
  double m_SplitPerc;         // last GetSplittingPerc()
  int m_SeparateThread;       // permission for the driver's thread path
  long m_DispId;              // selected dispenser; < 1 = none
  int m_Address;              // SLAVE: the machine's address
  char m_Descr[25];           // DESCR
  char m_Options[33];         // OPTIONS: one '0'/'1' per position from 0
  char m_Model[12];           // MODEL
  int m_NumTanks;             // highest tank number of the dispenser
  int m_NumCircuits;          // m_NumTanks, or the driver's count (type 9)
  long* m_TankRecNo;          // per tank (index tank-1): TANKS record, 0 none
  long* m_TankCntId;          // per tank: colourant id, 0 none
  int m_LastError;            // last non-zero command code, or 15 / 19
  int m_SingleCircuit;        // single-circuit mode of the tank queries
  int m_FwVersion;            // cached firmware generation; -1 not asked
  char m_PurgeSrvFlag;        // dispenses are purges (purge server, type 9)
  long m_DataId;              // colourant-data id
  std::string m_Text;
  int m_CommPort;             // serial port, from COMMUNIC
  char m_SerialNo[25];        // SERIAL_N
  char* m_LastDosedFrm;       // last dosed command text (malloc)
  int m_LastDosedMode;        // 0 clear, 1 replace, 2 append
  char m_PurgeSrvOff;         // non-zero: no purge-server update
  char m_PurgeSrvHost[51];
  int m_PurgeSrvPort;
  // Seconds the purge-server call may take, connection and answer
  // together; 0 or less waits for the answer however long it takes.
  // 5 after construction and copy.
  double m_PurgeSrvTimeout;
  // 1 when the last dispense or purge of this object went to the machine
  // (or, for DispDrv, to the caller) but its quantities could not be booked
  // on the levels; 0 otherwise. Read it with LevelsNotBooked().
  int m_LevelsNotBooked;
  // What the library derives from the tables for this object (its tank map's
  // age, lookups built at selection); owned, never null while it lives.
  struct SlvState* m_State;

  // Simulation switch: while non-zero the status predicates answer fixed
  // values without asking the machine.
  static int debug;
  // Live objects; the first opens the tables, the last closes them.
  static int counter;
  // Trace of every command and its result; never null.
  static void (*Message)(const char* text);
  // Called with phase 0 before and phase 1 after every command; may be null.
  static void (*CommTest)(int phase, long dispId);

  // --- Object and dispenser selection ------------------------------------
  explicit slave(long id);
  slave(const slave& o);
  slave& operator=(const slave&) = delete;
  ~slave();
  int clean();
  int Set(long id);
  int FindFirst();
  int FindNext();
  int SetCommPort(int port);
  int GetCommPort();
  int SetSeparateThread(int on);
  int EnableSeparateThread(int on);
  void SetWindowSlave(void* window);
  void* GetWindowSlave();
  int DispenserQuit();
  int CloseDatabases();
  double GetSplittingPerc();
  double GetSplittingThreshold();
  int NumSpeeds(int* speeds);
  int IsGravimetric();
  int TankSoglia(int tank, double* threshold, int* flag0, int* flag1);
  int RebuildIndex(int (*progress)(char*));

  // --- Command channel and error queue -----------------------------------
  int sendcommand(char* cmd, char* answer, int answerLen);
  int LastError();
  int ErrorQueueFirst(wchar_t* text, int textLen, char* code, int codeLen);
  int ErrorQueueNext(wchar_t* text, int textLen, char* code, int codeLen);
  int ErrorQueueClear();
  int ErrorQueueCount();

  // --- Machine status and options ----------------------------------------
  int IsStopPressed(int status);
  int IsStartReleased(int status);
  int IsErrorQueueEmpty(int status);
  int IsErrorQueueOverflow(int status);
  int IsBusy(int status);
  int IsBusyForAutomaticProcess(int status);
  int IsCanPresent(int status);
  int IsDoorClosed(int status);
  int IsDoorClosed();
  int IsEmergencyPressed(int status);
  int IsBusyForNozzleWash(int status);
  int SlaveFw();
  int ForceOption(int pos, int on);
  int Hfoto();
  int HPrefPos();
  int ManualPuncher();
  int SetMachineModelAndSerialNo(char* text);
  char* GetMachineModelAndSerialNo();
  char* GetK240CircuitsStatus(int circuit);
  int DispenseStep(int a, int b, int c);

  // --- Shelf, can and single-circuit operations --------------------------
  int ShelfMove(int height);
  int ShelfPrepos(long canId);
  int ShelfPos(long canId);
  int ShelfPostpos(long canId);
  int SingleRecirculate(int a, int b, int c);
  int SingleMix(int a, int b);

  // --- Colourant and tank queries ----------------------------------------
  int NumCnts();
  void CntsList(long* out);
  int CntToNumTanks(long cnt);
  int CntToTank(long cnt);
  void CntToTanks(long cnt, int max, int* out);
  int CntQntToTank(long cnt, double qnt);
  int CntToTypeCircuit(long cnt);
  int CntToTypeCircuitNoTh(long cnt);
  int TankToTankField(int tank);
  int CanisterToCanisterField(int canister, bool* a, bool* b);
  int TankAvail(int tank);
  int TankQnts(int tank, double* cur, double* res, double* max);
  // The quantities of n tanks in one call: known[i] is what TankQnts
  // answers for tanks[i] (1 read, 0 not), cur[i], res[i] and max[i] what it
  // reads (0 when it cannot); cur, res and max may be null. A driver that
  // keeps the levels is asked for its rows once for all of them, and its
  // figures are copied into the records in one booking, where a TankQnts
  // per tank asks and books once per tank. Returns how many were read; 0,
  // writing nothing, when n is below 0 or tanks or known is null.
  int TanksQnts(int n, const int* tanks, double* cur, double* res, double* max, int* known);
  int TankLocate(int tank);
  int TankResolution(int tank, double* res);
  int MoveToFill(int tank);
  int CheckLevel(int tank, double qnt);
  void SetSingleCircuit(int on);
  int CntQntToTanks(long cnt, double qnt, Zu_IntArray* tanks,
                    Zu_DoubleArray* qnts, int trace);
  int CheckLevel(char* frm, double a, double b, int c, Zu_IntArray* low);

  // --- Formulas -----------------------------------------------------------
  int SplitFrmToTanks(char* frm, Zu_LongArray* cnts, Zu_IntArray* tanks,
                      Zu_DoubleArray* qnts, double f, double u, int w,
                      int trace, int* convFailed);
  int ParseFormula(char* frm, long* cnts, int* tanks, double* qnts);
  int CntsToQntsWeights(int n, long* cnts, double* qnts);
  int VerifyFormula(char* frm, int checkWeights);
  int TranslateFormulaFromCntIdToCntCode(char* frm, char* out, double f,
                                         double u, int w);

  // --- Command strings and dispensing -------------------------------------
  int DoSplittArrays(int n, int* tanks, double* qnts, double f, int* count1,
                     int* tanks1, double* qnts1, int* count2, int* tanks2,
                     double* qnts2);
  char* MakeCommandString(int n, int* tanks, double* qnts, double f, int m,
                          int* tanks2, double* qnts2);
  int SendCommandString(int n, int* tanks, double* qnts, double f, int m,
                        int* tanks2, double* qnts2);
  int Dispense(char* frm, double f, double u, int w, int updLevels,
               int g2Before, int g0After);
  int Dispense(int n, int* tanks, double* qnts, double f);
  int DispenseByColorant(char* frm, double f, double u, int w, int updLevels);
  int DispenseByCircuit(char* frm, int pairsPerCmd, int g2Before, int g0After);
  int DispDrv(char* frm, char* out, int outLen, double f, double u, int w,
              int updLevels, int style);
  int UpdateDspPurgeServerAfterDispensing(char* frm);
  // 1 when the last Dispense, DispDrv, DispenseByCircuit, Purge,
  // SelectivePurge, CanisterPurge or Test sent its command but the levels
  // do not hold its quantities (a table that could not be written, a
  // circuit whose level could not be read); 0 when every quantity was
  // booked or the operation books none. Each of those operations sets it
  // anew when it starts.
  int LevelsNotBooked();

  // --- Diagnostic dumps ---------------------------------------------------
  void Dump();
  void DumpTanks();
  void DumpCntsInTanks();

  // --- Levels -------------------------------------------------------------
  int change_level(int circuit, double quantity, int relative, int notify);
  int UpdateLevels(int count, int* circuits, double* quantities, double factor,
                   int add);
  int UpdateLevels(char* formula, double f1, double f2, int mode, int add);
  int UpdateLevelsByFormula(char* text);
  int SetLevelMax();
  int GetCircuitsUnderCriticalLevel(char* formula, double size,
                                    double baseSize, int mode,
                                    Zu_IntArray& circuits,
                                    Zu_IntArray& colourants);
  int GetCircuitsUnderWarningLevel(char* formula, double size, double baseSize,
                                   int mode, Zu_IntArray& circuits,
                                   Zu_IntArray& colourants);

  // --- Purge --------------------------------------------------------------
  int Purge(double quantity, Zu_Frm* record, bool send, bool oneByOne);
  int SelectivePurge(long* colourants, double quantity);
  int CanisterPurge(int circuit, double quantity);
  int Test(bool grouped, double quantity);

  // --- Dispensed-quantity reports -----------------------------------------
  int ParseDispensedRequest(char* reply, int* circuits, double* requested,
                            double* dispensed);
  int FormulaRequest(char* reply, char* out, int outSize, int mode);
  int FormulaRemainingRequest(char* reply, char* out, int outSize);
  int FormulaDispensedRequest(char* reply, char* out, int outSize);
  int FormulaTotalOriginalRequest(char* reply, char* out, int outSize);
  int FormulaRemainingRequestT7R(int a, char* b, int c, char* d, int e);
  int DispensedRequest(char* request, char* out, int outSize);

  // --- Last dosed formula -------------------------------------------------
  char* LastDosedFormula();
  void SetLastDosedFormulaRecordMode(int mode);
  void ClearLastDosedFormula();
  void SetLastDosedFormula(char* text);
};

// --- Colourant in dispenser ---------------------------------------------

// Tank status bits: positions in a tank's STATUS_FLG text.
enum TnkStatus {
  TNK_SIM = 0,   // may dispense together with the colourant's other tanks
  TNK_SUSP = 1,  // suspended: a split gives it nothing
};

// Verdict of ColourantInDispenser::IsCntOK.
enum CntStatus {
  CNT_ABSENT = 0,
  CNT_SINGLE = 1,
  CNT_LINKED = 2,
  CNT_MULTI = 3,
  CNT_BAD_TANK = 4,
  CNT_NO_ZERO_THRES = 5,
  CNT_BAD_LINK = 6,
};

// One tank holding the colourant.
struct CtInDspTank {
  int tank;            // tank number, from 1
  double max_q;        // -1.0 in a secondary tank of a linked group
  double cur_q;
  double res_q;
  double threshold;    // smallest quantity to dispense from it; 0 = none
  double split_q;      // share given by the last split
  char status_flg[9];  // STATUS_FLG, '0'/'1' per TnkStatus bit
  char cist_id[6];     // cistern id "%5ld"; "    0" = none
  double mpx;          // multiplexing factor (MPX before the first ';')
};

// Working copy of the tanks that hold one colourant in one dispenser.
class QSLAVE_API ColourantInDispenser {
 public:
  slave* m_Slave;
  long m_CntId;
  int m_NumTanks;
  int m_SingleCircuit;
  double m_DispThres;
  CtInDspTank* m_Tanks;

  explicit ColourantInDispenser(slave* s);
  ~ColourantInDispenser();
  ColourantInDispenser(const ColourantInDispenser&) = delete;
  ColourantInDispenser& operator=(const ColourantInDispenser&) = delete;

  int Clear();
  int SetDispenserThres();
  int Read(long cnt);
  int IsCntOK(CntStatus* st);
  int Write();
  int Adjust();
  int ChkStatus(int i, TnkStatus b);
  int ModifyStatus(int i, TnkStatus b);
  int VerifyLevel(double left, double reserve);
  void ShowCircuit();
  int SplitByMpx(long cnt, double qnt);
  int SplitQnt(long cnt, double qnt);
  int SplitQntToTanks(long cnt, double qnt, Zu_IntArray* tanks,
                      Zu_DoubleArray* qnts);
  int SwitchToSingleTank(double max, double res, double cur);
  int SwitchToMultiTank();
};

// --- Free functions -------------------------------------------------------

QSLAVE_API int SlaveReadCan(unsigned long dataId, long canId, int* hMin,
                            int* hMax, int* zeroFlag, int* noPunch,
                            int* prefFlag);
QSLAVE_API void SlaveSetEnvironmentFunc(void (*a)(), void (*b)());
QSLAVE_API void message(int reserved, char* fmt, ...);
QSLAVE_API int slave_test_level(double left, double reserve);
QSLAVE_API void bit_turnup(char* s, int n);
QSLAVE_API void bit_turndn(char* s, int n);
QSLAVE_API int bit_check(char* s, int n);
QSLAVE_API int CtInDspCompare_s(const void* a, const void* b);
QSLAVE_API int CtInDspCompare_dsp(const void* a, const void* b);
QSLAVE_API int _slv_OpenDatabases();
QSLAVE_API int _slv_CloseDatabases();
QSLAVE_API int _slv_dbhandles(Qdbase** disp, Qdbase** tank, Qdbase** cist);
QSLAVE_API int _slv_SelectDispenser(Qdbase* disp, long id);
QSLAVE_API long _slv_DefaultDispenser(Qdbase* disp);
QSLAVE_API int _slv_GetColorantCode(long dispId, int tank, char* code,
                                    int codeLen);

#endif
