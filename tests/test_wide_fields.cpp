// Configuration tables as other programs write them: text fields wider
// than the library reads (a bounded copy of the leading part is read,
// never an empty field), ids kept in text or number fields of other widths
// (read as numbers), a colourant code too long to go to the machine whole
// (refused, never cut), and machine answers longer than their buffers.
// Rewrites of such fields change only the characters they own.
#include <gtest/gtest.h>
#include <string.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dispense_fixture.h"

namespace {

using qtest::ColorantRow;
using qtest::Communic;
using qtest::DispenserRow;
using qtest::FixedText;
using qtest::SecondaryOf;
using qtest::Sim;
using qtest::StandardDispenser;
using qtest::TankOf;

// A text of width characters: the pieces at their 1-based positions,
// blanks elsewhere, the last character 'Z' so a cut would show.
std::string Filled(int width, const std::map<int, std::string>& pieces) {
  std::string text = FixedText(width, pieces);
  text[static_cast<size_t>(width) - 1] = 'Z';
  return text;
}

class WideFields : public qtest::DispenseEnv {
 protected:
  std::unique_ptr<slave> Select(const DispenserRow& row) {
    EXPECT_GT(tables_.AddDispenser(row), 0);
    std::unique_ptr<slave> s(new slave(row.id));
    EXPECT_EQ(s->m_DispId, row.id);
    if (Sim(*s) != nullptr) Sim(*s)->ClearHistory();
    return s;
  }
  std::string Identity(slave& s) {
    s.m_Dsp->SendCommand(s.m_DispId, "/M1");
    return s.m_Dsp->GetAnswer(s.m_DispId);
  }
};

// --- Driver choice from wide HIDE_ID and MODEL ------------------------------

TEST_F(WideFields, HideIdWiderThanTheReadWidthChoosesItsFamily) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"HIDE_ID", 20}}));
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "SALVIMAT-PLUS-2";
  std::unique_ptr<slave> s = Select(row);
  ASSERT_NE(s->m_Dsp, nullptr);
  EXPECT_EQ(s->m_Dsp->GetType(0, 0), 4);
}

TEST_F(WideFields, ModelWiderThanTheReadWidthChoosesItsVariant) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"MODEL", 20}, {"HIDE_ID", 20}}));
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "VEX";
  row.model = "TORN500-EXTRA-X";
  std::unique_ptr<slave> s = Select(row);
  ASSERT_NE(s->m_Dsp, nullptr);
  EXPECT_EQ(s->m_Dsp->GetType(0, 0), 8);
  EXPECT_EQ(Identity(*s), "SIM8-1 SN000001");
  EXPECT_STREQ(s->m_Model, "TORN500-EXT");  // the leading part that fits
}

// --- OPTIONS of 40 characters -------------------------------------------------

TEST_F(WideFields, OptionsOfFortyCharactersGiveTheirLeadingThirtyTwo) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"OPTIONS", 40}}));
  DispenserRow row = StandardDispenser(1);
  row.options = "0000110000000000000000000000000011110000";  // door switch on
  std::unique_ptr<slave> s = Select(row);
  EXPECT_STREQ(s->m_Options, "00001100000000000000000000000000");
  // The door option is honoured: without the door closed bit it is open.
  EXPECT_EQ(s->IsDoorClosed(0), 0);
}

TEST_F(WideFields, ForceOptionOnFortyCharactersChangesOnlyItsCharacter) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"OPTIONS", 40}}));
  DispenserRow row = StandardDispenser(1);
  row.options = "0000110000000000000000000000000011110000";
  std::unique_ptr<slave> s = Select(row);
  EXPECT_EQ(s->ForceOption(6, 1), 1);
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), "0000111000000000000000000000000011110000");
  EXPECT_STREQ(s->m_Options, "00001110000000000000000000000000");
}

// --- COMMUNIC of 170 characters ------------------------------------------------

TEST_F(WideFields, CommunicOfAHundredAndSeventyCharactersSetsTheSerialLine) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"COMMUNIC", 200}}));
  DispenserRow row = StandardDispenser(1);
  const std::string line = Communic(3, 9600, 'N', 1, 8, 2.5);
  row.communic = line + std::string(170 - line.size() - 4, ' ') + "TAIL";
  std::unique_ptr<slave> s = Select(row);
  EXPECT_EQ(s->GetCommPort(), 3);
  const std::string before = tables_.ReadDispenserField(1, "COMMUNIC");
  EXPECT_EQ(s->SetCommPort(4), 1);
  EXPECT_EQ(tables_.ReadDispenserField(1, "COMMUNIC"), " 4" + before.substr(2));
  EXPECT_EQ(s->GetCommPort(), 4);
}

