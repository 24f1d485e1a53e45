// Writing the dialects back. dBASE 7 (no other reader at hand reads these
// tables; the corpus cells written back are in the dbase7 test): new values
// read back and keep the byte order that sorts them, and a restructure
// converts the big-endian cells to the 32-byte layout or is refused whole.
// Visual FoxPro varying fields keep a short value's length; character fields longer than
// 255 bytes take their length's high byte from the decimals byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>
#include <cwchar>

#include "../typed/table_builder.h"

namespace {

using Bytes = std::vector<uint8_t>;
using typed_test::shown;

std::string copy_of(const char* rel, const qz_test::Temp_dir& dir) {
    return qz_test::copy_with_companions(std::string(QZ_CORPUS_DIR) + "/" + rel, dir.path());
}

// The bytes of the cell at `offset`, `width` wide, of `record`, on disk now.
Bytes cell_bytes(Tqz_dbf_rw* t, const std::string& path, unsigned record, size_t offset,
                 size_t width) {
    qz_dbf_flush(t);
    const Bytes file = qz_test::read_bytes(path);
    const size_t at = qz_test::u16_at(file, 8) + qz_test::u16_at(file, 10) * record + offset;
    return Bytes(file.begin() + at, file.begin() + at + width);
}

std::vector<Tqz_dbf_value> column(Tqz_dbf_rw* t, unsigned field) {
    std::vector<Tqz_dbf_value> out(qz_dbf_get_nr(t));
    EXPECT_EQ(qz_dbf_get_column_values(t, field, 0, qz_dbf_get_nr(t), out.data()),
              long(out.size()));
    return out;
}

// New values read back, and the images of a field sort (as bytes) in the
// order of their values, as dBASE 7 keeps them; -0.0 stays -0.0. Refused
// values leave the file as it was; + is the table's own.
TEST(Dbase7Write, NewValuesReadBackInOrderAndRefusalsKeepTheCell) {
    qz_test::Temp_dir dir;
    const std::string path = copy_of("php-xbase/dBase/dBaseVII.dbf", dir),
                      doubles = copy_of("php-xbase/dBase/dBaseVII_double.dbf", dir);
    Tqz_dbf_rw *t = typed_test::open_ex(path, 0), *o = typed_test::open_ex(doubles, 0);
    const unsigned f_int = qz_dbf_find_field_index_w(t, L"INTEGER"),
                   f_ts = qz_dbf_find_field_index_w(t, L"DATETIME"),
                   f_auto = qz_dbf_find_field_index_w(t, L"AUTO_INC");
    // 0001-01-01, 1601-01-01, 1969-12-31T23:59:59.999, 1970-01-01,
    // 2020-02-20T20:20:20.123, 9999-12-31T23:59:59.999, the last millisecond
    // the double holds exactly (2^53 since day 1).
    const long long ints[] = {std::numeric_limits<int32_t>::min() + 1, -65536, -1, 0, 1, 255,
                              std::numeric_limits<int32_t>::max()};
    const long long stamps[] = {-62135596800000LL, -11644473600000LL, -1, 0, 1582230020123LL,
                                253402300799999LL, 8945063571540992LL};
    using lim = std::numeric_limits<double>;
    const double reals[] = {-lim::max(),       -1e10, -1.5, -1e-300, -0.0, 0.0,
                            lim::denorm_min(), 0.1,   2.5,  1e300};
    // clang-format off
    const struct { Tqz_dbf_rw* t; const std::string& path; unsigned field; int kind; size_t count; }
        series[] = {
            {t, path, f_int, QZ_DBF_VALUE_INT, 7}, {t, path, f_ts, QZ_DBF_VALUE_DATETIME, 7},
            {o, doubles, 0, QZ_DBF_VALUE_DOUBLE, 10}};
    // clang-format on
    for (const auto& s : series) {
        std::vector<Bytes> images;
        for (size_t k = 0; k < s.count; ++k) {
            const Tqz_dbf_value v{s.kind, s.kind == QZ_DBF_VALUE_INT ? ints[k] : stamps[k % 7],
                                  s.kind == QZ_DBF_VALUE_DOUBLE ? reals[k] : 0, nullptr, 0};
            Tqz_dbf_value back;
            EXPECT_TRUE(qz_dbf_set_value(s.t, s.field, 1, &v)) << qz_dbf_last_error_message();
            EXPECT_TRUE(qz_dbf_get_value(s.t, s.field, 1, &back));
            EXPECT_EQ(shown(back), shown(v));
            EXPECT_EQ(std::signbit(back.d), std::signbit(v.d));
            images.push_back(cell_bytes(s.t, s.path, 1, qz_dbf_get_field_offset(s.t, s.field), 8));
        }
        EXPECT_TRUE(std::is_sorted(images.begin(), images.end())) << s.kind;
        if (s.kind != QZ_DBF_VALUE_INT) continue;
        EXPECT_EQ(Bytes(images[3].begin(), images[3].begin() + 4), (Bytes{0x80, 0, 0, 0}));
    }
    // A date is its midnight; null is the empty cell (zeros).
    Tqz_dbf_value date{QZ_DBF_VALUE_DATE, 20200220, 0.0, nullptr, 0},
        null{QZ_DBF_VALUE_NULL, 0, 0.0, nullptr, 0}, back;
    ASSERT_TRUE(qz_dbf_set_value(t, f_ts, 1, &date));
    ASSERT_TRUE(qz_dbf_get_value(t, f_ts, 1, &back));
    EXPECT_EQ(back.i, 1582156800000LL);
    ASSERT_TRUE(qz_dbf_set_value(t, f_int, 2, &null));
    EXPECT_EQ(typed_test::read_shown(t, f_int, 2), "null");
    EXPECT_EQ(cell_bytes(t, path, 2, qz_dbf_get_field_offset(t, f_int), 4), Bytes(4, 0));
    // Refusals: out of range (the smallest integer's image would be the
    // empty cell), the wrong kind, before day 1 or past 2^53 ms, not finite,
    // autoincrement.
    const Bytes kept = qz_test::read_bytes(path), kept_o = qz_test::read_bytes(doubles);
    // clang-format off
    const struct { Tqz_dbf_rw* t; unsigned field; Tqz_dbf_value v; } refused[] = {
        {t, f_int, {QZ_DBF_VALUE_INT, 1LL << 31, 0.0, nullptr, 0}},
        {t, f_int, {QZ_DBF_VALUE_INT, -(1LL << 31), 0.0, nullptr, 0}},
        {t, f_int, {QZ_DBF_VALUE_BYTES, 0, 0.0, "12", 2}},
        {t, f_ts, {QZ_DBF_VALUE_DATETIME, -62135596800001LL, 0.0, nullptr, 0}},
        {t, f_ts, {QZ_DBF_VALUE_DATETIME, 8945063571540993LL, 0.0, nullptr, 0}},
        {t, f_auto, {QZ_DBF_VALUE_INT, 9, 0.0, nullptr, 0}},
        {o, 0, {QZ_DBF_VALUE_DOUBLE, 0, lim::infinity(), nullptr, 0}}};
    // clang-format on
    for (const auto& r : refused) {
        EXPECT_FALSE(qz_dbf_set_value(r.t, r.field, 0, &r.v)) << r.field;
        EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_VALUE) << r.field;
    }
    qz_dbf_close(t);
    qz_dbf_close(o);
    EXPECT_TRUE(qz_test::read_bytes(path) == kept && qz_test::read_bytes(doubles) == kept_o);
}

