#include "ogr_inputs.h"

#include <unistd.h>

#include <cstdio>
#include <fcntl.h>
#include <fstream>

namespace qz_ogr_test {

const Person people[people_count] = {
    {1, "Anna", 12.5, 1}, {2, "boris", -3.25, 0}, {3, u8"Сергей", 0, 1}, {4, "Dora", 100.125, 0},
    {5, "Eve", 0, 1},     {6, "Fred", 7, 0},      {7, "Gus", 8, 1},
};

namespace {

bool ogr2ogr(const std::string& args) {
    return qz_test::run("ogr2ogr " + args + " 2>/dev/null") == 0;
}

}  // namespace

Inputs::Inputs() {
    const std::string csv_in = dir.file("people.csv");
    std::ofstream(csv_in) << "id,name,score,flag,note\n"
                             "1,Anna,12.5,1,alpha\n"
                             "2,boris,-3.25,0,\n"
                          << u8"3,Сергей,0,1,Город\n"
                          << "4,Dora,100.125,0,  padded  \n"
                             "5,Eve,,1,omega\n"
                             "6,Fred,7,0,x\n"
                             "7,Gus,8,1,y\n";
    std::ofstream(dir.file("people.csvt"))
        << "Integer(6),String(12),Real(10.3),Integer(1),String(20)\n";
    const std::string towns = dir.file("towns.csv");
    std::ofstream(towns) << "town,pop\nOslo,700000\nBergen,285000\nTromso,77000\n";
    std::ofstream(dir.file("towns.csvt")) << "String(16),Integer(9)\n";

    const std::string points = dir.file("points.csv");
    std::ofstream(points)
        << "WKT,town,pop\n\"POINT (10.7 59.9)\",Oslo,700000\n"
           "\"POINT (5.3 60.4)\",Bergen,285000\n\"POINT (18.9 69.6)\",Tromso,77000\n";
    gpkg = dir.file("two.gpkg");
    geojson = dir.file("people.geojson");
    csv = dir.file("plain.csv");
    dbf = dir.file("people.dbf");
    shp = dir.file("towns.shp");
    made = ogr2ogr("-f GPKG " + gpkg + " " + csv_in + " -nln people") &&
           ogr2ogr("-update -f GPKG " + gpkg + " " + towns + " -nln towns") &&
           ogr2ogr("-f GeoJSON " + geojson + " " + csv_in) &&
           ogr2ogr("-f CSV " + csv + " " + csv_in) &&
           ogr2ogr("-f \"ESRI Shapefile\" -lco ENCODING=UTF-8 " + dbf + " " + csv_in) &&
           ogr2ogr("-f \"ESRI Shapefile\" " + shp + " " + points);
}

Stderr_capture::Stderr_capture() {
    char name[] = "/tmp/qz_stderr_XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) return;
    file = name;
    std::fflush(stderr);
    saved = dup(2);
    dup2(fd, 2);
    ::close(fd);
}

Stderr_capture::~Stderr_capture() {
    take();
}

std::string Stderr_capture::take() {
    if (saved < 0) return std::string();
    std::fflush(stderr);
    dup2(saved, 2);
    ::close(saved);
    saved = -1;
    std::ifstream in(file);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(file.c_str());
    return text;
}

}  // namespace qz_ogr_test
