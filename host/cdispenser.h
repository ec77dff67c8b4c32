// CDispenser: the host's driver of one kind of colourant dispenser.
//
// Host library: libcdispenser.so. The library creates one driver per
// selected dispenser with CDispenser_CreateNew(type, variant), the type and
// variant following from the dispenser's model, and talks to the machine
// only through the operations below. They are virtual and keep this
// relative slot order; a driver of the host's may add operations of its own
// after them.
//
// Unless stated, the first argument is the dispenser id the command is for.
// Result codes of commands: 0 success, 1..15 the machine's error codes, -1
// no answer (communication failure), anything else a driver's own code.
#ifndef QSLAVE_HOST_CDISPENSER_H
#define QSLAVE_HOST_CDISPENSER_H

#include <wchar.h>

class CDispenser {
 public:
  virtual ~CDispenser() {}

  // 1. The type given to CDispenser_CreateNew. Both arguments are ignored.
  virtual int GetType(int a, int b) = 0;
  // 2. Ends the session with the machine. Returns 0 on success.
  virtual int Quit(int mode) = 0;
  // 3. Sends a command text and waits for the machine's result code. For a
  //    query the code is the machine's raw answer (the status word for "/!").
  virtual int SendCommand(long id, const char* cmd) = 0;
  // 4. Firmware generation: 1 old, 2 newer families; other values are
  //    errors.
  virtual int GetFirmwareVersion(long id) = 0;
  // 5. The text the machine answered to the last command; never null (""
  //    when there was none). Valid until the next command.
  virtual const char* GetAnswer(long id) = 0;
  // 6. Sends a command on the driver's own thread and waits for its code.
  virtual int SendCommandThread(long id, const char* cmd) = 0;
  // 7. The machine's last error code; negative when there is none.
  virtual int GetLastError(long id) = 0;
  // 8. Clears the driver's error state after a failed command.
  virtual void ResetError(long id) = 0;
  // 9-12. The machine's error queue. First/Next copy the text of an entry
  //    (wide characters, textLen of them, terminator included) and its code
  //    (codeLen bytes, terminator included) and return 1, or 0 when there
  //    is no (further) entry. Clear empties it and returns 1. Count answers
  //    the number of entries.
  virtual int ErrorQueueFirst(long id, wchar_t* text, int textLen, int reserved,
                              char* code, int codeLen) = 0;
  virtual int ErrorQueueNext(long id, wchar_t* text, int textLen, int reserved,
                             char* code, int codeLen) = 0;
  virtual int ErrorQueueClear(long id) = 0;
  virtual int ErrorQueueCount(long id) = 0;
  // 13. Serial line: port, baud rate, parity letter, two line parameters and
  //    the answer time-out in seconds. No dispenser id.
  virtual void SetCommunication(int port, int baud, char parity, int param1,
                                int param2, float timeout) = 0;
  // 14. Moves the machine to the filling position of a tank. 0 when done.
  virtual int MoveToFill(long id, int tank) = 0;
  // 15. Purges count circuits by qty each, by the driver's own means.
  //    -1: this driver cannot purge by itself (nothing was done); 0: done;
  //    other: the machine's error code. count 0 with null circuits only
  //    asks whether the driver can purge. No dispenser id.
  virtual int PurgeCircuits(int count, int* circuits, double qty) = 0;
  // 16. One step of a dispense driven from outside; the three numbers are
  //    the driver's. The last argument is reserved (0).
  virtual int DispenseStep(long id, long a, long b, long c, int reserved) = 0;
  // 17. Number of circuits whose levels the driver keeps (types that keep
  //    levels of their own). Only *count is written; the three leading
  //    arguments are reserved (0).
  virtual void GetCircuitLevelsCount(int r1, int r2, int r3, long* count) = 0;
  // 18. Sets the driver's own levels of count circuits. No dispenser id.
  virtual void SetLevels(int count, int* circuits, double* levels) = 0;
  // 19. Copies the driver's own levels (current, maximum, reserve) of every
  //    circuit, in circuit order, into arrays of GetCircuitLevelsCount
  //    entries. Null arrays are skipped. The last argument is reserved (0).
  virtual void GetCircuitLevels(double* cur, double* max, double* res,
                                int reserved) = 0;
  // 20. Tells the machine the new levels of count circuits.
  virtual void SetDispenserLevels(long id, int count, int* circuits,
                                  double* levels) = 0;
  // 21. Levels the machine reports per tank: returns the number of rows; when
  //    the arrays are given (each with room for that many rows) fills the
  //    tank field number, current, maximum and reserve of each row. With
  //    null arrays it only counts. The last argument is reserved (0).
  virtual int GetTankLevels(long id, long* field, double* cur, double* max,
                            double* res, int reserved) = 0;
  // 22. Number of circuits of the machine (type 9).
  virtual int GetCircuitCount(long id) = 0;
  // 23-25. Canister data of type 9 machines, canisters counted from 0: the
  //    canister's field number and two flags. No dispenser id.
  virtual int GetCanisterField(int canister) = 0;
  virtual int GetCanisterFlagA(int canister) = 0;
  virtual int GetCanisterFlagB(int canister) = 0;
  // 26. Level verdict of a formula in colourant codes, "(CODE:qty)"...: 2
  //    enough with margin, 1 enough, 0 not enough. No dispenser id.
  virtual int CheckFormulaLevel(const char* formula) = 0;
  // 27. Remaining quantities of an interrupted dispense (type 9). The
  //    meaning of the five arguments is the driver's.
  virtual int FormulaRemainingRequest(int a, char* b, int c, char* d,
                                      int e) = 0;
  // 28. Whether the colourant of a one-component formula in colourant codes
  //    is dosed by weight on this machine. No dispenser id.
  virtual bool IsGravimetricCnt(const char* formula) = 0;
};

extern "C" {
// A new driver for a dispenser of the given type and variant, or null when
// the host has none for it. Released with CDispenser_Delete.
CDispenser* CDispenser_CreateNew(int type, int variant);
// Destroys a driver made by CDispenser_CreateNew (null is allowed). The int
// is reserved (0).
void CDispenser_Delete(CDispenser* dsp, int reserved);
}

#endif
