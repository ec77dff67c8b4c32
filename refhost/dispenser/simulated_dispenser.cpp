// The simulated dispenser: scripting, the record of calls, and the command
// and action operations. Levels and the error queue have files of their
// own.
#include "simulated_dispenser.h"

#include <chrono>
#include <cstdlib>
#include <thread>

#include "sim_calls.h"
#include "sim_commands.h"
#include "sim_rules.h"
#include "sim_state.h"

using qsim::CallText;

SimulatedDispenser::SimulatedDispenser(int type, int variant)
    : state_(new State) {
  state_->type = type;
  state_->variant = variant;
  const char* rules = std::getenv("QSLAVE_SIM");
  if (rules != nullptr && *rules != '\0') LoadRules(rules);
}

SimulatedDispenser::~SimulatedDispenser() { delete state_; }

SimulatedDispenser* SimulatedDispenser::From(CDispenser* dsp) {
  return dynamic_cast<SimulatedDispenser*>(dsp);
}

// --- Scripting -------------------------------------------------------------

int SimulatedDispenser::LoadRules(const char* path) {
  return qsim::LoadRulesFile(*state_, path);
}

void SimulatedDispenser::AddRule(const std::string& pattern, int result,
                                 const std::string& answer) {
  state_->rules.push_back(qsim::Rule{pattern, result, answer});
}

void SimulatedDispenser::ClearRules() { state_->rules.clear(); }

bool SimulatedDispenser::SetSetting(const std::string& name,
                                    const std::string& value) {
  return qsim::ApplySetting(*state_, name, value).empty();
}

const std::vector<std::string>& SimulatedDispenser::Commands() const {
  return state_->commands;
}

const std::vector<std::string>& SimulatedDispenser::Calls() const {
  return state_->calls;
}

void SimulatedDispenser::ClearHistory() {
  state_->commands.clear();
  state_->calls.clear();
}

// --- Commands ----------------------------------------------------------------

namespace {

// A failed action becomes the machine's last error; queries and negative
// codes (no answer at all) leave it alone.
void NoteFailure(qsim::Machine& m, int result) {
  if (result > 0) m.last_error = result;
}

// Sends cmd to the simulated machine: the first matching rule answers,
// otherwise the idle machine does.
int Exchange(qsim::Machine& m, const char* cmd) {
  std::string text = cmd != nullptr ? cmd : "";
  m.commands.push_back(text);
  if (m.settings.delay_ms > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(m.settings.delay_ms));
  }
  int result = 0;
  if (const qsim::Rule* rule = qsim::FindRule(m.rules, text)) {
    result = rule->result;
    m.answer = rule->answer;
  } else {
    result = qsim::BuiltinAnswer(m, text, &m.answer);
  }
  if (!qsim::IsQuery(text)) NoteFailure(m, result);
  return result;
}

}  // namespace

int SimulatedDispenser::GetType(int, int) { return state_->type; }

int SimulatedDispenser::Quit(int mode) {
  state_->calls.push_back(CallText("Quit").Int(mode).Done());
  NoteFailure(*state_, state_->settings.quit);
  return state_->settings.quit;
}

int SimulatedDispenser::SendCommand(long id, const char* cmd) {
  state_->calls.push_back(CallText("SendCommand").Int(id).Text(cmd).Done());
  return Exchange(*state_, cmd);
}

int SimulatedDispenser::SendCommandThread(long id, const char* cmd) {
  state_->calls.push_back(
      CallText("SendCommandThread").Int(id).Text(cmd).Done());
  return Exchange(*state_, cmd);
}

const char* SimulatedDispenser::GetAnswer(long) {
  return state_->answer.c_str();
}

int SimulatedDispenser::GetFirmwareVersion(long id) {
  state_->calls.push_back(CallText("GetFirmwareVersion").Int(id).Done());
  return state_->settings.firmware;
}

int SimulatedDispenser::GetLastError(long id) {
  state_->calls.push_back(CallText("GetLastError").Int(id).Done());
  return state_->last_error;
}

void SimulatedDispenser::ResetError(long id) {
  state_->calls.push_back(CallText("ResetError").Int(id).Done());
  state_->last_error = -1;
}

// --- Actions -----------------------------------------------------------------

void SimulatedDispenser::SetCommunication(int port, int baud, char parity,
                                          int param1, int param2,
                                          float timeout) {
  state_->calls.push_back(CallText("SetCommunication")
                              .Int(port)
                              .Int(baud)
                              .Char(parity)
                              .Int(param1)
                              .Int(param2)
                              .Real(timeout)
                              .Done());
}

int SimulatedDispenser::MoveToFill(long id, int tank) {
  state_->calls.push_back(CallText("MoveToFill").Int(id).Int(tank).Done());
  NoteFailure(*state_, state_->settings.movetofill);
  return state_->settings.movetofill;
}

int SimulatedDispenser::PurgeCircuits(int count, int* circuits, double qty) {
  // Levels are the library's business: the simulator only records.
  state_->calls.push_back(CallText("PurgeCircuits")
                              .Int(count)
                              .Ints(circuits, count)
                              .Real(qty)
                              .Done());
  NoteFailure(*state_, state_->settings.purge);
  return state_->settings.purge;
}

int SimulatedDispenser::DispenseStep(long id, long a, long b, long c,
                                     int reserved) {
  state_->calls.push_back(CallText("DispenseStep")
                              .Int(id)
                              .Int(a)
                              .Int(b)
                              .Int(c)
                              .Int(reserved)
                              .Done());
  NoteFailure(*state_, state_->settings.step);
  return state_->settings.step;
}

// --- Formula questions -------------------------------------------------------

int SimulatedDispenser::CheckFormulaLevel(const char* formula) {
  state_->calls.push_back(CallText("CheckFormulaLevel").Text(formula).Done());
  return state_->settings.formula_level;
}

int SimulatedDispenser::FormulaRemainingRequest(int a, char*, int c, char*,
                                                int e) {
  // The two buffers are the caller's; their contents are not read.
  state_->calls.push_back(CallText("FormulaRemainingRequest")
                              .Int(a)
                              .Unread()
                              .Int(c)
                              .Unread()
                              .Int(e)
                              .Done());
  return state_->settings.remaining;
}

bool SimulatedDispenser::IsGravimetricCnt(const char* formula) {
  state_->calls.push_back(CallText("IsGravimetricCnt").Text(formula).Done());
  return state_->settings.gravimetric;
}
