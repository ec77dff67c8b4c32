// Dispensed-quantity reports: parsing the machine's reply groups
// (circuit:requested:dispensed), the per-colourant summaries of what
// remains, what was dispensed and what was asked, the hand-over to type-9
// drivers, and the report of a circuit list asked of the machine.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "circuit_env.h"

namespace {

using qtest::Circuit;
using qtest::CountMatching;
using qtest::FixedText;
using qtest::OptionsWith;
using qtest::Sim;
using qtest::SourceRe;

using Strings = std::vector<std::string>;

class DispensedReports : public qtest::CircuitEnv {
 protected:
  // Circuit 3 holds colourant 12, circuit 4 colourant 12 as well, circuit 7
  // colourant 15, circuit 5 colourant 9.
  void SetUpDispenser(const std::string& hide_id = "ZARVO") {
    AddDispenser(hide_id);
    AddTanks({Circuit(3, 12, 100.0), Circuit(4, 12, 100.0), Circuit(5, 9, 100.0),
              Circuit(7, 15, 100.0), Circuit(8, 20, 100.0)});
  }

  // Trace lines of the reports source with its name and line number.
  int ReportTraceLines() {
    return CountMatching(trace_.messages(), "\\n" + SourceRe("slv_rep") + " ?\\(\\d+\\).*");
  }

  // FormulaRequest into a buffer that starts with prefix; returns the text.
  std::string Summary(slave& s, const char* reply, int mode, const std::string& prefix = "",
                      int* result = nullptr) {
    std::vector<char> out(1024, '\0');
    memcpy(out.data(), prefix.c_str(), prefix.size() + 1);
    std::vector<char> copy(reply, reply + strlen(reply) + 1);
    const int r = s.FormulaRequest(copy.data(), out.data(), 1000, mode);
    if (result != nullptr) *result = r;
    return out.data();
  }

  static std::string Repeat(const std::string& piece, int n) {
    std::string text;
    for (int i = 0; i < n; ++i) text += piece;
    return text;
  }
};

// --- ParseDispensedRequest ---------------------------------------------------

TEST_F(DispensedReports, ParseReadsEveryGroup) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10.000:10.000)(7:5.000:2.125)";
  int circuits[4] = {-1, -1, -1, -1};
  double requested[4] = {-1, -1, -1, -1};
  double dispensed[4] = {-1, -1, -1, -1};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, requested, dispensed), 2);
  EXPECT_EQ(circuits[0], 3);
  EXPECT_EQ(circuits[1], 7);
  EXPECT_DOUBLE_EQ(requested[0], 10.0);
  EXPECT_DOUBLE_EQ(requested[1], 5.0);
  EXPECT_DOUBLE_EQ(dispensed[0], 10.0);
  EXPECT_DOUBLE_EQ(dispensed[1], 2.125);
  EXPECT_EQ(circuits[2], -1);
}

TEST_F(DispensedReports, ParseWithoutArraysOnlyCounts) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:2.125)(4:1:0)";
  EXPECT_EQ(s.ParseDispensedRequest(reply, nullptr, nullptr, nullptr), 3);
}

TEST_F(DispensedReports, ParseStoresOnlyTheArraysGiven) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:2.125)";
  double dispensed[2] = {-1, -1};
  EXPECT_EQ(s.ParseDispensedRequest(reply, nullptr, nullptr, dispensed), 2);
  EXPECT_DOUBLE_EQ(dispensed[0], 10.0);
  EXPECT_DOUBLE_EQ(dispensed[1], 2.125);
}

TEST_F(DispensedReports, ParseAllowsBlanksAndLineEndsBetweenGroups) {
  SetUpDispenser();
  slave s(1);
  char reply[] = " (3:10:10) \n(7:5:2.125)\n";
  int circuits[2] = {0, 0};
  double dispensed[2] = {0, 0};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, nullptr, dispensed), 2);
  EXPECT_EQ(circuits[1], 7);
  EXPECT_DOUBLE_EQ(dispensed[1], 2.125);
}

TEST_F(DispensedReports, ParseWithoutDispenserIsMinusOne) {
  SetUpDispenser();
  slave s(99);
  ASSERT_LT(s.m_DispId, 1);
  char reply[] = "(3:10:10)";
  EXPECT_EQ(s.ParseDispensedRequest(reply, nullptr, nullptr, nullptr), -1);
}

