// Dispense command strings ("/D" and its tank:quantity list) and the
// dispense operations that build, send and book them.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>
#include <optional>
#include <string>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_disp";

// The command text buffer shared by every slave object; the caller reads
// it before the next MakeCommandString.
char g_commandBuffer[SLV_CMD_BUFFER];

const int kStopperOption = 3;
const int kSplitOption = 7;
const int kMaxCircuitGroups = 300;

bool ValidEntry(const slave* s, int tank, double qnt) {
  return tank >= 1 && tank <= s->m_NumTanks && qnt > 0.0;
}

// Appends "(<tank>:<quantity>)", the quantity as "%.3lf" prints it:
// std::to_chars with a precision prints exactly what printf does, at a
// fraction of its cost. False when it does not fit the buffer of the stack.
bool AppendEntry(std::string* text, int tank, double qnt) {
  char entry[64];
  char* const end = entry + sizeof entry;
  char* p = entry;
  *p++ = '(';
  std::to_chars_result r = std::to_chars(p, end, tank);
  if (r.ec != std::errc() || r.ptr == end) return false;
  p = r.ptr;
  *p++ = ':';
  r = std::to_chars(p, end, qnt, std::chars_format::fixed, 3);
  if (r.ec != std::errc() || r.ptr == end) return false;
  p = r.ptr;
  *p++ = ')';
  text->append(entry, static_cast<size_t>(p - entry));
  return true;
}

void AppendEntries(const slave* s, std::string* text, int n, const int* tanks, const double* qnts) {
  for (int i = 0; i < n; ++i) {
    if (!ValidEntry(s, tanks[i], qnts[i])) continue;
    if (!AppendEntry(text, tanks[i], qnts[i])) {
      *text += SlvFormat("(%d:%.3lf)", tanks[i], qnts[i]);  // a quantity of many digits
    }
  }
}

// The text of a dispense command after "/D": section A, ";" and section B
// when a second list is given, and the factor when it is not 1. Empty when
// section A holds no valid entry.
std::string CommandText(const slave* s, int n, const int* tanks, const double* qnts, double f,
                        int m, const int* tanks2, const double* qnts2) {
  std::string text;
  if (s->m_DispId < 1 || n < 1 || tanks == nullptr || qnts == nullptr) return text;
  AppendEntries(s, &text, n, tanks, qnts);
  if (text.empty()) return text;
  if (m > 0) {
    text += ";";
    if (tanks2 != nullptr && qnts2 != nullptr) AppendEntries(s, &text, m, tanks2, qnts2);
  }
  if (f != 1.0) text += SlvFormat("%.3lf", f);
  return text;
}

// Sends "/G2" or "/G0" when the dispenser has the stopper and the caller's
// flag is exactly 1. It needs no memory: "/G0" goes out after a dispense
// whatever else failed.
void StopperCommand(slave* s, int flag, const char* command) {
  if (s->m_DispId != 0 && SlvOptionOn(s->m_Options, kStopperOption) && flag == 1) {
    char cmd[8];
    snprintf(cmd, sizeof cmd, "%s", command);
    s->sendcommand(cmd, nullptr, 0);
  }
}

// A dispense text that would not fit the command buffer is refused whole: a
// cut command would dispense another colour.
bool Fits(slave* s, size_t length, size_t room) {
  if (length < room) return true;
  TarvoTrace("\n%s(%d): dispense command of %zu characters refused: room for %zu", kSource,
             __LINE__, length, room - 1);
  s->m_LastError = SLV_ERR_GENERIC;
  return false;
}

// The one or two passes of a dispense of a tank list (DoSplittArrays) and
// the lists SendCommandString gets for them: list 1 alone; list 2, ";" and
// list 1; or, with no list 1, the caller's own list unsplit.
struct Passes {
  std::vector<int> tanks1, tanks2;
  std::vector<double> qnts1, qnts2;
  int count1 = 0, count2 = 0;
  int n = 0, m = 0;
  int* tanks = nullptr;
  double* qnts = nullptr;
  int* tanksB = nullptr;
  double* qntsB = nullptr;
};

