// The library on configuration tables no one here wrote: every table made
// by python3-dbf, an independent dBase implementation, in its dBase III,
// Clipper and Visual FoxPro formats, with fields wider than the reference
// layout, narrower but wide enough for their data, and ids kept in number
// fields (in Visual FoxPro also binary integers, and quantities as binary
// doubles and currency). On each: selection, a dispense with levels on a
// machine of circuits and on a machine of codes, ForceOption, SetCommPort,
// a purge, the reports, and a switch of linked tanks with its write. Then
// every file is compared byte for byte with what it was: only the fields
// the operations own have changed (and, within OPTIONS and COMMUNIC, only
// the characters they own), the header keeps its version byte, code-page
// mark and Visual FoxPro's tail.
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::PyQuote;
using qtest::RunPython;
using qtest::Sim;

// Writes the five tables into a directory: generate(dir, format, variant).
// Variants: "wide" (texts wider than the reference, ids as wider texts),
// "narrow" (texts narrower, still holding their data), "numbers" (ids in
// number fields; in vfp binary integers, quantities binary doubles and
// currency).
const char kGenerator[] = R"PY(
import dbf, os

def field_list(fields):
    return '; '.join('%s %s' % f for f in fields)

def layout(fmt, variant):
    wide, narrow, numbers = variant == 'wide', variant == 'narrow', variant == 'numbers'
    vfp = fmt == 'vfp'
    idn = 'I' if (vfp and numbers) else 'N(10,0)' if numbers else 'N(5,0)'
    textid = ('I' if vfp else 'N(6,0)') if numbers else 'C(8)' if wide else 'C(5)'
    qty = 'B' if (vfp and numbers) else 'N(14,3)' if wide else 'N(12,3)'
    maxq = 'Y' if (vfp and numbers) else qty
    text = lambda ref, w, n: 'C(%d)' % (w if wide else n if narrow else ref)
    disps = [('ID', idn), ('X', 'L'), ('SLAVE', 'N(3,0)'), ('DESCR', text(24, 40, 16)),
             ('OPTIONS', text(32, 40, 32)), ('MODEL', text(11, 20, 8)),
             ('SERIAL_N', text(24, 30, 10)), ('HIDE_ID', text(12, 20, 6)),
             ('COMMUNIC', text(154, 200, 40)), ('CFG_STR', text(127, 150, 48)),
             ('VALUES', text(127, 140, 20)), ('THRESHOLD', 'N(10,3)'), ('DATA_ID', 'N(5,0)')]
    tanks = [('DISP_ID', textid), ('TANK', 'N(3,0)'), ('CNT_ID', idn), ('CUR_Q', qty),
             ('RES_Q', qty), ('MAX_Q', maxq), ('THRESHOLD', 'N(10,3)'),
             ('STATUS_FLG', text(8, 12, 8)), ('CIST_ID', textid), ('MPX', text(84, 100, 10)),
             ('RESOLUT', 'N(10,4)')]
    cistern = [('ID', idn), ('USERS', 'N(3,0)'), ('MAX_Q', maxq), ('CUR_Q', qty), ('RES_Q', qty)]
    colorants = [('ID', idn), ('CODE', text(10, 16, 4)), ('DESCR', text(24, 30, 12)),
                 ('SPEC_W', 'N(10,3)')]
    cans = [('ID', idn), ('H_MIN', 'N(5,0)'), ('H_MAX', 'N(5,0)'), ('ZERO_FLAG', 'L'),
            ('NO_PUNCH', 'L'), ('FLAGS', text(15, 20, 6))]
    return disps, tanks, cistern, colorants, cans

def textid(value, fields, name):
    kind = dict(fields)[name]
    return value if not kind.startswith('C') else '%5d' % value

def communic(port):
    return '%2d%6d%c %02d%02d%s' % (port, 9600, 'N', 1, 8, '     2.5')