// @ into @ has no 32-byte form, nor O into D: refused whole, nothing
// written, the field named. @ into C gives the datetime's text; O kept as O
// is the same double bit for bit, into N rounded to its decimals; the new
// version byte follows the memo file. (Every cell of the dBASE 7 corpus
// tables restructured is compared with the peers' reading by the interop
// tests.)
TEST(Dbase7Restruct, EveryKindConvertedOrRefusedWhole) {
    // clang-format off
    const struct { const char* table; const char* field; char type; unsigned char flen;
        char dlen; bool applies; uint8_t version; } cases[] = {
            {"php-xbase/dBase/dBaseVII.dbf", "DATETIME", '@', 8, 0, false, 0},
            {"php-xbase/dBase/dBaseVII.dbf", "DATETIME", 'C', 23, 0, true, 0x8B},
            {"php-xbase/dBase/dBaseVII_double.dbf", "double", 'O', 8, 0, true, 0x03},
            {"php-xbase/dBase/dBaseVII_double.dbf", "double", 'N', 20, 6, true, 0x03},
            {"php-xbase/dBase/dBaseVII_double.dbf", "double", 'D', 8, 0, false, 0}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.table) + " " + c.type);
        qz_test::Temp_dir dir;
        const std::string path = copy_of(c.table, dir);
        const Bytes before = qz_test::read_bytes(path);
        Tqz_dbf_rw* t = typed_test::open_ex(path, QZ_DBF_OPEN_READ_ONLY);
        const unsigned changed = qz_dbf_find_field_index_w(t, qz_test::widen(c.field).c_str());
        const std::vector<Tqz_dbf_value> was = column(t, changed);  // no texts: @ and O
        qz_dbf_close(t);
        Tqz_dbf_rstrct* d = qz_dbf_restruct_create(path.c_str());
        ASSERT_NE(d, nullptr);
        Tqz_dbf_field* field = qz_dbf_restruct_get_field(d, static_cast<int>(changed));
        field->type = c.type, field->flen = c.flen, field->dlen = c.dlen;
        EXPECT_EQ(qz_dbf_restruct_apply(d), c.applies) << qz_dbf_last_error_message();
        qz_dbf_restruct_destroy(d);
        if (!c.applies) {
            EXPECT_EQ(qz_dbf_last_error(), QZ_DBF_ERR_VALUE);
            EXPECT_NE(std::string(qz_dbf_last_error_message()).find(c.field), std::string::npos);
            EXPECT_TRUE(qz_test::read_bytes(path) == before);
            continue;
        }
        EXPECT_EQ(qz_test::read_bytes(path)[0], c.version);
        t = typed_test::open_ex(path, QZ_DBF_OPEN_READ_ONLY);
        const std::vector<Tqz_dbf_value> now = column(t, changed);
        for (size_t r = 0; r < now.size(); ++r) {
            const std::string text = now[r].text ? std::string(now[r].text, now[r].length) : "";
            char stamp[8];
            std::snprintf(stamp, sizeof stamp, "T.%03lld", was[r].i % 1000);
            if (c.type == 'C') {  // 2020-02-20T20:20:20.000 and the like
                EXPECT_EQ(text.size() == 23 ? text.substr(10, 1) + text.substr(19) : text, stamp);
            } else if (was[r].kind != QZ_DBF_VALUE_NULL) {
                EXPECT_NEAR(now[r].kind == QZ_DBF_VALUE_DOUBLE ? now[r].d : double(now[r].i),
                            was[r].d,
                            c.type == 'O' ? 0 : 5e-7 * std::max(1.0, std::fabs(was[r].d)));
            }
        }
        qz_dbf_close(t);
    }
}

