// Cells written as typed values: the value checked against the field's
// type, converted to the table's encoding, and stored as the field's bytes
// (memo values appended to the memo file, nulls in the null flags).
#include <cstring>
#include <string>

#include "api/cell_errors.h"
#include "api/guard.h"
#include "api/table_rw.h"
#include "api/value_read.h"
#include "dbf/basic_table.h"
#include "dbf/field_widths.h"
#include "dbf/null_flags.h"
#include "dbf/typed_cell.h"
#include "errors/last_error.h"
#include "memo/dbt_rw.h"
#include "dbf/dbase7_descriptors.h"
#include "memo/fpt_rw.h"
#include "memo/memo_blocks.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

namespace {

class cell_writer {
  public:
    cell_writer(Tqz_dbf_rw* h, qz::api::cell_reader& r, unsigned int field, unsigned int record)
        : handle(h), reader(r), table(*r.basic()), field(field), record(record) {
        layout.type = table.get_field_letter(field);
        layout.length = table.get_field_flen(field);
        layout.decimals = static_cast<signed char>(table.get_field_dlen(field));
        // A character field over 255 bytes keeps its length's high byte in
        // the decimals byte: its whole width, no decimals.
        unsigned int offset = 0, width = 0;
        if (qz::dbf::field_span(table, field, offset, width) && width != layout.length) {
            layout.length = width;
            layout.decimals = 0;
        }
        const uint8_t version = table.get_header()[0];
        layout.visual_foxpro = version == 0x30 || version == 0x31 || version == 0x32;
        layout.dbase7 = qz::dbf::is_dbase7_version(version);
        nulls.read_layout(table);
    }

    bool write(const Tqz_dbf_value& v) {
        if (v.kind == QZ_DBF_VALUE_NULL) return write_null();
        if (v.kind < QZ_DBF_VALUE_NULL || v.kind > QZ_DBF_VALUE_BYTES)
            return fail(qz::errors::argument, "unknown value kind " + std::to_string(v.kind));
        if ((v.kind == QZ_DBF_VALUE_TEXT || v.kind == QZ_DBF_VALUE_BYTES) && !v.text &&
            v.length > 0)
            return fail(qz::errors::argument, "a text value without its text");
        std::string table_text;
        if (v.kind == QZ_DBF_VALUE_TEXT) {
            bool ok = true;
            table_text = reader.from_utf8(std::string(v.text ? v.text : "", v.length), ok);
            if (!ok)
                return fail(qz::errors::value, "the text holds characters the table's encoding (" +
                                                   reader.encoding() + ") cannot hold");
        }
        if (qz::dbf::is_memo_type(layout)) return write_memo(v, table_text);
        std::string image, why;
        if (!qz::dbf::encode_cell(layout, v, table_text, image, why))
            return fail(qz::errors::value, why);
        // A varying field (V, Q) with a length flag keeps a shorter value
        // as its bytes, zeros, and its length in the last byte.
        bool shorter = false;
        if ((layout.type == 'V' || layout.type == 'Q') && nulls.length_bit(field) >= 0 &&
            (v.kind == QZ_DBF_VALUE_TEXT || v.kind == QZ_DBF_VALUE_BYTES)) {
            const size_t n = v.kind == QZ_DBF_VALUE_TEXT ? table_text.size() : v.length;
            if (n < layout.length) {
                image.replace(n, std::string::npos, layout.length - n, '\0');
                image.back() = static_cast<char>(n);
                shorter = true;
            }
        }
        return store(image) && set_bit(nulls.null_bit(field), false) &&
               set_bit(nulls.length_bit(field), shorter);
    }

  private:
    bool write_null() {
        if (nulls.null_bit(field) >= 0)
            return store(qz::dbf::blank_image(layout)) && set_bit(nulls.null_bit(field), true);
        const char t = layout.type;
        if (qz::dbf::blank_reads_null(layout) || t == 'C' || t == 'V')
            return store(qz::dbf::blank_image(layout)) && set_bit(nulls.length_bit(field), false);
        return fail(qz::errors::value,
                    std::string("a field of type ") + t + " without a null flag cannot be null");
    }