TEST_F(DispensedReports, ParseOfNullReplyIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  EXPECT_EQ(s.ParseDispensedRequest(nullptr, nullptr, nullptr, nullptr), -1);
}

TEST_F(DispensedReports, ParseOfEmptyReplyIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "";
  EXPECT_EQ(s.ParseDispensedRequest(reply, nullptr, nullptr, nullptr), -1);
}

TEST_F(DispensedReports, ParseOfOneColonPerGroupIsOneWithoutStoring) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10)";
  int circuits[1] = {-7};
  double requested[1] = {-7.0};
  double dispensed[1] = {-7.0};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, requested, dispensed), 1);
  EXPECT_EQ(circuits[0], -7);
  EXPECT_DOUBLE_EQ(requested[0], -7.0);
  EXPECT_DOUBLE_EQ(dispensed[0], -7.0);
}

TEST_F(DispensedReports, ParseOfTooFewColonsInOneOfTwoGroupsIsOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5)";
  int circuits[2] = {-7, -7};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, nullptr, nullptr), 1);
  EXPECT_EQ(circuits[0], -7);
}

TEST_F(DispensedReports, ParseOfUnclosedBracketIsOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:2.125";
  int circuits[2] = {-7, -7};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, nullptr, nullptr), 1);
  EXPECT_EQ(circuits[0], -7);
}

TEST_F(DispensedReports, ParseOfExtraClosingBracketIsOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10))";
  int circuits[1] = {-7};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, nullptr, nullptr), 1);
  EXPECT_EQ(circuits[0], -7);
}

TEST_F(DispensedReports, ParseOfBlanksOnlyIsZeroGroups) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "   \n  ";
  EXPECT_EQ(s.ParseDispensedRequest(reply, nullptr, nullptr, nullptr), 0);
}

TEST_F(DispensedReports, ParseOfGroupMissingItsDispensedNumberIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:)";
  int circuits[2] = {-7, -7};
  double dispensed[2] = {-7.0, -7.0};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, nullptr, dispensed), -1);
  // The complete group before it stays stored.
  EXPECT_EQ(circuits[0], 3);
  EXPECT_DOUBLE_EQ(dispensed[0], 10.0);
}

TEST_F(DispensedReports, ParseOfGroupMissingItsRequestedNumberIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3::10)";
  EXPECT_EQ(s.ParseDispensedRequest(reply, nullptr, nullptr, nullptr), -1);
}

TEST_F(DispensedReports, ParseReadsNegativeAndHugeQuantitiesAsWritten) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:-10.000:1e300)(7:5:-2.5)";
  int circuits[2] = {0, 0};
  double requested[2] = {0, 0};
  double dispensed[2] = {0, 0};
  EXPECT_EQ(s.ParseDispensedRequest(reply, circuits, requested, dispensed), 2);
  EXPECT_DOUBLE_EQ(requested[0], -10.0);
  EXPECT_DOUBLE_EQ(dispensed[0], 1e300);
  EXPECT_DOUBLE_EQ(requested[1], 5.0);
  EXPECT_DOUBLE_EQ(dispensed[1], -2.5);
}

TEST_F(DispensedReports, ParseReadsAReplyThatFillsTheWorkBuffer) {
  SetUpDispenser();
  slave s(1);
  // 34 groups of 15 characters and one blank: 511 characters.
  std::string reply = Repeat("(3:1.000:1.000)", 34) + " ";
  ASSERT_EQ(reply.size(), 511u);
  EXPECT_EQ(s.ParseDispensedRequest(&reply[0], nullptr, nullptr, nullptr), 34);
  EXPECT_EQ(ReportTraceLines(), 0);
}

// 34 groups of 15 characters followed by 60 blanks: 570 characters. Only
// the groups matter; the blanks after them lose nothing.
TEST_F(DispensedReports, ParseReadsGroupsFollowedByBlanksPastTheWorkBuffer) {
  SetUpDispenser();
  slave s(1);
  std::string reply = Repeat("(5:1.000:1.000)", 34) + std::string(60, ' ');
  ASSERT_EQ(reply.size(), 570u);
  int circuits[40] = {0};
  double requested[40] = {0};
  double dispensed[40] = {0};
  EXPECT_EQ(s.ParseDispensedRequest(&reply[0], circuits, requested, dispensed), 34);
  EXPECT_EQ(circuits[0], 5);
  EXPECT_EQ(circuits[33], 5);
  EXPECT_DOUBLE_EQ(requested[33], 1.0);
  EXPECT_DOUBLE_EQ(dispensed[33], 1.0);
  EXPECT_EQ(circuits[34], 0);
  EXPECT_EQ(ReportTraceLines(), 0);
}

