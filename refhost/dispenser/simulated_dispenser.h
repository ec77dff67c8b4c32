// The reference host's simulated dispenser: what CDispenser_CreateNew
// returns for every type. It behaves as a healthy idle machine; faults and
// special answers come from a rules file (QSLAVE_SIM) or from the calls
// below, which tests and tools use to script it and to see what it was
// asked.
#ifndef QSLAVE_REFHOST_SIMULATED_DISPENSER_H
#define QSLAVE_REFHOST_SIMULATED_DISPENSER_H

#include <string>
#include <vector>

#include "host/cdispenser.h"

class SimulatedDispenser : public CDispenser {
 public:
  // The status word of a healthy idle machine: start released (2), error
  // queue empty (4), can present (64), door closed (128).
  static constexpr int kIdleStatus = 2 | 4 | 64 | 128;

  SimulatedDispenser(int type, int variant);
  ~SimulatedDispenser() override;

  // The simulator behind a driver the library holds; null when the driver
  // is not a simulator.
  static SimulatedDispenser* From(CDispenser* dsp);

  // --- Scripting ---------------------------------------------------------
  // Reads a rules file (format in refhost/dispenser/README.md). Malformed
  // lines are traced with their line number and ignored. Returns the number
  // of malformed lines, or -1 when the file cannot be read.
  int LoadRules(const char* path);
  // One rule, tried after the rules already present: a command whose whole
  // text matches the shell glob pattern gets result and answer.
  void AddRule(const std::string& pattern, int result,
               const std::string& answer = "");
  void ClearRules();
  // A setting, as a "set NAME VALUE" line of the rules file. Returns false
  // for an unknown name or a value that does not parse.
  bool SetSetting(const std::string& name, const std::string& value);

  // Levels the simulator keeps per circuit (1-based), used by type 7
  // (GetCircuitLevels, SetLevels) and, once any is set, by GetTankLevels.
  void SetCircuitLevel(int circuit, double cur, double max, double res);
  bool CircuitLevel(int circuit, double* cur, double* max, double* res) const;

  // --- What it was asked --------------------------------------------------
  // Every command text received by SendCommand and SendCommandThread, in
  // order.
  const std::vector<std::string>& Commands() const;
  // Every driver operation called other than GetType and GetAnswer, in
  // order, written as NAME(ARG,ARG,...) (see the README for each form).
  const std::vector<std::string>& Calls() const;
  void ClearHistory();

  // --- CDispenser ----------------------------------------------------------
  int GetType(int a, int b) override;
  int Quit(int mode) override;
  int SendCommand(long id, const char* cmd) override;
  int GetFirmwareVersion(long id) override;
  const char* GetAnswer(long id) override;
  int SendCommandThread(long id, const char* cmd) override;
  int GetLastError(long id) override;
  void ResetError(long id) override;
  int ErrorQueueFirst(long id, wchar_t* text, int textLen, int reserved,
                      char* code, int codeLen) override;
  int ErrorQueueNext(long id, wchar_t* text, int textLen, int reserved,
                     char* code, int codeLen) override;
  int ErrorQueueClear(long id) override;
  int ErrorQueueCount(long id) override;
  void SetCommunication(int port, int baud, char parity, int param1,
                        int param2, float timeout) override;
  int MoveToFill(long id, int tank) override;
  int PurgeCircuits(int count, int* circuits, double qty) override;
  int DispenseStep(long id, long a, long b, long c, int reserved) override;
  void GetCircuitLevelsCount(int r1, int r2, int r3, long* count) override;
  void SetLevels(int count, int* circuits, double* levels) override;
  void GetCircuitLevels(double* cur, double* max, double* res,
                        int reserved) override;
  void SetDispenserLevels(long id, int count, int* circuits,
                          double* levels) override;
  int GetTankLevels(long id, long* field, double* cur, double* max,
                    double* res, int reserved) override;
  int GetCircuitCount(long id) override;
  int GetCanisterField(int canister) override;
  int GetCanisterFlagA(int canister) override;
  int GetCanisterFlagB(int canister) override;
  int CheckFormulaLevel(const char* formula) override;
  int FormulaRemainingRequest(int a, char* b, int c, char* d, int e) override;
  bool IsGravimetricCnt(const char* formula) override;

 private:
  struct State;
  State* state_;
};

#endif