void PlanPasses(slave* s, int n, int* tanks, double* qnts, double f, Passes* p) {
  // Room for twice the entries: a stored splitting percentage appends its
  // split after a full copy.
  const size_t room = 2 * static_cast<size_t>(n);
  p->tanks1.assign(room, 0);
  p->tanks2.assign(room, 0);
  p->qnts1.assign(room, 0.0);
  p->qnts2.assign(room, 0.0);
  s->DoSplittArrays(n, tanks, qnts, f, &p->count1, p->tanks1.data(), p->qnts1.data(), &p->count2,
                    p->tanks2.data(), p->qnts2.data());
  if (p->count1 >= 1 && p->count2 < 1) {
    p->n = p->count1;
    p->tanks = p->tanks1.data();
    p->qnts = p->qnts1.data();
  } else if (p->count1 >= 1) {
    p->n = p->count2;
    p->tanks = p->tanks2.data();
    p->qnts = p->qnts2.data();
    p->m = p->count1;
    p->tanksB = p->tanks1.data();
    p->qntsB = p->qnts1.data();
  } else {
    p->n = n;
    p->tanks = tanks;
    p->qnts = qnts;
  }
}

// The text of the command a dispense of this tank list sends (its passes
// planned as the list dispense plans them), or false when it cannot be
// built whole: checked before any level is booked, and sent as it is. A
// refusal is traced and leaves error 15.
bool DispenseCommand(slave* s, int n, int* tanks, double* qnts, double f, std::string* text) {
  Passes p;
  PlanPasses(s, n, tanks, qnts, f, &p);
  *text = CommandText(s, p.n, p.tanks, p.qnts, f, p.m, p.tanksB, p.qntsB);
  // The text must fit the buffer, and "/D" with it the command.
  return Fits(s, text->size(), SLV_CMD_BUFFER) && Fits(s, text->size() + 2, SLV_CMD_BUFFER);
}

// Sends a dispense command text (without its "/D"), which the shared
// command buffer holds: on acceptance the purge server is told and the text
// recorded as the last dosed formula. 0 when nothing was sent.
int SendDispenseText(slave* s, const char* text) {
  // "/D" and the text share one 512-byte command.
  if (text[0] == '\0' || !Fits(s, strlen(text) + 2, SLV_CMD_BUFFER)) return 0;
  char command[SLV_CMD_BUFFER];
  snprintf(command, sizeof command, "/D%s", text);
  const int result = s->sendcommand(command, nullptr, 0);
  if (result != 0) {
    s->UpdateDspPurgeServerAfterDispensing(command + 2);
    s->SetLastDosedFormula(command + 2);
  }
  return result;
}

}  // namespace