// --- CFG_STR of 150 characters -----------------------------------------------

TEST_F(WideFields, CfgStrOfAHundredAndFiftyCharactersGivesItsHeights) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"CFG_STR", 150}}));
  DispenserRow row = StandardDispenser(1);
  // Percentage 100 (1-3), shelf limit 150 (4-7), preferred height 90
  // (33-36), splitting threshold (41-44).
  row.cfg_str = Filled(150, {{1, "100"}, {4, " 150"}, {33, "  90"}, {41, " 2.5"}});
  std::unique_ptr<slave> s = Select(row);
  EXPECT_EQ(s->Hfoto(), 150);
  EXPECT_EQ(s->HPrefPos(), 90);
  EXPECT_DOUBLE_EQ(s->GetSplittingThreshold(), 2.5);
  EXPECT_EQ(s->ShelfMove(500), 1);
  EXPECT_EQ(Sim(*s)->Commands(), std::vector<std::string>{"/S150"});
}

// --- DESCR and VALUES ------------------------------------------------------------

TEST_F(WideFields, DescriptionOfThirtyCharactersGivesItsLeadingPart) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"DESCR", 30}}));
  DispenserRow row = StandardDispenser(1);
  row.descr = "Main dispenser of the back shop";  // 31 > 30: python would refuse
  row.descr.resize(30);
  std::unique_ptr<slave> s = Select(row);
  EXPECT_STREQ(s->m_Descr, "Main dispenser of the ba");
}

TEST_F(WideFields, ValuesOfAHundredAndFortyCharactersCountTheLeadingSpeeds) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"VALUES", 140}}));
  DispenserRow row = StandardDispenser(1);
  // 32 speeds of 4 characters each ("100;"): 128 characters, then more.
  std::string values;
  for (int i = 0; i < 35; ++i) values += "100;";
  row.values = values.substr(0, 140);
  std::unique_ptr<slave> s = Select(row);
  int speeds[64] = {};
  // The leading 127 characters hold 31 whole speeds and "100" of the 32nd.
  EXPECT_EQ(s->NumSpeeds(speeds), 32);
  EXPECT_EQ(speeds[31], 100);
}

// --- Machine answers longer than their buffers --------------------------------------

TEST_F(WideFields, LongAnswerToM1GivesItsLeadingEightyCharacters) {
  std::unique_ptr<slave> s = Select(StandardDispenser(1));
  const std::string answer = std::string(80, 'A') + "BCDEFGHIJK";
  Sim(*s)->AddRule("/M1", 0, answer);
  EXPECT_EQ(std::string(s->GetMachineModelAndSerialNo()), answer.substr(0, 80));
}

TEST_F(WideFields, LongAnswerToKSGivesItsLeadingEightyCharacters) {
  std::unique_ptr<slave> s = Select(StandardDispenser(1));
  const std::string answer = std::string(81, '7');
  Sim(*s)->AddRule("/KS(3)", 0, answer);
  EXPECT_EQ(std::string(s->GetK240CircuitsStatus(3)), answer.substr(0, 80));
}

// --- Colourant codes: too long for the machine is refused whole ------------------

TEST_F(WideFields, ElevenCharacterCodeFailsTheTranslationWhole) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_COLORANTS, {{"CODE", 16}}));
  AddDispenser();
  AddColorant(1, "W01", 1000.0);
  AddColorant(2, "BLACK-OXIDE", 1000.0);  // 11 characters
  slave s(1);
  trace_.clear();
  char formula[] = "(1:10.000)(2:5.000)";
  char out[256] = "untouched";
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(formula, out, 1.0, 1.0, 0), -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(qtest::CountSourceLines(trace_.messages(), "slv_disp",
                                    ": colorant 2: code of 11 characters refused: room for 10"),
            1)
      << trace_.text();
}