// More groups than 511 characters hold: the reply is read whole, none of
// its groups is lost.
TEST_F(DispensedReports, ParseReadsAReplyOfMoreGroupsThanTheWorkBufferHolds) {
  SetUpDispenser();
  slave s(1);
  std::string reply = Repeat("(3:1.000:1.000)", 40) + "(7:5.000:2.125)";
  ASSERT_EQ(reply.size(), 615u);
  int circuits[48] = {0};
  double dispensed[48] = {0};
  EXPECT_EQ(s.ParseDispensedRequest(&reply[0], circuits, nullptr, dispensed), 41);
  EXPECT_EQ(circuits[39], 3);
  EXPECT_EQ(circuits[40], 7);
  EXPECT_DOUBLE_EQ(dispensed[40], 2.125);
  EXPECT_EQ(ReportTraceLines(), 0);
}

// --- FormulaRequest: the three summaries --------------------------------------

TEST_F(DispensedReports, RemainingSummaryOfAnInterruptedDispense) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)(7:5:2.125)", 0, "", &r), "12,0.000000,15,2.875000,");
  EXPECT_EQ(r, 1);
}

TEST_F(DispensedReports, DispensedSummaryOfAnInterruptedDispense) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)(7:5:2.125)", 1, "", &r), "12,10.000000,15,2.125000,");
  EXPECT_EQ(r, 1);
}

TEST_F(DispensedReports, TotalOriginalSummaryOfAnInterruptedDispense) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)(7:5:2.125)", 2, "", &r), "12,10.000000,15,5.000000,");
  EXPECT_EQ(r, 1);
}

TEST_F(DispensedReports, SummaryIsAppendedToWhatTheBufferHolds) {
  SetUpDispenser();
  slave s(1);
  EXPECT_EQ(Summary(s, "(3:10:10)(7:5:2.125)", 0, "9,1.000000,"),
            "9,1.000000,12,0.000000,15,2.875000,");
}

TEST_F(DispensedReports, RemainingRequestIsModeZero) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:2.125)";
  char out[128] = "";
  EXPECT_EQ(s.FormulaRemainingRequest(reply, out, 100), 1);
  EXPECT_STREQ(out, "12,0.000000,15,2.875000,");
}

TEST_F(DispensedReports, DispensedRequestIsModeOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:2.125)";
  char out[128] = "";
  EXPECT_EQ(s.FormulaDispensedRequest(reply, out, 100), 1);
  EXPECT_STREQ(out, "12,10.000000,15,2.125000,");
}

TEST_F(DispensedReports, TotalOriginalRequestIsModeTwo) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)(7:5:2.125)";
  char out[128] = "";
  EXPECT_EQ(s.FormulaTotalOriginalRequest(reply, out, 100), 1);
  EXPECT_STREQ(out, "12,10.000000,15,5.000000,");
}

TEST_F(DispensedReports, TwoCircuitsOfOneColourantAreSummedIntoOnePiece) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(3:10:4)(7:5:5)(4:6:1)";
  EXPECT_EQ(Summary(s, reply, 0), "12,11.000000,15,0.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,5.000000,15,5.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,16.000000,15,5.000000,");
}

TEST_F(DispensedReports, ColourantsAreListedInOrderOfFirstAppearance) {
  SetUpDispenser();
  slave s(1);
  EXPECT_EQ(Summary(s, "(7:5:5)(3:1:1)(5:2:2)(4:1:1)", 2),
            "15,5.000000,12,2.000000,9,2.000000,");
}

TEST_F(DispensedReports, OverDispensingWithinTheToleranceCountsAsExact) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(4:2:2.0005)";
  EXPECT_EQ(Summary(s, reply, 0), "12,0.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,2.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,2.000000,");
}

TEST_F(DispensedReports, OverDispensingBeyondTheToleranceIsLeftOutOfEverySum) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(3:10:4)(4:2:2.5)";
  EXPECT_EQ(Summary(s, reply, 0), "12,6.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,4.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,10.000000,");
}

