// Machine status: the predicates on the status word, the door, the model
// and serial number, circuit status and single dispensing steps.
#include <stdio.h>
#include <string.h>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_stat";

// The status bits, with the fixed answers in simulation and for a missing
// answer (-1). The asymmetry is deliberate: without an answer the machine
// counts as busy, but not as busy with an automatic process.
struct StatusBit {
  int mask;
  int whenSimulated;
  int whenNoAnswer;
};

const StatusBit kStopPressed = {1, 0, 0};
const StatusBit kStartReleased = {2, 1, 1};
const StatusBit kErrorQueueEmpty = {4, 1, 1};
const StatusBit kErrorQueueOverflow = {8, 0, 0};
const StatusBit kBusy = {16, 0, 1};
const StatusBit kBusyForAutomaticProcess = {32, 0, 0};
const StatusBit kCanPresent = {64, 1, 0};
const StatusBit kEmergencyPressed = {256, 0, 0};
const StatusBit kBusyForNozzleWash = {512, 0, 0};
const int kDoorClosedMask = 128;
const int kDoorSwitchOption = 4;

int TestBit(const StatusBit& bit, int status) {
  if (slave::debug) return bit.whenSimulated;
  if (status == -1) return bit.whenNoAnswer;
  return (status & bit.mask) != 0 ? 1 : 0;
}

// The texts GetMachineModelAndSerialNo and GetK240CircuitsStatus answer:
// each call overwrites its buffer.
const int kAnswerBuffer = 81;
char g_modelBuffer[kAnswerBuffer];
char g_circuitBuffer[kAnswerBuffer];

// Copies the driver's answer to the last command into an 81-byte static
// buffer: a bounded copy of its leading part, always terminated (the
// buffer is handed to the host as a text).
char* AnswerInto(slave* s, char* buffer, int size, int result) {
  buffer[0] = '\0';
  if (result != 0 || s->m_Dsp == nullptr) return buffer;
  const char* text = s->m_Dsp->GetAnswer(s->m_DispId);
  if (text == nullptr) return buffer;
  snprintf(buffer, static_cast<size_t>(size), "%s", text);
  return buffer;
}

}  // namespace

int slave::IsStopPressed(int status) { return TestBit(kStopPressed, status); }
int slave::IsStartReleased(int status) { return TestBit(kStartReleased, status); }
int slave::IsErrorQueueEmpty(int status) { return TestBit(kErrorQueueEmpty, status); }
int slave::IsErrorQueueOverflow(int status) { return TestBit(kErrorQueueOverflow, status); }
int slave::IsBusy(int status) { return TestBit(kBusy, status); }
int slave::IsBusyForAutomaticProcess(int status) { return TestBit(kBusyForAutomaticProcess, status); }
int slave::IsCanPresent(int status) { return TestBit(kCanPresent, status); }
int slave::IsEmergencyPressed(int status) { return TestBit(kEmergencyPressed, status); }

int slave::IsBusyForNozzleWash(int status) try {
  const int result = TestBit(kBusyForNozzleWash, status);
  if (!debug) {
    TarvoTrace("\n%s(%d):IsBusyForNozzleWash() called ... code=%d status=%d", kSource, __LINE__,
               result, status);
  }
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::IsDoorClosed(int status) try {
  // Without a door switch the door counts as closed.
  if (debug || m_DispId == 0 || !SlvOptionOn(m_Options, kDoorSwitchOption)) return 1;
  if (status == -1) return 0;
  return (status & kDoorClosedMask) != 0 ? 1 : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::IsDoorClosed() try {
  if (debug || m_DispId == 0 || !SlvOptionOn(m_Options, kDoorSwitchOption)) return 1;
  char cmd[] = "/!";
  const int status = sendcommand(cmd, nullptr, 0);
  if (status == -1) return 0;
  return (status & kDoorClosedMask) != 0 ? 1 : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SetMachineModelAndSerialNo(char* text) try {
  if (text == nullptr) return 0;
  std::string cmd = SlvFormat("/M0(%s)", text);
  return sendcommand(&cmd[0], nullptr, 0);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

char* slave::GetMachineModelAndSerialNo() try {
  char* buffer = g_modelBuffer;
  char cmd[] = "/M1";
  const int result = sendcommand(cmd, nullptr, 0);
  if (result != -1) return AnswerInto(this, buffer, kAnswerBuffer, result);
  // Without an answer the record's serial number stands in.
  snprintf(buffer, kAnswerBuffer, "%s", m_SerialNo);
  return buffer;
} catch (...) {
  g_modelBuffer[0] = '\0';
  return SlvFailed(this, kSource, __LINE__, __func__, g_modelBuffer);
}

char* slave::GetK240CircuitsStatus(int circuit) try {
  char* buffer = g_circuitBuffer;
  char cmd[32];
  snprintf(cmd, sizeof cmd, "/KS(%d)", circuit);
  const int result = sendcommand(cmd, nullptr, 0);
  return AnswerInto(this, buffer, kAnswerBuffer, result);
} catch (...) {
  g_circuitBuffer[0] = '\0';
  return SlvFailed(this, kSource, __LINE__, __func__, g_circuitBuffer);
}

int slave::DispenseStep(int a, int b, int c) try {
  if (m_Dsp == nullptr) return 0;
  // The driver takes the second and third numbers the other way round.
  return m_Dsp->DispenseStep(m_DispId, a, c, b, 0);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
