// Where a build whose library code is linked into another program (the
// white-box tests) finds the OGR module: the build folder, given at compile
// time. The shared library gives no such folder and looks beside itself only.
#include "ogr/ogr_module.h"

namespace qz::ogr {

const char* module_fallback_folder() {
#ifdef QZ_OGR_MODULE_FOLDER
    return QZ_OGR_MODULE_FOLDER;
#else
    return nullptr;
#endif
}

}  // namespace qz::ogr