TEST_F(DispensedReports, OverDispensingJustUnderTheToleranceCountsAsExact) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(3:10:4)(4:2:2.0009)";
  EXPECT_EQ(Summary(s, reply, 0), "12,6.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,6.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,12.000000,");
}

TEST_F(DispensedReports, OverDispensingJustBeyondTheToleranceIsLeftOut) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(3:10:4)(4:2:2.002)";
  EXPECT_EQ(Summary(s, reply, 0), "12,6.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,4.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,10.000000,");
}

TEST_F(DispensedReports, ACircuitOutsideTheDispenserCountsAsColourantZero) {
  SetUpDispenser();
  slave s(1);
  EXPECT_EQ(Summary(s, "(99:5:1)(3:1:1)", 0), "0,4.000000,12,0.000000,");
}

TEST_F(DispensedReports, NegativeDispensedQuantityIsSummedAsWritten) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(3:10:-5)";
  EXPECT_EQ(Summary(s, reply, 0), "12,15.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,-5.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,10.000000,");
}

TEST_F(DispensedReports, HugeOverDispensingLeavesTheColourantAtZero) {
  SetUpDispenser();
  slave s(1);
  const char* reply = "(3:-10:1e300)";
  EXPECT_EQ(Summary(s, reply, 0), "12,0.000000,");
  EXPECT_EQ(Summary(s, reply, 1), "12,0.000000,");
  EXPECT_EQ(Summary(s, reply, 2), "12,0.000000,");
}

TEST_F(DispensedReports, UnknownModeAppendsNothing) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)(7:5:2.125)", 3, "keep", &r), "keep");
  EXPECT_EQ(r, 1);
}

TEST_F(DispensedReports, APieceIsAppendedOnlyWhenOutSizeExceedsTheResultingLength) {
  SetUpDispenser();
  slave s(1);
  // "12,10.000000," is 13 characters.
  char reply[] = "(3:10:10)";
  char exact[32] = "";
  EXPECT_EQ(s.FormulaDispensedRequest(reply, exact, 13), 1);
  EXPECT_STREQ(exact, "");
  char room[32] = "";
  EXPECT_EQ(s.FormulaDispensedRequest(reply, room, 14), 1);
  EXPECT_STREQ(room, "12,10.000000,");
}

TEST_F(DispensedReports, APieceThatDoesNotFitIsDroppedAndLaterOnesAreTried) {
  SetUpDispenser();
  slave s(1);
  // "12,10.000000," (13) does not fit in 12; "9,2.125000," (11) does.
  char reply[] = "(3:10:10)(5:5:2.125)";
  char out[32] = "";
  EXPECT_EQ(s.FormulaDispensedRequest(reply, out, 12), 1);
  EXPECT_STREQ(out, "9,2.125000,");
}

TEST_F(DispensedReports, AppendingTerminatesTheBufferAtOutSize) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)";
  char out[64];
  memset(out, 'Z', sizeof out);
  out[0] = '\0';
  EXPECT_EQ(s.FormulaDispensedRequest(reply, out, 40), 1);
  EXPECT_STREQ(out, "12,10.000000,");
  EXPECT_EQ(out[40], '\0');
  EXPECT_EQ(out[41], 'Z');
  EXPECT_EQ(out[39], 'Z');
}

// --- FormulaRequest: refused arguments and replies ----------------------------

TEST_F(DispensedReports, SummaryOfBlanksOnlyIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "    ", 0, "keep", &r), "keep");
  EXPECT_EQ(r, -1);
}

TEST_F(DispensedReports, SummaryOfEmptyReplyIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "", 1, "keep", &r), "keep");
  EXPECT_EQ(r, -1);
}

TEST_F(DispensedReports, SummaryOfNullReplyIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  char out[32] = "keep";
  EXPECT_EQ(s.FormulaRequest(nullptr, out, 30, 0), -1);
  EXPECT_STREQ(out, "keep");
}

TEST_F(DispensedReports, SummaryIntoNullOrSizelessBufferIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  char reply[] = "(3:10:10)";
  char out[32] = "";
  EXPECT_EQ(s.FormulaRequest(reply, nullptr, 30, 0), -1);
  EXPECT_EQ(s.FormulaRequest(reply, out, 0, 0), -1);
  EXPECT_EQ(s.FormulaRequest(reply, out, -5, 0), -1);
  EXPECT_STREQ(out, "");
}