TEST_F(WideFields, ElevenCharacterCodeDispensesNothingOnAMachineOfCodes) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_COLORANTS, {{"CODE", 16}}));
  AddDispenser("T7R");
  AddColorant(1, "W01", 1000.0);
  AddColorant(2, "BLACK-OXIDE", 1000.0);
  AddTanks({TankOf(1, 1, 500.0, 10.0, 1000.0), TankOf(2, 2, 500.0, 10.0, 1000.0)});
  const std::map<int, double> before = TankLevelsOnDisk();
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  Sim(s)->ClearHistory();
  char formula[] = "(1:10.000)(2:5.000)";
  EXPECT_EQ(s.Dispense(formula, 1.0, 1.0, 0, 1, 0, 0), 0);
  EXPECT_TRUE(DispenseCommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), before);
}

// --- CIST_ID kept as text or number of other widths ------------------------------

// What a dispense on a linked pair fed by a cistern, then a switch of the
// pair to independent tanks and its write, leave: the commands sent, the
// tank levels, the cistern levels and the tanks' cistern ids as numbers.
struct CisternOutcome {
  std::vector<std::string> commands;
  std::map<int, double> tanks;
  std::map<long, double> cisterns;
  std::map<int, double> cistIds;
  std::map<long, double> cisternsAfterDispense;
  bool operator==(const CisternOutcome& o) const {
    return commands == o.commands && tanks == o.tanks && cisterns == o.cisterns &&
           cistIds == o.cistIds && cisternsAfterDispense == o.cisternsAfterDispense;
  }
};

class WideCistId : public WideFields {
 protected:
  CisternOutcome Run(const QdbField& cistId) {
    CloseLibraryTables();
    EXPECT_TRUE(tables_.RecreateWithFields(QDB_SCHEMA_TANKS, {cistId}));
    tables_.Remove(QDB_SCHEMA_DISPS);
    tables_.Remove(QDB_SCHEMA_CISTERN);
    AddDispenser();
    // The pair's level is its master tank's CUR_Q (3000, the reservoir's
    // too); its maximum is the reservoir's 4000, not the tank's own 200: a
    // cistern id not read would cap the level at 200.
    AddTanks({TankOf(1, 50, 3000.0, 10.0, 200.0, 1), SecondaryOf(2, 50, 1),
              TankOf(3, 60, 500.0, 10.0, 1000.0)});
    AddCistern(1, 2, 4000.0, 3000.0, 400.0);
    CisternOutcome outcome;
    {
      slave s(1);
      EXPECT_EQ(s.m_DispId, 1);
      char formula[] = "(50:120.000)(60:5.000)";
      EXPECT_EQ(s.Dispense(formula, 1.0, 1.0, 0, 1, 0, 0), 1) << trace_.text();
      outcome.commands = DispenseCommandsOf(s);
      outcome.cisternsAfterDispense = CisternLevelsOnDisk();
      ColourantInDispenser c(&s);
      EXPECT_EQ(c.Read(50), 1);
      EXPECT_EQ(c.SwitchToMultiTank(), 1);
      EXPECT_EQ(c.Write(), 1) << trace_.text();
    }
    outcome.tanks = TankLevelsOnDisk();
    outcome.cisterns = CisternLevelsOnDisk();
    for (const auto& row : ReadColumn(tables_.FileOf(QDB_SCHEMA_TANKS),
                                      "out.append('%d %r' % (r['TANK'], "
                                      "float(str(r['CIST_ID']).strip() or 0)))\n")) {
      outcome.cistIds[static_cast<int>(row.first)] = row.second;
    }
    return outcome;
  }
};

TEST_F(WideCistId, TextOrNumberOfAnyWidthBooksTheReservoirAsTheReferenceLayoutDoes) {
  const CisternOutcome reference = Run({"CIST_ID", 'C', 5, 0});
  // The reservoir's maximum was used: the dispense of 120 came off 3000.
  ASSERT_EQ(reference.commands.size(), 1u);
  EXPECT_NEAR(reference.cisternsAfterDispense.at(1), 2880.0, 1e-6)
      << trace_.text();
  for (const QdbField& field : {QdbField{"CIST_ID", 'C', 6, 0}, QdbField{"CIST_ID", 'N', 6, 0},
                                QdbField{"CIST_ID", 'N', 10, 0}}) {
    const CisternOutcome found = Run(field);
    EXPECT_TRUE(found == reference) << field.type << "(" << field.width << ")";
    EXPECT_EQ(found.commands, reference.commands);
    EXPECT_EQ(found.tanks, reference.tanks);
    EXPECT_EQ(found.cisterns, reference.cisterns);
    EXPECT_EQ(found.cistIds, reference.cistIds);
    EXPECT_EQ(found.cisternsAfterDispense, reference.cisternsAfterDispense);
  }
}

}  // namespace
