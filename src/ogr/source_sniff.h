// Telling a table file from the other sources OGR reads, before opening.
#pragma once

#include <string>

namespace qz::ogr {

// Whether the file at `utf8_path` is a source that OGR reads and that is not
// a dBASE table: a GeoPackage, a GeoJSON or CSV file, a shapefile's .shp and
// the like. A path
// named ".dbf", a file whose first bytes look like a dBASE header, and
// anything OGR does not recognise answer false, so those are read as table
// files (which takes no GDAL call for a ".dbf").
bool is_other_vector_source(const std::string& utf8_path);

}  // namespace qz::ogr