TEST_F(DispensedReports, SummaryWithClosedTablesIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  ASSERT_EQ(s.CloseDatabases(), 1);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)", 0, "keep", &r), "keep");
  EXPECT_EQ(r, -1);
}

TEST_F(DispensedReports, SummaryWithoutDispenserIsMinusOne) {
  SetUpDispenser();
  slave s(99);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)", 0, "keep", &r), "keep");
  EXPECT_EQ(r, -1);
}

TEST_F(DispensedReports, SummaryOfGroupMissingANumberIsMinusOne) {
  SetUpDispenser();
  slave s(1);
  int r = 0;
  EXPECT_EQ(Summary(s, "(3:10:10)(7:5:)", 0, "keep", &r), "keep");
  EXPECT_EQ(r, -1);
}

// A reply longer than 511 characters is summed whole: 40 groups of circuit
// 3 (colourant 12), 1 requested and 0.5 dispensed each.
TEST_F(DispensedReports, SummaryOfAReplyLongerThanTheWorkBufferSumsEveryGroup) {
  SetUpDispenser();
  slave s(1);
  const std::string reply = Repeat("(3:1.000:0.500)", 40);
  ASSERT_EQ(reply.size(), 600u);
  int r = 0;
  EXPECT_EQ(Summary(s, reply.c_str(), 0, "", &r), "12,20.000000,");
  EXPECT_EQ(r, 1);
}

TEST_F(DispensedReports, SummaryOfUnbalancedBracketsDoesNotFail) {
  SetUpDispenser();
  slave s(1);
  // The parse answers 1 without storing: what is summed is not defined,
  // but the call completes and keeps what the buffer held.
  int r = 0;
  const std::string text = Summary(s, "(3:10:10)(7:5:2.125", 0, "keep", &r);
  EXPECT_EQ(r, 1);
  EXPECT_EQ(text.compare(0, 4, "keep"), 0);
}

// --- FormulaRemainingRequestT7R ---------------------------------------------

TEST_F(DispensedReports, TypeNineRequestIsPassedToTheDriver) {
  SetUpDispenser("T7R");
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("remaining", "42"));
  char b[16] = "abc";
  char d[16] = "def";
  EXPECT_EQ(s.FormulaRemainingRequestT7R(5, b, 7, d, 9), 42);
  EXPECT_EQ(CallsOf(s, "FormulaRemainingRequest"), (Strings{"FormulaRemainingRequest(5,-,7,-,9)"}));
}

TEST_F(DispensedReports, TypeNineRequestOnOtherDriversIsZero) {
  SetUpDispenser("ZARVO");
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("remaining", "42"));
  char b[16] = "";
  char d[16] = "";
  EXPECT_EQ(s.FormulaRemainingRequestT7R(5, b, 7, d, 9), 0);
  EXPECT_TRUE(CallsOf(s, "FormulaRemainingRequest").empty());
}

TEST_F(DispensedReports, TypeNineRequestWithoutDriverIsZero) {
  SetUpDispenser("T7R");
  slave s(99);
  char b[16] = "";
  char d[16] = "";
  EXPECT_EQ(s.FormulaRemainingRequestT7R(5, b, 7, d, 9), 0);
}

// --- DispensedRequest ---------------------------------------------------------

TEST_F(DispensedReports, RequestAsksTheMachineAndReportsEveryCircuit) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3:10.000)(7:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:10.000)(7:5.000)"}));
  EXPECT_STREQ(out, "(3:10.000:10.000)(7:5.000:5.000)");
}

TEST_F(DispensedReports, RequestReportsAnInterruptedDispense) {
  SetUpDispenser();
  slave s(1);
  Sim(s)->AddRule("/O*", 0, "(3:10.000:10.000)(7:5.000:2.125)");
  char request[] = "(3:10)(7:5)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:10.000)(7:5.000)"}));
  EXPECT_STREQ(out, "(3:10.000:10.000)(7:5.000:2.125)");
}

TEST_F(DispensedReports, RequestReportsACircuitAbsentFromTheReplyAsNothingDispensed) {
  SetUpDispenser();
  slave s(1);
  Sim(s)->AddRule("/O*", 0, "(3:10.000:4.500)");
  char request[] = "(3:10.000)(7:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_STREQ(out, "(3:10.000:4.500)(7:5.000:0.000)");
}