def generate(d, fmt, variant):
    disps, tanks, cistern, colorants, cans = layout(fmt, variant)
    wide = variant == 'wide'
    def make(name, fields, rows):
        t = dbf.Table(os.path.join(d, name), field_list(fields), dbf_type=fmt)
        t.open(dbf.READ_WRITE)
        for r in rows:
            t.append({k.lower(): v for k, v in r.items()})
        t.close()
    options = '0000000000000000000000000000000' + '0' + ('ABCDEFGH' if wide else '')
    # Character 0 is not read; python3-dbf drops leading blanks of a text.
    cfg = ('C100 300' + ' ' * 25 + ' 150').ljust(48) + ('TAILCFG' if wide else '')
    tail = ' ' * 150 + 'KEEP' if wide else ''
    make('disps', disps, [
        {'ID': 1, 'SLAVE': 1, 'DESCR': 'Main shop' + (' machine of the back' if wide else ''),
         'OPTIONS': options, 'MODEL': '', 'SERIAL_N': 'SN1', 'HIDE_ID': 'ZARVO',
         'COMMUNIC': communic(1) + tail, 'CFG_STR': cfg, 'VALUES': '100;200;300',
         'THRESHOLD': 0, 'DATA_ID': 0},
        {'ID': 2, 'SLAVE': 2, 'DESCR': 'Codes', 'OPTIONS': '0' * 32, 'MODEL': '',
         'SERIAL_N': 'SN2', 'HIDE_ID': 'T7R', 'COMMUNIC': communic(2), 'CFG_STR': cfg,
         'VALUES': '100', 'THRESHOLD': 0, 'DATA_ID': 0}])
    rows = []
    # Dispenser 1: colourant 1 on the linked pair 1-2 fed by cistern 1,
    # colourants 2 and 3 on tanks 3 and 4. Dispenser 2: colourants 2, 3.
    for disp, tank, cnt, cur, maxq, cist in ((1, 1, 1, 3000, 200, 1), (1, 2, 1, -1, -1, 1),
                                             (1, 3, 2, 1500, 2000, 0), (1, 4, 3, 1200, 2000, 0),
                                             (2, 1, 2, 900, 1000, 0), (2, 2, 3, 800, 1000, 0)):
        rows.append({'DISP_ID': textid(disp, tanks, 'DISP_ID'), 'TANK': tank, 'CNT_ID': cnt,
                     'CUR_Q': cur, 'RES_Q': -1 if cur < 0 else 10, 'MAX_Q': maxq,
                     'THRESHOLD': 0, 'STATUS_FLG': '00000000',
                     'CIST_ID': textid(cist, tanks, 'CIST_ID'), 'MPX': 'M' if wide else '',
                     'RESOLUT': 0})
    make('tanks', tanks, rows)
    make('cistern', cistern, [{'ID': 1, 'USERS': 2, 'MAX_Q': 4000, 'CUR_Q': 3000,
                                'RES_Q': 400}])
    make('colorants', colorants, [
        {'ID': 1, 'CODE': 'W01', 'DESCR': 'White' + (' of titanium, extra' if wide else ''),
         'SPEC_W': 1.2},
        {'ID': 2, 'CODE': 'BK2', 'DESCR': 'Black', 'SPEC_W': 1.1},
        {'ID': 3, 'CODE': 'Y03', 'DESCR': 'Yellow', 'SPEC_W': 1.3}])
    make('cans', cans, [{'ID': 1, 'H_MIN': 100, 'H_MAX': 200, 'ZERO_FLAG': False,
                          'NO_PUNCH': False, 'FLAGS': '1'}])
)PY";

// compare(before, after): prints one line per difference that the
// operations do not own, then "done".
const char kComparer[] = R"PY(
import os, struct

def parse(path):
    b = open(path, 'rb').read()
    count, hlen, rlen = struct.unpack('<IHH', b[4:12])
    fields, at, pos = [], 32, 1
    while b[at] != 0x0D:
        name = b[at:at + 11].split(b'\0')[0].decode()
        width = b[at + 16]
        fields.append((name, chr(b[at + 11]), pos, width))
        pos += width
        at += 32
    records = [b[hlen + i * rlen: hlen + (i + 1) * rlen] for i in range(count)]
    return b, fields, records, hlen

# Fields a booking, a switch or a rewrite may change; characters of
# OPTIONS and COMMUNIC that ForceOption(6, 1) and SetCommPort(4) own.
OWNED = {'tanks.dbf': {'CUR_Q', 'RES_Q', 'MAX_Q', 'CIST_ID'},
         'cistern.dbf': {'CUR_Q', 'USERS', 'MAX_Q', 'RES_Q', 'ID'}}
CHARS = {('disps.dbf', 'OPTIONS'): {6}, ('disps.dbf', 'COMMUNIC'): {0, 1}}

def compare(before, after):
    for name in sorted(os.listdir(before)):
        if not name.endswith('.dbf'):
            continue
        b0, f0, r0, h0 = parse(os.path.join(before, name))
        b1, f1, r1, h1 = parse(os.path.join(after, name))
        if b0[0] != b1[0] or b0[29] != b1[29]:
            print('%s: version or code page changed' % name)
        if b0[8:h0] != b1[8:h1]:
            print('%s: field descriptors or header tail changed' % name)
        if len(r1) < len(r0):
            print('%s: records lost' % name)
        for i, (x, y) in enumerate(zip(r0, r1)):
            for field, kind, pos, width in f0:
                if x[pos:pos + width] == y[pos:pos + width] or field in OWNED.get(name, ()):
                    continue
                allowed = CHARS.get((name, field), set())
                changed = {k for k in range(width) if x[pos + k] != y[pos + k]}
                if not changed <= allowed:
                    print('%s record %d %s: %r -> %r' % (name, i + 1, field,
                          x[pos:pos + width], y[pos:pos + width]))
    print('done')
)PY";

struct Case {
  const char* format;
  const char* variant;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.format << " " << c.variant; }