int slave::DoSplittArrays(int n, int* tanks, double* qnts, double f, int* count1, int* tanks1,
                          double* qnts1, int* count2, int* tanks2, double* qnts2) try {
  *count1 = 0;
  *count2 = 0;
  if (m_DispId == 0 || !SlvOptionOn(m_Options, kSplitOption)) {
    for (int i = 0; i < n; ++i) {
      tanks2[i] = tanks[i];
      qnts2[i] = qnts[i];
    }
    *count2 = n > 0 ? n : 0;
  } else {
    GetSplittingPerc();
    GetSplittingThreshold();
  }
  if (!(m_SplitPerc > 0.0) || n < 1) return 1;

  double total = 0.0;
  for (int i = 0; i < n; ++i) total += qnts[i] * f;
  int small = 0;
  for (int i = 0; i < n; ++i) {
    if (!(qnts[i] * f * 100.0 / total > m_SplitPerc)) ++small;
  }
  for (int i = 0; i < n; ++i) {
    const bool isSmall = !(qnts[i] * f * 100.0 / total > m_SplitPerc);
    if (small == 0 || (!isSmall && !(m_SplitThreshold >= 0.0 && qnts[i] * f * 0.5 > m_SplitThreshold))) {
      tanks2[*count2] = tanks[i];
      qnts2[(*count2)++] = qnts[i];
    } else if (isSmall) {
      tanks1[*count1] = tanks[i];
      qnts1[(*count1)++] = qnts[i];
    } else {
      // A large quantity is dosed in halves, one in each pass.
      tanks1[*count1] = tanks[i];
      qnts1[(*count1)++] = qnts[i] * 0.5;
      tanks2[*count2] = tanks[i];
      qnts2[(*count2)++] = qnts[i] * 0.5;
    }
  }
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

char* slave::MakeCommandString(int n, int* tanks, double* qnts, double f, int m, int* tanks2,
                               double* qnts2) try {
  memset(g_commandBuffer, 0, sizeof g_commandBuffer);
  const std::string text = CommandText(this, n, tanks, qnts, f, m, tanks2, qnts2);
  if (text.empty()) return g_commandBuffer;
  if (Fits(this, text.size(), sizeof g_commandBuffer)) {
    memcpy(g_commandBuffer, text.c_str(), text.size() + 1);
  }
  return g_commandBuffer;
} catch (...) {
  memset(g_commandBuffer, 0, sizeof g_commandBuffer);
  return SlvFailed(this, kSource, __LINE__, __func__, g_commandBuffer);
}

int slave::SendCommandString(int n, int* tanks, double* qnts, double f, int m, int* tanks2,
                             double* qnts2) try {
  if (m_DispId < 1) return 0;
  SetLastDosedFormula(nullptr);
  return SendDispenseText(this, MakeCommandString(n, tanks, qnts, f, m, tanks2, qnts2));
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::Dispense(char* frm, double f, double u, int w, int updLevels, int g2Before,
                    int g0After) try {
  SlvCallScope call(this);
  TarvoTrace("\nQslave::Dispense( Frm=[%s], f=%.4lf, u=%.4lf, w=%d)\n", frm != nullptr ? frm : "",
             f, u, w);
  m_LevelsNotBooked = 0;
  if (m_Dsp == nullptr) return 0;
  if (m_Dsp->GetType(0, 0) == 9) return DispenseByColorant(frm, f, u, w, updLevels);

  // With levels, the split and the booking are one: the tanks are chosen
  // by levels read under the lock of the tables, and those same records are
  // booked, each read from the file once. The lock is let go before the
  // command is sent.
  std::optional<SlvBooking> booking;
  std::optional<SlvSplitLevelsScope> splitLevels;
  if (updLevels) {
    booking.emplace();
    splitLevels.emplace(this);
  }
  Zu_LongArray ids;
  Zu_IntArray tankList;
  Zu_DoubleArray qntList;
  const int n = SplitFrmToTanks(frm, &ids, &tankList, &qntList, f, u, w, 0, nullptr);
  if (n < 1) return 0;
  std::vector<int> tanks(tankList.data(), tankList.data() + n);
  std::vector<double> qnts(qntList.data(), qntList.data() + n);

  // Every check that can refuse the command runs before any level is
  // booked: nothing is booked for a command that is never sent. The
  // command is built here once, as the list dispense of these tanks builds
  // it (the factors are in the quantities already: factor 1).
  std::string text;
  if (!DispenseCommand(this, n, tanks.data(), qnts.data(), 1.0, &text)) return 0;
  // Levels go down before the command is sent and stay down if the machine
  // refuses it.
  if (booking && !SlvBookLevels(this, &*booking, n, tanks.data(), qnts.data())) m_LevelsNotBooked = 1;
  splitLevels.reset();
  booking.reset();
  StopperCommand(this, g2Before, "/G2");
  SetLastDosedFormula(nullptr);
  memset(g_commandBuffer, 0, sizeof g_commandBuffer);
  memcpy(g_commandBuffer, text.c_str(), text.size() + 1);
  const int result = SendDispenseText(this, g_commandBuffer);
  StopperCommand(this, g0After, "/G0");
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::Dispense(int n, int* tanks, double* qnts, double f) try {
  if (m_DispId < 1) return 0;
  if (n >= 1 && (tanks == nullptr || qnts == nullptr)) return 0;
  // An empty list sends nothing; like every dispense command it clears the
  // last dosed formula on the way (SendCommandString).
  if (n < 1) return SendCommandString(0, nullptr, nullptr, f, 0, nullptr, nullptr);
  Passes p;
  PlanPasses(this, n, tanks, qnts, f, &p);
  return SendCommandString(p.n, p.tanks, p.qnts, f, p.m, p.tanksB, p.qntsB);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::DispenseByColorant(char* frm, double f, double u, int w, int) try {
  const int len = TranslateFormulaFromCntIdToCntCode(frm, nullptr, f, u, w);
  std::vector<char> codes(static_cast<size_t>(len > 0 ? len : 0) + 1, '\0');
  if (len > 0) TranslateFormulaFromCntIdToCntCode(frm, codes.data(), f, u, w);
  std::string command = SlvFormat("/D%s", codes.data());
  TarvoTrace("\nQslave::DispenseByColorant( Frm=[%s], FrmByCntCode=[%s], f=%.4lf, u=%.4lf, w=%d)\n",
             frm != nullptr ? frm : "", codes.data(), f, u, w);
  if (command.size() <= 2) return 0;
  return sendcommand(&command[0], nullptr, 0);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// Checks a by-tank text and cuts it into groups of pairsPerCmd components.
// Returns false (error 15) for a text the machine must not receive.
bool CircuitGroups(const std::string& field, int pairsPerCmd, std::vector<std::string>* groups) {
  int opened = 0, closed = 0, colons = 0, ended = 0;
  size_t start = 0;
  for (size_t i = 0; i < field.size(); ++i) {
    const char c = field[i];
    if (c == '(') ++opened;
    if (c == ':') ++colons;
    if (c != ')') continue;
    if (++closed != opened) return false;  // nesting or a stray bracket
    if (closed % pairsPerCmd != 0) continue;
    if (ended == kMaxCircuitGroups - 1) return false;
    ++ended;
    groups->push_back(field.substr(start, i + 1 - start));
    start = i + 1;
  }
  if (closed == 0 || opened != colons) return false;
  // The last component may be left open: it is sent as it stands.
  if (start < field.size()) groups->push_back(field.substr(start));
  return true;
}

}  // namespace

int slave::DispenseByCircuit(char* frm, int pairsPerCmd, int g2Before, int g0After) try {
  m_LevelsNotBooked = 0;
  if (frm == nullptr || frm[0] == '\0' || pairsPerCmd < 1) {
    m_LastError = SLV_ERR_GENERIC;
    return 0;
  }
  // Only the first "|"-separated field is dispensed; the text is cut there.
  char* bar = strchr(frm, '|');
  if (bar != nullptr) *bar = '\0';
  std::vector<std::string> groups;
  if (frm[0] == '\0' || !CircuitGroups(frm, pairsPerCmd, &groups)) {
    m_LastError = SLV_ERR_GENERIC;
    return 0;
  }

  // Every command is made before the first goes out: once "/G2" is sent
  // nothing needs memory of its own until "/G0" is.
  const bool byPosition = m_Dsp != nullptr && m_Dsp->GetType(0, 0) == 9;
  const char* prefix = !byPosition ? "/D" : m_PurgeSrvFlag ? "/D(PURGEBYPOS)" : "/D(DISPBYPOS)";
  std::vector<std::string> commands;
  commands.reserve(groups.size());
  for (const std::string& group : groups) commands.push_back(prefix + group);
  // A group that does not fit the command buffer refuses the whole call
  // before "/G2": nothing is sent or booked for a dispense that cannot go
  // out whole.
  for (const std::string& command : commands) {
    if (!Fits(this, command.size(), SLV_CMD_BUFFER)) return 0;
  }

  StopperCommand(this, g2Before, "/G2");
  int result = 0;
  for (size_t i = 0; i < groups.size(); ++i) {
    std::string& group = groups[i];
    if (!byPosition && UpdateLevelsByFormula(&group[0]) != 1) m_LevelsNotBooked = 1;
    result = sendcommand(&commands[i][0], nullptr, 0);
    if (result != 0) {
      UpdateDspPurgeServerAfterDispensing(&group[0]);
      SetLastDosedFormula(&group[0]);
    }
  }
  StopperCommand(this, g0After, "/G0");
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::DispDrv(char* frm, char* out, int outLen, double f, double u, int w, int updLevels,
                   int style) try {
  SlvCallScope call(this);
  m_LevelsNotBooked = 0;
  if (out == nullptr || outLen <= 0) return 0;
  std::optional<SlvBooking> booking;
  std::optional<SlvSplitLevelsScope> splitLevels;
  if (updLevels) {
    booking.emplace();
    splitLevels.emplace(this);
  }
  Zu_IntArray tankList;
  Zu_DoubleArray qntList;
  const int n = SplitFrmToTanks(frm, nullptr, &tankList, &qntList, f, u, w, 0, nullptr);
  if (n < 1) return 0;

  std::vector<int> tanks(tankList.data(), tankList.data() + n);
  std::vector<double> qnts(qntList.data(), qntList.data() + n);
  std::string text = style == 1 ? "" : "\"";
  for (int i = 0; i < n; ++i) {
    if (tanks[i] < 1 || tanks[i] > m_NumTanks) {
      qnts[i] = 0.0;  // books nothing either
      continue;
    }
    if (!(qnts[i] > 0.0)) continue;
    text += style == 1 ? SlvFormat("(%d:%.3lf)", tanks[i], qnts[i])
                       : SlvFormat("%d,%.3lf,", tanks[i], qnts[i]);
  }
  if (text.size() <= 1) return 0;
  if (style != 1) text.back() = '"';
  // The caller's buffer holds outLen + 1 bytes; a longer text is refused,
  // before any level is booked.
  if (text.size() > static_cast<size_t>(outLen)) {
    TarvoTrace("\n%s(%d): DispDrv text of %zu characters refused: room for %d", kSource, __LINE__,
               text.size(), outLen);
    m_LastError = SLV_ERR_GENERIC;
    return 0;
  }
  if (booking && !SlvBookLevels(this, &*booking, n, tanks.data(), qnts.data())) m_LevelsNotBooked = 1;
  memcpy(out, text.c_str(), text.size());
  out[text.size()] = '\0';
  out[outLen] = '\0';
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