TEST_F(DispensedReports, RequestReportsTheRequestedQuantityOfTheRequest) {
  SetUpDispenser();
  slave s(1);
  Sim(s)->AddRule("/O*", 0, "(3:99.000:4.000)");
  char request[] = "(3:10.5)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_STREQ(out, "(3:10.500:4.000)");
}

TEST_F(DispensedReports, RequestReportsInRequestOrderWhateverTheReplyOrder) {
  SetUpDispenser();
  slave s(1);
  Sim(s)->AddRule("/O*", 0, "(7:5.000:1.000)(3:10.000:2.000)");
  char request[] = "(3:10.000)(7:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_STREQ(out, "(3:10.000:2.000)(7:5.000:1.000)");
}

TEST_F(DispensedReports, RequestCircuitOutsideTheDispenserIsNotAskedButReported) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3:10)(99:1)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:10.000)"}));
  EXPECT_STREQ(out, "(3:10.000:10.000)(99:1.000:0.000)");
}

TEST_F(DispensedReports, RequestReadingStopsAtTextBetweenGroups) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3:10.000)x(7:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:10.000)"}));
  EXPECT_STREQ(out, "(3:10.000:10.000)");
}

TEST_F(DispensedReports, RequestNotBeginningWithABracketSendsNothing) {
  SetUpDispenser();
  slave s(1);
  char request[] = "3:10.000)(7:5.000)";
  char out[128] = "keep";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(DispensedReports, RequestBeginningWithABlankSendsNothing) {
  SetUpDispenser();
  slave s(1);
  char request[] = " (3:10.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(DispensedReports, RequestWhoseFirstGroupHasNoColonSendsNothing) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3)(7:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(DispensedReports, RequestOfBracketsOnlySendsNothing) {
  SetUpDispenser();
  slave s(1);
  char request[] = "((((";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(DispensedReports, RequestWithBadArgumentsIsZero) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3:10.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(nullptr, out, sizeof out), 0);
  EXPECT_EQ(s.DispensedRequest(request, nullptr, 128), 0);
  EXPECT_EQ(s.DispensedRequest(request, out, 0), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(DispensedReports, RequestWithoutDispenserIsZero) {
  SetUpDispenser();
  slave s(99);
  char request[] = "(3:10.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
}

// Seven "(12:1)" and forty-nine "(5:1)" make a request of 287 characters
// whose query, "/O" and "(12:1.000)" seven times and "(5:1.000)" forty-nine
// times, is 513 characters: more than the 512-byte command holds. It is
// refused before anything is sent.
TEST_F(DispensedReports, RequestWhoseQueryWouldNotFitIsRefusedBeforeSending) {
  AddDispenser();
  AddTanks({Circuit(5, 9, 100.0), Circuit(12, 20, 100.0)});
  slave s(1);
  std::string request = Repeat("(12:1)", 7) + Repeat("(5:1)", 49);
  ASSERT_EQ(request.size(), 287u);
  char out[2048] = "keep";
  trace_.clear();
  EXPECT_EQ(s.DispensedRequest(&request[0], out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty()) << ::testing::PrintToString(Commands(s));
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_STREQ(out, "keep");
  EXPECT_EQ(qtest::CountSourceLines(trace_.messages(), "slv_rep",
                                    ": query of 513 characters refused: room for 511"),
            1)
      << trace_.text();
}

// Sixty "(12:1)" make a command text of 600 characters, which cannot be
// built at all: nothing is sent, not even a bare "/O".
TEST_F(DispensedReports, RequestWhoseCommandCannotBeBuiltSendsNoBareQuery) {
  AddDispenser();
  AddTanks({Circuit(12, 20, 100.0)});
  slave s(1);
  std::string request = Repeat("(12:1)", 60);
  char out[2048] = "keep";
  EXPECT_EQ(s.DispensedRequest(&request[0], out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty()) << ::testing::PrintToString(Commands(s));
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_STREQ(out, "keep");
}

// A request of circuits the dispenser does not have builds no command:
// nothing is sent.
TEST_F(DispensedReports, RequestOfUnknownCircuitsOnlySendsNoBareQuery) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(99:1.000)";
  char out[128] = "keep";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_TRUE(Commands(s).empty()) << ::testing::PrintToString(Commands(s));
  EXPECT_STREQ(out, "keep");
}

TEST_F(DispensedReports, RequestRefusedByTheMachineWithoutSecondPartIsZero) {
  SetUpDispenser();
  slave s(1);
  Sim(s)->AddRule("/O*", 3);
  char request[] = "(3:10.000)(7:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:10.000)(7:5.000)"}));
}