    bool write_memo(const Tqz_dbf_value& v, const std::string& table_text) {
        uint32_t type = qz::memo::fpt_text;
        std::string bytes;
        if (v.kind == QZ_DBF_VALUE_TEXT && layout.type == 'M') {
            bytes = table_text;
        } else if (v.kind == QZ_DBF_VALUE_BYTES || v.kind == QZ_DBF_VALUE_TEXT) {
            bytes = v.kind == QZ_DBF_VALUE_TEXT ? table_text : std::string(v.text, v.length);
            // Bytes are kept as a picture block (read back as bytes), an OLE
            // field's as an object block.
            type = layout.type == 'G' ? qz::memo::fpt_object : qz::memo::fpt_picture;
        } else {
            return fail(qz::errors::value, std::string("a memo field of type ") + layout.type +
                                               " takes text or bytes");
        }
        const auto storage = handle->current_storage();
        if (storage != Tqz_dbf_rw::storage::disk && storage != Tqz_dbf_rw::storage::memory)
            return fail(qz::errors::memo, "memo values are written only to dBASE tables");
        if (handle->is_read_only())
            return fail(qz::errors::permission, "the table is open read-only");
        if (storage == Tqz_dbf_rw::storage::memory) reopen_memo_for_writing();
        std::string why;
        uint32_t block = 0;
        bool ok = false;
        if (Tqz_fpt_rw* fpt = table.get_fpt())
            ok = qz::memo::append_memo(*fpt, qz::memo::layout::fpt, bytes, type, block, why);
        else if (Tqz_dbt_rw* dbt = table.get_dbt())
            ok = qz::memo::append_memo(*dbt, qz::memo::dbt_layout_of(table.get_header()[0]), bytes,
                                       type, block, why);
        else
            return fail(qz::errors::memo, "the table has no memo file");
        if (!ok) return fail(qz::errors::memo, why);
        const std::string image = qz::dbf::memo_block_image(layout, block);
        if (layout.length != 4 && image.find_first_not_of(' ') == std::string::npos)
            return fail(qz::errors::memo, "the memo's block number does not fit the field");
        return store(image) && set_bit(nulls.null_bit(field), false);
    }

    // A loaded (memory) table reads its memo file opened read-only; it holds
    // the table's writer lock, so the file is opened again for appending.
    // Should that fail, it is opened for reading as before (and the append
    // then fails with its reason).
    void reopen_memo_for_writing() {
        const wchar_t* path = handle->get_path().c_str();
        if (Tqz_fpt_rw* fpt = table.get_fpt()) {
            if (!fpt->is_writable() && !table.open_fpt(path, false)) table.open_fpt(path, true);
        } else if (Tqz_dbt_rw* dbt = table.get_dbt()) {
            if (!dbt->is_writable() && !table.open_dbt(path, false)) table.open_dbt(path, true);
        }
    }

    bool store(const std::string& image) {
        if (handle->is_read_only())
            return fail(qz::errors::permission, "the table is open read-only");
        if (!table.set_cell_bytes(field, record, image.data(), image.size()))
            return fail(qz::errors::io, "the cell could not be written");
        return true;
    }

    bool set_bit(int bit, bool on) {
        if (bit < 0) return true;
        if (!nulls.set(table, record, bit, on))
            return fail(qz::errors::io, "the null flags could not be written");
        return true;
    }

    bool fail(int code, const std::string& why) {
        const char* name = table.get_field_name(field);
        qz::errors::set(code, handle->get_path(),
                        std::string("field ") + (name ? name : "?") + ", record " +
                            std::to_string(record) + ": " + why);
        return false;
    }

    Tqz_dbf_rw* handle;
    qz::api::cell_reader& reader;
    Tqz_dbf_basic& table;
    unsigned int field, record;
    qz::dbf::cell_layout layout;
    qz::dbf::null_flags nulls;
};

}  // namespace

extern "C" {

QZ_DBF_API bool qz_dbf_set_value(Tqz_dbf_rw* h, unsigned int field, unsigned int record,
                                 const Tqz_dbf_value* v) {
    return guarded(false, [&] {
        qz::api::cell_reader* reader = qz::api::cell_reader::of(h);
        if (!reader) return false;
        Tqz_dbf_basic* b = reader->basic();
        if (field >= b->get_nf() || !b->has_record(record)) {
            qz::api::cell_failed(h, b, field, record, nullptr);
            return false;
        }
        if (!v) {
            qz::errors::set(qz::errors::argument, "no value");
            return false;
        }
        return cell_writer(h, *reader, field, record).write(*v);
    });
}

}  // extern "C"
