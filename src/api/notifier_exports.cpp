// Exports of the table notifier.
#include "api/guard.h"
#include "notify/dbf_notifier.h"
#include "qzk_file_dbf.h"

using qz::api::guarded;

namespace {

// Runs a bracket call with the notifier pinned, so that a client releasing
// the last reference from inside the call does not pull it away under us.
template <class F>
unsigned int pinned(Tqz_dbf_notifier* n, F&& call) {
    return guarded(0u, [&] {
        if (!n || !n->pin()) return 0u;
        unsigned int result = 0;
        try {
            result = call();
        } catch (...) {
            n->unpin();
            throw;
        }
        n->unpin();
        return result;
    });
}

}  // namespace

extern "C" {

QZ_DBF_API Tqz_dbf_notifier* qz_create_dbf_notifier_w(const wchar_t* path) {
    return guarded(static_cast<Tqz_dbf_notifier*>(nullptr),
                   [&] { return Tqz_dbf_notifier::get_instance(path); });
}

QZ_DBF_API void qz_destroy_dbf_notifier(Tqz_dbf_notifier* notifier) {
    guarded([&] { Tqz_dbf_notifier::release(notifier); });
}

QZ_DBF_API Iqz_event_channel* qz_dbf_notifier_get_update_event_channel(Tqz_dbf_notifier* notifier) {
    return guarded(static_cast<Iqz_event_channel*>(nullptr),
                   [&] { return notifier ? notifier->get_update_event_channel() : nullptr; });
}

QZ_DBF_API unsigned int qz_dbf_notifier_begin_update(Tqz_dbf_notifier* notifier) {
    return pinned(notifier, [&] { return notifier->begin_update(); });
}

QZ_DBF_API unsigned int qz_dbf_notifier_end_update(Tqz_dbf_notifier* notifier) {
    return pinned(notifier, [&] { return notifier->end_update(); });
}

}  // extern "C"
