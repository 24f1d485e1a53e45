#include "ogr/gdal_session.h"

#include <cpl_error.h>
#include <gdal.h>

#include <mutex>

namespace qz::ogr {

void ensure_registered() {
    static std::once_flag once;
    std::call_once(once, [] {
        Quiet_scope quiet;
        GDALAllRegister();
    });
}

Quiet_scope::Quiet_scope() : last_class(CPLGetLastErrorType()), last_number(CPLGetLastErrorNo()) {
    if (last_number != CPLE_None) last_message = CPLGetLastErrorMsg();
    CPLPushErrorHandler(CPLQuietErrorHandler);
}

Quiet_scope::~Quiet_scope() {
    CPLPopErrorHandler();
    if (last_number == CPLE_None)
        CPLErrorReset();
    else
        CPLErrorSetState(static_cast<CPLErr>(last_class), last_number, last_message.c_str());
}

}  // namespace qz::ogr
