// Sources for the OGR tests, made with ogr2ogr from one small CSV table:
// a two-layer GeoPackage, a GeoJSON file, a CSV file (no type sidecar) and a
// shapefile attribute table (.dbf, UTF-8).
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "test_support.h"

namespace qz_ogr_test {

// The people table: id Integer(6), name String(12), score Real(10.3),
// flag Integer(1), note String(20); 7 records, score of record 4 unset.
constexpr unsigned people_count = 7;
// clang-format off
struct Person { int id; const char* name; double score; int flag; };
inline const Person people[people_count] = {
    {1, "Anna", 12.5, 1}, {2, "boris", -3.25, 0}, {3, u8"Сергей", 0, 1}, {4, "Dora", 100.125, 0},
    {5, "Eve", 0, 1}, {6, "Fred", 7, 0}, {7, "Gus", 8, 1}};
// clang-format on

struct Inputs {
    qz_test::Temp_dir dir;
    std::string gpkg = dir.file("two.gpkg");  // layers "people" and "towns" (town, pop; 3 records)
    std::string geojson = dir.file("people.geojson");  // people
    std::string csv = dir.file("plain.csv");           // people, every field text
    std::string dbf = dir.file("people.dbf");          // people
    std::string shp = dir.file("towns.shp");  // towns with points: towns.shp, .shx and .dbf
    bool made = true;
    Inputs() {
        const std::string people_csv = dir.file("people.csv"), towns = dir.file("towns.csv");
        std::ofstream(people_csv)
            << "id,name,score,flag,note\n1,Anna,12.5,1,alpha\n2,boris,-3.25,0,\n"
            << u8"3,Сергей,0,1,Город\n"
            << "4,Dora,100.125,0,  padded  \n5,Eve,,1,omega\n6,Fred,7,0,x\n"
               "7,Gus,8,1,y\n";
        std::ofstream(dir.file("people.csvt"))
            << "Integer(6),String(12),Real(10.3),Integer(1),String(20)\n";
        std::ofstream(towns) << "town,pop\nOslo,700000\nBergen,285000\nTromso,77000\n";
        std::ofstream(dir.file("towns.csvt")) << "String(16),Integer(9)\n";
        std::ofstream(dir.file("points.csv"))
            << "WKT,town,pop\n\"POINT (10.7 59.9)\",Oslo,700000\n"
               "\"POINT (5.3 60.4)\",Bergen,285000\n\"POINT (18.9 69.6)\",Tromso,77000\n";
        for (const std::string& args :
             {"-f GPKG " + gpkg + " " + people_csv + " -nln people",
              "-update -f GPKG " + gpkg + " " + towns + " -nln towns",
              "-f GeoJSON " + geojson + " " + people_csv, "-f CSV " + csv + " " + people_csv,
              "-f \"ESRI Shapefile\" -lco ENCODING=UTF-8 " + dbf + " " + people_csv,
              "-f \"ESRI Shapefile\" " + shp + " " + dir.file("points.csv")})
            made = made && qz_test::run("ogr2ogr " + args + " 2>/dev/null") == 0;
    }
};

// Made once per process.
inline const Inputs& inputs() {
    static Inputs in;
    return in;
}

// What `run` writes on file descriptor 2.
inline std::string stderr_of(const std::function<void()>& run) {
    char name[] = "/tmp/qz_stderr_XXXXXX";
    const int fd = mkstemp(name), saved = dup(2);
    std::fflush(stderr);
    dup2(fd, 2);
    ::close(fd);
    run();
    std::fflush(stderr);
    dup2(saved, 2);
    ::close(saved);
    std::ifstream in(name);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(name);
    return text;
}

}  // namespace qz_ogr_test