TEST_F(DispensedReports, ReportThatFitsTheBufferExactlyIsWritten) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3:10.000)(7:5.000)";
  // The report "(3:10.000:10.000)(7:5.000:5.000)" is 32 characters.
  char out[33];
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(s.DispensedRequest(request, out, 33), 1);
  EXPECT_STREQ(out, "(3:10.000:10.000)(7:5.000:5.000)");
  EXPECT_EQ(ReportTraceLines(), 0);
}

TEST_F(DispensedReports, ReportTooLongForTheBufferIsRefusedWhole) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(3:10.000)(7:5.000)";
  char out[64];
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(s.DispensedRequest(request, out, 32), 0);
  EXPECT_EQ(out[0], '\0');
  EXPECT_EQ(out[32], 'Z');
  EXPECT_EQ(ReportTraceLines(), 1);
}

TEST_F(DispensedReports, ReplyLongerThanTheCallersBufferDoesNotReachIt) {
  SetUpDispenser();
  slave s(1);
  std::string reply;
  for (int c = 10; c < 30; ++c) reply += "(" + std::to_string(c) + ":1.000:1.000)";
  reply += "(3:10.000:4.000)";
  ASSERT_GT(reply.size(), 200u);
  Sim(s)->AddRule("/O*", 0, reply);
  char request[] = "(3:10.000)";
  char out[64];
  memset(out, 'Z', sizeof out);
  EXPECT_EQ(s.DispensedRequest(request, out, 20), 1);
  EXPECT_STREQ(out, "(3:10.000:4.000)");
  EXPECT_EQ(out[20], 'Z');
  EXPECT_EQ(out[63], 'Z');
}

// Two-pass dispensers (option 7, splitting percentage 30, threshold 5): the
// request (3:40)(5:5)(8:5) makes the sets B = (3:20) and A = (3:20)(5:5)(8:5),
// and the command text "(3:20.000);(3:20.000)(5:5.000)(8:5.000)".
class TwoPassReports : public DispensedReports {
 protected:
  void SetUp() override {
    DispensedReports::SetUp();
    AddDispenser("ZARVO", OptionsWith({7}), FixedText(127, {{37, "0300"}, {41, "0005"}}));
    AddTanks({Circuit(3, 12, 100.0), Circuit(5, 9, 100.0), Circuit(8, 20, 100.0)});
  }
};

TEST_F(TwoPassReports, FirstPartAnsweredIsReportedWithoutCorrection) {
  slave s(1);
  char request[] = "(3:40.000)(5:5.000)(8:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:20.000)"}));
  EXPECT_STREQ(out, "(3:40.000:20.000)(5:5.000:0.000)(8:5.000:0.000)");
}

TEST_F(TwoPassReports, FirstPartRefusedAsksTheSecondAndAddsTheFirstPassQuantities) {
  slave s(1);
  Sim(s)->AddRule("/O(3:20.000)", 3);
  char request[] = "(3:40.000)(5:5.000)(8:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:20.000)", "/O(3:20.000)(5:5.000)(8:5.000)"}));
  EXPECT_STREQ(out, "(3:40.000:40.000)(5:5.000:5.000)(8:5.000:5.000)");
}

TEST_F(TwoPassReports, SecondPartAnsweredWithAnInterruptionIsCorrected) {
  slave s(1);
  Sim(s)->AddRule("/O(3:20.000)", 3);
  Sim(s)->AddRule("/O(3:20.000)(*", 0, "(3:20.000:12.000)(5:5.000:5.000)(8:5.000:1.000)");
  char request[] = "(3:40.000)(5:5.000)(8:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 1);
  EXPECT_STREQ(out, "(3:40.000:32.000)(5:5.000:5.000)(8:5.000:1.000)");
}

TEST_F(TwoPassReports, BothPartsRefusedIsZero) {
  slave s(1);
  Sim(s)->AddRule("/O*", 3);
  char request[] = "(3:40.000)(5:5.000)(8:5.000)";
  char out[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:20.000)", "/O(3:20.000)(5:5.000)(8:5.000)"}));
}

}  // namespace