// Visual FoxPro V and Q fields: a value shorter than the field is kept as
// its bytes, zeros, and its length in the field's last byte, with the
// field's length bit set in _NullFlags; a value of the full width clears the
// bit. Both read back exactly (zeros and trailing blanks included); wider
// values are refused.
TEST(Varying, ShortValuesKeepTheirLengthInTheLastByte) {
    qz_test::Temp_dir dir;
    // Bits: V's length bit 0, its null bit 1 (nullable); Q's length bit 2.
    const std::string path = typed_test::make_table(
        dir, "vary", 0x30,
        {{"NAME", 'V', 6, 0, 0x02}, {"BIN", 'Q', 4, 0, 0x04}, {"_NullFlags", '0', 1, 0, 0x05}}, 1,
        typed_test::memo_kind::none);
    // cell the field's bytes, then the _NullFlags byte
    // clang-format off
    const struct { unsigned field; int kind; std::string value; Bytes cell; } steps[] = {
        {0, QZ_DBF_VALUE_TEXT, "ab", {'a', 'b', 0, 0, 0, 2, 0x01}},
        {0, QZ_DBF_VALUE_TEXT, "a  ", {'a', ' ', ' ', 0, 0, 3, 0x01}},
        {0, QZ_DBF_VALUE_TEXT, "sixsix", {'s', 'i', 'x', 's', 'i', 'x', 0x00}},
        {0, QZ_DBF_VALUE_TEXT, "", {0, 0, 0, 0, 0, 0, 0x01}},
        {0, QZ_DBF_VALUE_NULL, "", {' ', ' ', ' ', ' ', ' ', ' ', 0x03}},
        {1, QZ_DBF_VALUE_BYTES, std::string("\0\1", 2), {0, 1, 0, 2, 0x07}},
        {1, QZ_DBF_VALUE_BYTES, std::string("\0\1\2\3", 4), {0, 1, 2, 3, 0x03}},
        {0, QZ_DBF_VALUE_TEXT, "x", {'x', 0, 0, 0, 0, 1, 0x01}}};
    // clang-format on
    Tqz_dbf_rw* t = typed_test::open_ex(path, 0);
    for (const auto& s : steps) {
        Tqz_dbf_value v{s.kind, 0, 0.0, s.value.data(), s.value.size()};
        ASSERT_TRUE(qz_dbf_set_value(t, s.field, 0, &v)) << qz_dbf_last_error_message();
        EXPECT_EQ(typed_test::read_shown(t, s.field, 0), shown(v));
        Bytes got = cell_bytes(t, path, 0, 1 + 6 * s.field, s.cell.size() - 1);
        got.push_back(cell_bytes(t, path, 0, 11, 1)[0]);
        EXPECT_EQ(got, s.cell) << s.value;
    }
    const std::string five("12345");
    Tqz_dbf_value wide{QZ_DBF_VALUE_BYTES, 0, 0.0, five.data(), five.size()};
    const Bytes kept = qz_test::read_bytes(path);
    EXPECT_FALSE(qz_dbf_set_value(t, 1, 0, &wide));
    qz_dbf_close(t);
    EXPECT_TRUE(qz_test::read_bytes(path) == kept);
    // A length byte that claims the whole width (or more) is not text: the
    // value is the bytes before it.
    Bytes file = kept;
    const size_t at = qz_test::u16_at(file, 8) + 1;
    for (uint8_t claim : {6, 7}) {
        const Bytes cell = {'a', 'b', 'c', 'd', 'e', claim};
        std::copy(cell.begin(), cell.end(), file.begin() + at);
        file[at + 10] = 0x01;
        qz_test::write_bytes(path, file);
        t = typed_test::open_ex(path, 0);
        EXPECT_EQ(typed_test::read_shown(t, 0, 0),
                  shown(Tqz_dbf_value{QZ_DBF_VALUE_TEXT, 0, 0.0, "abcde", 5}));
        qz_dbf_close(t);
    }
}

