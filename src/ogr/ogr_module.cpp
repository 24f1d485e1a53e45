#include "ogr/ogr_module.h"

#include <mutex>
#include <string>
#include <vector>

#include "support/dynamic_module.h"

namespace qz::ogr {

namespace {

const char module_file[] = "qzk_file_dbf_ogr.so";

const qz_ogr_module_entry* load() {
    // Beside the library (its build folder, or <prefix>/lib once
    // installed), then the folder a static build names.
    std::vector<std::string> candidates;
    const std::string own = support::folder_of_code(reinterpret_cast<const void*>(&module));
    if (!own.empty()) candidates.push_back(own + "/" + module_file);
    if (const char* other = module_fallback_folder())
        candidates.push_back(std::string(other) + "/" + module_file);
    std::string error;
    using entry_fn = const qz_ogr_module_entry* (*)();
    auto fn = reinterpret_cast<entry_fn>(
        support::load_module_entry(candidates, "qz_dbf_ogr_module_entry", error));
    const qz_ogr_module_entry* e = fn ? fn() : nullptr;
    return e && e->version == QZ_OGR_MODULE_VERSION ? e : nullptr;
}

}  // namespace

const qz_ogr_module_entry* module() {
    static std::once_flag once;
    static const qz_ogr_module_entry* entry = nullptr;
    std::call_once(once, [] { entry = load(); });
    return entry;
}

}  // namespace qz::ogr
