// The version string of the qzk libraries, set by the build.
#include "qzk_path.h"

extern "C" const char* qz_path_version(void) {
    return QZK_VERSION;
}
