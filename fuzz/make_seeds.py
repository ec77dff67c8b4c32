#!/usr/bin/python3
"""Writes the seed corpora under fuzz/corpus/<target>/.

Run from anywhere: /usr/bin/python3 fuzz/make_seeds.py. Every seed is small
and meaningful for its target; the input formats are described at the top
of each fuzz_<target>.cpp. The dBase seeds are written here byte by byte
(dBase III: 32-byte header, 32-byte field descriptors, 0x0D, records each
starting with a deletion mark, 0x1A at the end).
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")


def write(target, name, data):
    d = os.path.join(CORPUS, target)
    os.makedirs(d, exist_ok=True)
    if isinstance(data, str):
        data = data.encode("latin-1")
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


def sel(*parts):
    return bytes(parts)


# --- fuzz_formula: selector byte, formula text ---------------------------
# selector: bits 0-1 dispenser (0 id 1, 1 id 2, 2 id 9), bit 2 weights,
# bits 3-5 factors, bit 6 book levels, bit 7 stopper commands.
formula = {
    "single": (0x00, "(10:5.0)"),
    "independent": (0x00, "(20:100)"),
    "linked": (0x00, "(30:10)(30:20)"),
    "mpx": (0x00, "(40:10)"),
    "plain_dispenser": (0x01, "(10:1.5)(20:2)"),
    "type9_codes": (0x02, "(10:1)(20:2.5)(60:3)"),
    "weights": (0x04, "(10:100)(30:50)(40:5)"),
    "factors": (0x08, "(10:2)(50:1)"),
    "blanks": (0x00, " (10:1)\t(20:2)\n"),
    "unknown_colourant": (0x00, "(99:1)"),
    "negative": (0x00, "(-10:1)(20:-1)"),
    "book_levels_stopper": (0xC0, "(10:1)(20:60)(40:100)"),
    "empty": (0x00, ""),
    "huge": (0x38, "(10:1e308)(20:1e308)"),
    "malformed": (0x00, "(10:)(:5)((20:1)"),
}
for name, (s, text) in formula.items():
    write("fuzz_formula", name, sel(s) + text.encode())

# --- fuzz_reports: selector, buffer size - 1, text -----------------------
# selector: bits 0-1 dispenser, bits 2-4 pairs per command, bit 5
# purge-server flag, bit 6 stopper.
reports = {
    "reply": (0x04, 63, "(1:10.000:10.000)(2:5.000:4.000)"),
    "over_dispensed": (0x08, 255, "(1:1.0:0.5)(3:2:2.0005)(4:1:1.5)"),
    "type9_by_position": (0x06, 31, "(1:1)(2:2)"),
    "bar": (0x04, 15, "(1:1.0)(2:2.0)|(3:3)"),
    "many": (0x0C, 199, "(1:1)(2:1)(3:1)(4:1)(5:1)(6:1)(7:1)(8:1)"),
    "purge_flag": (0x26, 9, "(1:5)"),
    "open": (0x44, 99, "(1:1"),
    "nested": (0x04, 0, "((1:2:3))"),
    "bare": (0x04, 127, "1:2:3 4:5:6"),
    "split_request": (0x00, 255, "(1:100)(2:1)(3:50)"),
}
for name, (s, size, text) in reports.items():
    write("fuzz_reports", name, sel(s, size) + text.encode())

# --- fuzz_sendcommand: selector, answer length, command ------------------
# selector: bits 0-2 driver kind, bit 3 separate thread, bit 4 simulation.
commands = {
    "status": (0, 64, "/!"),
    "model": (1, 80, "/M1"),
    "dispense": (2, 10, "/D(1:1.000)"),
    "dispensed_query": (3, 0, "/O(3:10.000)(7:5.000)"),
    "k240_status": (5, 255, "/KS(1)"),
    "test": (4, 5, "/T"),
    "stopper": (6, 1, "/G2"),
    "query_numbers": (7, 200, "/O(012:1)"),
    "threaded": (8, 16, "/Q"),
    "simulation_format": (0x10, 0, "/W%s%n"),
    "percent": (0, 3, "%%d"),
    "one_char": (0, 2, "/"),
}
for name, (s, n, text) in commands.items():
    write("fuzz_sendcommand", name, sel(s, n) + text.encode())


# --- fuzz_dispenser_record: selector, port, six lines --------------------
# selector: bit 0 wide layout, bit 1 select through Set(), bits 2-6 option
# position, bit 7 option on. Lines: COMMUNIC, CFG_STR, VALUES, OPTIONS,
# MODEL, HIDE_ID.
def communic(port, baud, parity, p1, p2, timeout):
    head = "%2d%6d%c %02d%02d" % (port, baud, parity, p1, p2)
    return head.ljust(41) + "%9.3f" % timeout


def cfg(pieces, length=60):
    text = [" "] * length
    for at, piece in pieces.items():
        while len(text) < at + len(piece):
            text.append(" ")
        text[at:at + len(piece)] = list(piece)
    return "".join(text)


std_cfg = cfg({1: "050", 4: "0200", 33: "0100", 37: "0100", 41: "0020", 45: "1"})
records = {
    "standard": (0x00, 2, [communic(1, 9600, "N", 1, 8, 2.5), std_cfg, "10;20;30",
                           "00010001000000000000000000000000", "", "ZARVO"]),
    "door_option_on": (0x90, 1, [communic(3, 19200, "E", 2, 7, 1.0), std_cfg, "1 2 3",
                                 "00001000000000000000000000000000", "", "PELKO"]),
    "salvimat_option7": (0x1E, 99, [communic(1, 9600, "N", 1, 8, 2.5), std_cfg, "",
                                    "11111111111111111111111111111111", "", "SALVIMAT"]),
    "vex_models": (0x00, 5, ["", "", "", "", "TORN500", "VEX"]),
    "m9000_default_driver": (0x02, 7, ["5", "1", "1", "1", "M9000", "nobody"]),
    "t7r": (0x7C, 150, [communic(12, 115200, "O", 1, 8, 10.0), cfg({45: "7"}), "0",
                        "0", "", "T7R"]),
    "max_speeds": (0x00, 1, [communic(1, 9600, "N", 1, 8, 2.5), std_cfg,
                             "1 " * 63 + "1", "1", "", "LIQON"]),
    "wide_long_texts": (0x01, 3, [communic(1, 9600, "N", 1, 8, 2.5) + "x" * 150,
                                  std_cfg + "9" * 190, "5," * 100,
                                  "1" * 200, "M" * 100, "K240" + "Z" * 100]),
    "short_texts": (0x04, 0, ["1", "0", ";;;", "0001", "", "VOREN"]),
    "numbers_everywhere": (0x00, 42, ["99999999999999999999999999999",
                                      "1e308" * 20, "-2147483649 2147483648 1e99",
                                      "", "", "ZARVO"]),
}
for name, (s, port, lines) in records.items():
    write("fuzz_dispenser_record", name, sel(s, port) + "\n".join(lines).encode())

# --- fuzz_tank_records: selector, 4 profile bytes, 3 lines per tank ------
# selector: bit 0 wide layout, bits 1-2 tanks - 1, bits 3-5 quantity,
# bit 6 single circuit, bit 7 link/unlink and write back.
# profiles: 0 plain, 1 secondary (-1), 2 threshold 5, 3 empty,
# 4 threshold 0.5, 5 negative threshold, 6 huge, 7 cur -1.
def tanks(selector, profiles, lines):
    return sel(selector, *profiles) + "\n".join(lines).encode()


q = lambda i: i << 3  # quantity index: 0 0, 1 0.001, 2 1, 3 5, 4 250, 5 1e6, 6 -3, 7 1e-6
write("fuzz_tank_records", "single", tanks(q(2), [0, 0, 0, 0], ["00000000", "", "    0"]))
write("fuzz_tank_records", "independent_pair",
      tanks(0x02 | q(4), [0, 2, 0, 0], ["10000000", "", "    0", "10000000", "", "    0"]))
write("fuzz_tank_records", "linked_pair",
      tanks(0x02 | q(3), [0, 1, 0, 0], ["00000000", "", "    1", "00000000", "", "    1"]))
write("fuzz_tank_records", "mpx_pair",
      tanks(0x02 | q(3), [0, 0, 0, 0], ["10000000", "1.5;x", "    0", "10000000", "2.0;", "    0"]))
write("fuzz_tank_records", "four_thresholds",
      tanks(0x06 | q(4), [0, 2, 4, 3],
            ["10000000", "", "    0", "10000000", "", "    0", "11000000", "", "    0",
             "10000000", "", "    0"]))
write("fuzz_tank_records", "wide_texts",
      tanks(0x03 | q(2), [0, 1, 0, 0],
            ["1111111111111111111", "3" * 200 + ";", "00000000000000099999",
             "0", ";" + "1" * 100, "               2"]))
write("fuzz_tank_records", "link_and_unlink",
      tanks(0x82 | q(2), [0, 0, 0, 0], ["00000000", "", "    1", "00000000", "", "    2"]))
write("fuzz_tank_records", "unlink_linked",
      tanks(0x84 | q(1), [0, 1, 1, 0],
            ["00000000", "", "    1", "00000000", "", "    1", "00000000", "", "    1"]))
write("fuzz_tank_records", "short_flags",
      tanks(0x42 | q(5), [5, 6, 0, 0], ["1", "nan;", "abc", "", "inf", "-1"]))
write("fuzz_tank_records", "other_colourant",
      tanks(0x04 | q(7), [0, 0x80, 7, 0], ["0", "0;", "99999", "01", "", "", "", "1e400", "1"]))


# --- fuzz_dbf: dBase files -----------------------------------------------
def dbf(fields, records, deleted=(), version=0x03, tail=True):
    """fields: (name, type, width, decimals); records: lists of texts."""
    header_len = 32 + 32 * len(fields) + 1
    record_len = 1 + sum(f[2] for f in fields)
    out = bytearray()
    out += struct.pack("<BBBBIHH20x", version, 124, 1, 1, len(records), header_len, record_len)
    for name, typ, width, dec in fields:
        n = name.encode().ljust(11, b"\0")[:11]
        out += n + typ.encode() + b"\0" * 4 + bytes([width, dec]) + b"\0" * 14
    out += b"\x0d"
    for i, rec in enumerate(records):
        out += b"*" if i in deleted else b" "
        for (name, typ, width, dec), value in zip(fields, rec):
            v = value.encode("latin-1")
            if typ in "NF":
                v = v.rjust(width)[:width]
            else:
                v = v.ljust(width)[:width]
            out += v
    if tail:
        out += b"\x1a"
    return bytes(out)


DISPS = [("ID", "N", 5, 0), ("X", "L", 1, 0), ("SLAVE", "N", 3, 0), ("DESCR", "C", 24, 0),
         ("OPTIONS", "C", 32, 0), ("HIDE_ID", "C", 12, 0), ("THRESHOLD", "N", 10, 3)]
write("fuzz_dbf", "disps", dbf(DISPS, [
    ["1", "T", "1", "Dispenser 1", "00010001" + "0" * 24, "ZARVO", "0.500"],
    ["2", "F", "2", "Dispenser 2", "0" * 32, "T7R", ""],
]))
TANKS = [("DISP_ID", "C", 5, 0), ("TANK", "N", 3, 0), ("CNT_ID", "N", 6, 0),
         ("CUR_Q", "N", 12, 3), ("MAX_Q", "N", 12, 3), ("STATUS_FLG", "C", 8, 0),
         ("CIST_ID", "C", 5, 0), ("MPX", "C", 20, 0)]
write("fuzz_dbf", "tanks", dbf(TANKS, [
    ["    1", "1", "10", "1000.000", "2000.000", "00000000", "    0", ""],
    ["    1", "2", "20", "-1.000", "-1.000", "10000000", "    1", "1.5;"],
    ["    2", "1", "10", "", "", "", "", ""],
], deleted=(2,)))
write("fuzz_dbf", "cistern", dbf([("ID", "N", 5, 0), ("USERS", "N", 3, 0), ("MAX_Q", "N", 12, 3)],
                                 [["1", "2", "5000.000"], ["99999", "0", "1e5"]]))
write("fuzz_dbf", "colorants", dbf([("ID", "N", 6, 0), ("CODE", "C", 10, 0),
                                    ("DESCR", "C", 24, 0), ("SPEC_W", "N", 10, 3)],
                                   [["10", "WHITE", "Titanium white", "1400.000"],
                                    ["20", "BLACK", "", "abc"]]))
write("fuzz_dbf", "types", dbf([("N1", "N", 19, 15), ("F1", "F", 8, 2), ("L1", "L", 1, 0),
                                ("D1", "D", 8, 0), ("C1", "C", 254, 0), ("M1", "M", 10, 0)],
                               [["1.234567890123456", "-1.5", "?", "20240101", "x" * 254, "0"],
                                ["", "1e10", "y", "", "  padded  ", ""]]))
write("fuzz_dbf", "empty", dbf([("ID", "N", 5, 0)], []))
write("fuzz_dbf", "no_tail", dbf([("NAME", "C", 3, 0)], [["abc"], ["de"]], tail=False))
write("fuzz_dbf", "lowercase_names", dbf([("id", "N", 5, 0), ("code", "C", 4, 0)],
                                         [["7", "ab"], ["3", "zz"], ["7", "ab"]]))

# --- fuzz_sim_rules: selector, rules text --------------------------------
# selector: bits 0-1 dispenser (0 ZARVO, 1 LIQON type 7, 2 T7R type 9, 3 plain).
rules = {
    "faults": (0, "/! 70\n/D(9:* 5\n/D* 5\nset firmware 1\n"),
    "levels": (1, "set level 1 50.0 100.0 10.0\nset level 2 5.0 100.0 10.0\nset purge 0\n"),
    "type9": (2, "set circuits 3\nset canister 0 5 1 0\nset formula_level 0\nset gravimetric 1\n"),
    "queue": (0, "set lasterror 12\nset queue E12 Door open\nset queue E7 \xc3\xa8 valve\n"),
    "answers": (3, "/M1 0 Tinter 3000 SN 42\n/O* 0 (1:1.000:0.500)(2:2.500:2.500)\n/W* -1\n"),
    "malformed": (0, "set\nset colour red\n/D*\n/!  x\n# comment\r\n  \n"),
    "purge_fails": (0, "set purge 7\nset movetofill 3\nset step 2\nset quit 1\n"),
    "glob": (1, "[/]* 1 any\n\\/\\! 0\n*?* -1\n"),
}
for name, (s, text) in rules.items():
    write("fuzz_sim_rules", name, sel(s) + text.encode("utf-8"))
