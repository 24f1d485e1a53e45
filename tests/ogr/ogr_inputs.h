// Sources for the OGR tests, made with ogr2ogr from one small CSV table:
// a two-layer GeoPackage, a GeoJSON file, a CSV file (no type sidecar) and a
// shapefile attribute table (.dbf, UTF-8).
#pragma once

#include <functional>
#include <string>

#include "test_support.h"

namespace qz_ogr_test {

// The people table: id Integer(6), name String(12), score Real(10.3),
// flag Integer(1), note String(20); 7 records, score of record 4 unset.
constexpr unsigned people_count = 7;
struct Person {
    int id;
    const char* name;
    double score;
    int flag;
};
extern const Person people[people_count];

struct Inputs {
    Inputs();
    qz_test::Temp_dir dir;
    std::string gpkg;     // layers "people" and "towns" (town, pop; 3 records)
    std::string geojson;  // people
    std::string csv;      // people, every field text
    std::string dbf;      // people
    std::string shp;      // towns with points: towns.shp, .shx and .dbf
    bool made = false;
};
const Inputs& inputs();  // made once per process

// What `run` writes on file descriptor 2.
std::string stderr_of(const std::function<void()>& run);

}  // namespace qz_ogr_test
