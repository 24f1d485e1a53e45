// Record images: whole records copied out of a table file for readers that
// parse columns themselves.
#include "api/guard.h"
#include "api/table_rw.h"
#include "dbf/disk_table.h"
#include "dbf/field_widths.h"
#include "qzk_file_dbf_ext.h"

using qz::api::guarded;

extern "C" {

QZ_DBF_API unsigned int qz_dbf_get_record_size(Tqz_dbf_rw* h) {
    return guarded(0u, [&] {
        Tqz_dbf_disk* d = h ? h->file_table() : nullptr;
        return d ? d->get_record_size() : 0u;
    });
}

QZ_DBF_API unsigned int qz_dbf_get_field_offset(Tqz_dbf_rw* h, unsigned int field) {
    return guarded(0u, [&] {
        Tqz_dbf_disk* d = h ? h->file_table() : nullptr;
        if (!d || field >= d->get_nf()) return 0u;
        const qz::dbf::field_widths w = qz::dbf::widths_of(*d);
        return w.wide ? 1 + w.offset[field] : d->get_field_offset(field);
    });
}

QZ_DBF_API unsigned int qz_dbf_get_field_width(Tqz_dbf_rw* h, unsigned int field) {
    return guarded(0u, [&] {
        auto* b = h ? dynamic_cast<Tqz_dbf_basic*>(h->current()) : nullptr;
        if (!b || field >= b->get_nf()) return 0u;
        return qz::dbf::widths_of(*b).width[field];
    });
}

QZ_DBF_API unsigned int qz_dbf_get_record_images(Tqz_dbf_rw* h, unsigned int first,
                                                 unsigned int count, void* buffer, size_t size) {
    return guarded(0u, [&] {
        Tqz_dbf_disk* d = h ? h->file_table() : nullptr;
        const size_t rl = d ? d->get_record_size() : 0;
        if (rl == 0 || buffer == nullptr) return 0u;
        const size_t fit = size / rl;
        if (fit < count) count = static_cast<unsigned int>(fit);
        return d->get_record_images(first, count, static_cast<unsigned char*>(buffer));
    });
}

}  // extern "C"
