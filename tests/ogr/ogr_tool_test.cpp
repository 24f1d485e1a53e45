// qzdbf info and dump on every kind of source: storage, layers, --layer, and
// a layer dumped as CSV byte for byte as ogr2ogr writes it.
#include <gtest/gtest.h>

#include <string>

#include "ogr_inputs.h"

namespace {

using qz_ogr_test::Inputs;

const Inputs& inputs() {
    static Inputs in;
    return in;
}

std::string qzdbf(const std::string& args, int* status = nullptr) {
    std::string out;
    int s = qz_test::run(std::string(QZDBF_EXE) + " " + args + " 2>&1", &out);
    if (status) *status = s;
    return out;
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(OgrTool, InfoShowsStorageAndLayers) {
    ASSERT_TRUE(inputs().made);
    std::string info = qzdbf("info " + inputs().gpkg);
    EXPECT_TRUE(has(info, "storage   OGR (GPKG)\n")) << info;
    EXPECT_TRUE(has(info, "layers    2\n")) << info;
    EXPECT_TRUE(has(info, "     0  people  (current)\n")) << info;
    EXPECT_TRUE(has(info, "     1  towns\n")) << info;
    EXPECT_TRUE(has(info, "records   7\n")) << info;
    EXPECT_FALSE(has(info, "header")) << "no table header behind OGR";

    info = qzdbf("info --layer 1 " + inputs().gpkg);
    EXPECT_TRUE(has(info, "     1  towns  (current)\n")) << info;
    EXPECT_TRUE(has(info, "records   3\n")) << info;
    EXPECT_TRUE(has(info, "     0  town           C   16    0\n")) << info;

    EXPECT_TRUE(has(qzdbf("info " + inputs().geojson), "storage   OGR (GeoJSON)\n"));
    EXPECT_TRUE(has(qzdbf("info " + inputs().csv), "storage   OGR (CSV)\n"));
    info = qzdbf("info " + inputs().dbf);
    EXPECT_TRUE(has(info, "storage   DBF file\n")) << info;
    EXPECT_TRUE(has(info, "record    50 bytes\n")) << info;

    EXPECT_TRUE(has(qzdbf("info " + inputs().shp), "storage   OGR (ESRI Shapefile)\n"));

    int status = 0;
    EXPECT_TRUE(has(qzdbf("info --layer 2 " + inputs().gpkg, &status), "no layer 2"));
    EXPECT_EQ(status, 2);
    qzdbf("dump --layer x " + inputs().gpkg, &status);
    EXPECT_EQ(status, 2);
    qzdbf("info --layer 1 " + inputs().dbf, &status);
    EXPECT_EQ(status, 2) << "a table file has one layer";
    // Writing commands never go through OGR, whose handles are read-only.
    const auto before = qz_test::read_bytes(inputs().csv);
    EXPECT_TRUE(has(qzdbf("set " + inputs().gpkg + " 0 0 x", &status), "not a dBASE table"));
    EXPECT_EQ(status, 2);
    qzdbf("append " + inputs().csv, &status);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(qz_test::read_bytes(inputs().csv), before);
}

TEST(OgrTool, DumpOfEverySourceAndOfALayerAsOgr2ogrWritesIt) {
    ASSERT_TRUE(inputs().made);
    for (const std::string& path : {inputs().gpkg, inputs().geojson, inputs().csv, inputs().dbf}) {
        std::string out = qzdbf("dump " + path);
        EXPECT_TRUE(has(out, "Gus")) << out;
        EXPECT_TRUE(has(out, u8"Город")) << out;
    }
    std::string ours = qzdbf("dump --layer 1 --csv " + inputs().gpkg);
    std::string theirs;
    ASSERT_EQ(qz_test::run("ogr2ogr -f CSV -lco LINEFORMAT=CRLF -lco STRING_QUOTING=IF_NEEDED "
                           "/vsistdout/ " +
                               inputs().gpkg + " towns",
                           &theirs),
              0);
    EXPECT_EQ(ours, theirs);
    EXPECT_EQ(ours, "town,pop\r\nOslo,700000\r\nBergen,285000\r\nTromso,77000\r\n");
}

}  // namespace