class ForeignTables : public qtest::LibraryEnv, public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    LibraryEnv::SetUp();
    for (QdbSchemaTable t : {QDB_SCHEMA_DISPS, QDB_SCHEMA_TANKS, QDB_SCHEMA_CISTERN}) {
      tables_.Remove(t);
    }
    std::string out;
    ASSERT_EQ(0, RunPython(std::string(kGenerator) + "generate(" + PyQuote(dir_.path()) + ", " +
                               PyQuote(GetParam().format) + ", " +
                               PyQuote(GetParam().variant) + ")\n",
                           &out))
        << out;
    before_.reset(new qtest::TempDir());
    ASSERT_EQ(0, RunPython("import shutil, glob, os\n"
                           "for f in glob.glob(os.path.join(" + PyQuote(dir_.path()) +
                               ", '*.dbf')):\n"
                               "    shutil.copy(f, " + PyQuote(before_->path()) + ")\n"));
  }

  std::string Differences() {
    std::string out;
    RunPython(std::string(kComparer) + "compare(" + PyQuote(before_->path()) + ", " +
                  PyQuote(dir_.path()) + ")\n",
              &out);
    return out;
  }

  // A value of a record as python3-dbfread reads it, as text.
  std::string Value(const char* table, int record, const char* field) {
    std::string out;
    RunPython("import dbfread\n"
              "r = list(dbfread.DBF(" + PyQuote(dir_.file(table)) +
                  ", ignore_missing_memofile=True))[" +
                  std::to_string(record - 1) + "]\n"
                  "v = r['" + field + "']\n"
                  "print(('%.3f' % v) if isinstance(v, (int, float)) or "
                  "type(v).__name__ == 'Decimal' else str(v).rstrip())\n",
              &out);
    if (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
  }

  std::unique_ptr<qtest::TempDir> before_;
};

TEST_P(ForeignTables, EveryOperationChangesOnlyWhatItOwns) {
  {
    slave s(1);
    ASSERT_EQ(s.m_DispId, 1) << trace_.text();
    s.m_PurgeSrvOff = 1;
    ASSERT_NE(s.m_Dsp, nullptr);
    EXPECT_EQ(s.m_Dsp->GetType(0, 0), 2);
    EXPECT_EQ(s.m_NumTanks, 4);
    EXPECT_EQ(s.GetCommPort(), 1);
    EXPECT_EQ(s.Hfoto(), 300);
    // A dispense with levels: colourant 1 over the linked pair, from the
    // cistern's 3000 (its maximum 4000, not the tank's 200).
    char formula[] = "(1:120.000)(3:10.000)";
    EXPECT_EQ(s.Dispense(formula, 1.0, 1.0, 0, 1, 0, 0), 1) << trace_.text();
    EXPECT_EQ(s.LevelsNotBooked(), 0);
    EXPECT_EQ(Sim(s)->Commands().back(), "/D(1:60.000)(2:60.000)(4:10.000)");
    EXPECT_EQ(Value("tanks.dbf", 1, "CUR_Q"), "2880.000");
    EXPECT_EQ(Value("cistern.dbf", 1, "CUR_Q"), "2880.000");
    EXPECT_EQ(Value("tanks.dbf", 4, "CUR_Q"), "1190.000");
    EXPECT_EQ(s.ForceOption(6, 1), 1);
    EXPECT_EQ(s.SetCommPort(4), 1);
    EXPECT_EQ(s.GetCommPort(), 4);
    s.m_PurgeSrvOff = 1;
    EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1) << trace_.text();
    trace_.clear();
    s.DumpTanks();
    // Tank 4 of colourant 3, 1190 less the purge's 2.
    EXPECT_NE(trace_.text().find("\n    4    3    1188.00"), std::string::npos) << trace_.text();
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(1), 1);
    EXPECT_EQ(c.SwitchToMultiTank(), 1) << trace_.text();
    EXPECT_EQ(c.Write(), 1) << trace_.text();
  }
  {
    // The machine of codes: the formula goes out with the colourant codes.
    slave s(2);
    ASSERT_EQ(s.m_DispId, 2);
    s.m_PurgeSrvOff = 1;
    EXPECT_EQ(s.m_Dsp->GetType(0, 0), 9);
    char formula[] = "(2:5.000)(3:1.000)";
    EXPECT_EQ(s.Dispense(formula, 1.0, 1.0, 0, 1, 0, 0), 1) << trace_.text();
  }
  EXPECT_EQ(Differences(), "done\n");
  EXPECT_EQ(Value("disps.dbf", 1, "OPTIONS").substr(0, 8), "00000010");
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ForeignTables,
    ::testing::Values(Case{"db3", "wide"}, Case{"db3", "narrow"}, Case{"db3", "numbers"},
                      Case{"clp", "wide"}, Case{"clp", "numbers"}, Case{"vfp", "wide"},
                      Case{"vfp", "narrow"}, Case{"vfp", "numbers"}),
    [](const ::testing::TestParamInfo<Case>& info) {
      return std::string(info.param.format) + "_" + info.param.variant;
    });

}  // namespace