// pr90.dbf has a C field NOTE of 300 bytes (length byte 44, high byte in
// the decimals byte). The classic length getter keeps answering the length
// byte; the widths, the image offsets and the typed reads take the whole
// field, so the fields after it read right; a header whose record length
// does not confirm the long field is read by the length bytes. Writes through
// qz_dbf_set_value and qz_dbf_set_cell_utf8 land where the reads read: the
// long field takes text up to its whole width and no more, every other cell
// keeps its value, on disk and in a loaded copy saved, and dbfread reads the
// same.
TEST(WideFields, WidthsOffsetsReadsAndWritesFollowTheHighByte) {
    for (const char* mode : {"unconfirmed", "disk", "memory"}) {
        SCOPED_TRACE(mode);
        const bool confirmed = *mode != 'u', memory = *mode == 'm';
        qz_test::Temp_dir dir, untouched;
        const std::string path = copy_of("php-xbase/foxpro/pr90.dbf", dir),
                          original = copy_of("php-xbase/foxpro/pr90.dbf", untouched);
        Bytes bytes = qz_test::read_bytes(path);
        bytes[10] = static_cast<uint8_t>(bytes[10] - !confirmed);  // one byte short of the widths
        qz_test::write_bytes(path, bytes);
        Tqz_dbf_memory* m = memory ? qz_dbf_mem_load(path.c_str()) : nullptr;
        Tqz_dbf_rw* t = typed_test::open_ex(path, confirmed ? 0 : QZ_DBF_OPEN_READ_ONLY);
        const unsigned nf = qz_dbf_get_nf(t), nr = qz_dbf_get_nr(t),
                       note = qz_dbf_find_field_index_w(t, L"NOTE");
        EXPECT_EQ(qz_dbf_get_field_flen(t, note), 44u);  // the length byte, as ever
        EXPECT_EQ(qz_dbf_get_field_dlen(t, note), 1);
        EXPECT_EQ(qz_dbf_get_field_width(t, note), confirmed ? 300u : 44u);
        unsigned at = 1;  // the widths tile the record image after the deletion flag
        for (unsigned f = 0; f < nf; at += qz_dbf_get_field_width(t, f++))
            EXPECT_EQ(qz_dbf_get_field_offset(t, f), memory ? 0 : at) << f;
        EXPECT_EQ(at == qz_dbf_get_record_size(t), confirmed && !memory);
        if (!confirmed) {
            qz_dbf_close(t);
            continue;
        }
        // Every NOTE cell reads as the image holds it, some past byte 255;
        // every PRI cell is a logical.
        std::vector<std::vector<std::string>> cells(nf, std::vector<std::string>(nr));
        std::vector<unsigned char> image(qz_dbf_get_record_size(t));
        size_t longest = 0;
        for (unsigned r = 0; r < nr; ++r) {
            for (unsigned f = 0; f < nf; ++f) cells[f][r] = typed_test::read_shown(t, f, r);
            const std::string p = cells[qz_dbf_find_field_index_w(t, L"PRI")][r];
            EXPECT_TRUE(p == "true" || p == "false" || p == "null") << r;
            if (memory) continue;
            ASSERT_EQ(qz_dbf_get_record_images(t, r, 1, image.data(), image.size()), 1u);
            const char* bytes = reinterpret_cast<const char*>(image.data());
            std::string cell(bytes + qz_dbf_get_field_offset(t, note), 300);
            cell.erase(cell.find_last_not_of(' ') + 1);
            EXPECT_EQ(cells[note][r], "7:" + cell) << r;
            longest = std::max(longest, cell.size());
        }
        EXPECT_EQ(longest > 44, !memory);
        // utf8 through qz_dbf_set_cell_utf8, else qz_dbf_set_value
        // clang-format off
        const struct { const wchar_t* field; unsigned record; bool utf8; std::string text; }
            writes[] = {
                {L"NOTE", 0, false, std::string(270, 'w') + "end"},
                {L"NOTE", 3, true, std::string(299, 'u') + "!"}, {L"UNAME", 1, false, "alice"},
                {L"OTH1", 1, true, "bob"}, {L"SUBJECT", 2, true, "subject"},
                {L"TEMP18", 4, false, "Z"}, {L"N2", 4, false, ""}};
        // clang-format on
        std::string changes;
        for (const auto& w : writes) {
            const unsigned f = qz_dbf_find_field_index_w(t, w.field);
            ASSERT_LT(f, nf);
            const Tqz_dbf_value v =
                w.text.empty()
                    ? Tqz_dbf_value{QZ_DBF_VALUE_INT, 42, 0.0, nullptr, 0}
                    : Tqz_dbf_value{QZ_DBF_VALUE_TEXT, 0, 0.0, w.text.c_str(), w.text.size()};
            EXPECT_TRUE(w.utf8 ? qz_dbf_set_cell_utf8(t, f, w.record, w.text.c_str(), w.text.size())
                               : qz_dbf_set_value(t, f, w.record, &v))
                << qz_dbf_last_error_message();
            cells[f][w.record] = w.text.empty() ? "2:42" : "7:" + w.text;
            changes += " " + std::string(w.field, w.field + std::wcslen(w.field)) + ":" +
                       std::to_string(w.record) + ":" + (w.text.empty() ? "42" : w.text);
        }
        // One byte past the whole width is refused both ways.
        const std::string too_long(301, 'x');
        const Tqz_dbf_value v{QZ_DBF_VALUE_TEXT, 0, 0.0, too_long.c_str(), too_long.size()};
        EXPECT_FALSE(qz_dbf_set_value(t, note, 1, &v));
        EXPECT_FALSE(qz_dbf_set_cell_utf8(t, note, 1, too_long.c_str(), too_long.size()));
        for (int pass = 0; pass < 2; ++pass) {  // written, then read again from the file
            for (unsigned f = 0; f < nf; ++f)
                for (unsigned r = 0; r < nr; ++r)
                    EXPECT_EQ(typed_test::read_shown(t, f, r), cells[f][r]) << f << " " << r;
            char text[400];
            EXPECT_EQ(qz_dbf_get_cell_utf8(t, note, 3, text, sizeof text), 300);
            EXPECT_EQ(std::string(text), std::string(299, 'u') + "!");
            qz_dbf_close(t);
            if (m) {
                ASSERT_TRUE(qz_dbf_mem_save(m)) << qz_dbf_last_error_message();
                qz_dbf_mem_free(m);
                m = nullptr;
            }
            t = typed_test::open_ex(path, QZ_DBF_OPEN_READ_ONLY);
        }
        qz_dbf_close(t);
        if (!qz_test::have_dbfread()) continue;
        std::string report;
        EXPECT_EQ(qz_test::run("/usr/bin/python3 -c \"import dbfread, sys\n"
                               "a = list(dbfread.DBF(sys.argv[1], load=True))\n"
                               "b = list(dbfread.DBF(sys.argv[2], load=True))\n"
                               "for w in sys.argv[3:]:\n"
                               "    name, r, text = w.split(':', 2)\n"
                               "    a[int(r)][name] = int(text) if name == 'N2' else text\n"
                               "print([(r, k) for r in range(len(a)) for k in a[r] if a[r][k] "
                               "!= b[r][k]])\n"
                               "sys.exit(a != b)\" '" +
                                   original + "' '" + path + "'" + changes + " 2>&1",
                               &report),
                  0)
            << report;
    }
}

}  // namespace
