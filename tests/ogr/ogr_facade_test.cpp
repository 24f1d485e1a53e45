// Tables opened through a handle fall back to OGR: sources that are not
// table files, and table files whose writer lock another handle holds. Bad
// sources give null handles or neutral results, print nothing and leak
// nothing.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "ogr_inputs.h"
#include "qzk_file_dbf.h"
#include "qzk_file_dbf_ext.h"

// Under AddressSanitizer its allocator tells the bytes in use.
#if defined(__SANITIZE_ADDRESS__)
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#define QZ_HEAP_BYTES() __sanitizer_get_current_allocated_bytes()
#endif

namespace {

using qz_ogr_test::inputs;
using qz_ogr_test::stderr_of;

TEST(OgrFallback, SourcesThatAreNotTableFilesAndLockedTableFilesOpenThroughOgr) {
    ASSERT_TRUE(inputs().made);
    // Source, storage, driver, layers.
    const std::tuple<std::string, Tqz_dbf_storage, const char*, unsigned> cases[] = {
        {inputs().gpkg, qz_dbf_storage_ogr, "GPKG", 2},
        {inputs().geojson, qz_dbf_storage_ogr, "GeoJSON", 1},
        {inputs().csv, qz_dbf_storage_ogr, "CSV", 1},
        {inputs().dbf, qz_dbf_storage_file, "", 1},
        {inputs().shp, qz_dbf_storage_ogr, "ESRI Shapefile", 1}};  // its attributes
    for (const auto& [path, storage, driver, layers] : cases) {
        SCOPED_TRACE(path);
        for (bool read_only : {true, false}) {
            Tqz_dbf_rw* h = qz_dbf_open(path.c_str(), read_only, false);
            ASSERT_TRUE(h && qz_dbf_get_storage(h) == storage && qz_dbf_get_nl(h) == layers);
            EXPECT_STREQ(qz_dbf_get_ogr_driver(h), driver);
            const bool towns = path == inputs().shp;
            EXPECT_EQ(qz_dbf_get_nr(h), towns ? 3u : 7u);
            bool ok = false;
            const unsigned field = towns ? qz_dbf_find_field_index_w(h, L"town") : 0;
            EXPECT_STREQ(qz_dbf_get_str(h, field, 2, ok), towns ? "Tromso" : "3");
            qz_dbf_close(h);
        }
    }
    // A GeoPackage's layers: named, switched to (a layer's own fields and
    // records), never past the last.
    Tqz_dbf_rw* h = qz_dbf_open_w(qz_test::widen(inputs().gpkg).c_str(), true, false);
    ASSERT_NE(h, nullptr);
    std::wstring names;
    for (unsigned i = 0; i < 3; ++i) {
        qz_test::Fed name;
        qz_dbf_get_layer_name(h, i, name.adp);
        names += name.wide + L",";
    }
    EXPECT_EQ(names, L"people,towns,untouched,");
    ASSERT_TRUE(qz_dbf_set_layer(h, 0) && qz_dbf_set_layer(h, 1)) << "the same layer, another";
    EXPECT_EQ(std::tuple(qz_dbf_get_layer(h), qz_dbf_get_nf(h), qz_dbf_get_nr(h)),
              std::tuple(1u, 2u, 3u));
    EXPECT_STREQ(qz_dbf_get_field_name(h, 0), "town");
    EXPECT_EQ(qz_dbf_get_field_flen(h, 0), 16u);
    bool ok = true;
    EXPECT_STREQ(qz_dbf_get_str(h, 0, 1, ok), "Bergen");
    EXPECT_EQ(qz_dbf_get_int(h, 1, 2, ok), 77000);
    EXPECT_TRUE(!*qz_dbf_get_str(h, 1, 3, ok) && !ok) << "a record the new layer lacks";
    EXPECT_FALSE(qz_dbf_set_layer(h, 2) || qz_dbf_set_layer(h, 0xFFFFFFFFu) ||
                 qz_dbf_get_layer(h) != 1u);
    EXPECT_TRUE(qz_dbf_set_layer(h, 0) && qz_dbf_get_int(h, 0, 6, ok) == 7);
    qz_dbf_close(h);
    // A table file whose writer lock is held is served by OGR, read-only: its
    // values can be read, nothing reaches the file.
    qz_test::Temp_dir dir;
    const std::string path = dir.file("locked.dbf");
    qz_test::write_bytes(path, qz_test::read_bytes(inputs().dbf));
    const std::vector<uint8_t> before = qz_test::read_bytes(path);
    Tqz_dbf_rw* writer = qz_dbf_open(path.c_str(), false, false);
    ASSERT_TRUE(writer && qz_dbf_get_storage(writer) == qz_dbf_storage_file);

    Tqz_dbf_rw* second = qz_dbf_open(path.c_str(), false, false);
    ASSERT_TRUE(second && qz_dbf_get_storage(second) == qz_dbf_storage_ogr &&
                qz_dbf_get_nr(second) == 7u);
    EXPECT_STREQ(qz_dbf_get_ogr_driver(second), "ESRI Shapefile");
    EXPECT_STREQ(qz_dbf_get_str(second, 1, 3, ok), "Dora");
    EXPECT_EQ(qz_dbf_get_field_type(second, 0), dbf_ft_integer);
    qz_dbf_add_records(second, 3);
    // Text into an integer field: GDAL's warning about it stays quiet.
    EXPECT_EQ(stderr_of([&] { EXPECT_TRUE(qz_dbf_set_str(second, 0, 0, "twelve")); }), "");
    EXPECT_TRUE(qz_dbf_set_str(second, 1, 0, "cached only"));
    EXPECT_STREQ(qz_dbf_get_str(second, 1, 0, ok), "cached only");
    qz_dbf_close(second);
    EXPECT_TRUE(qz_test::exists(path + ".lk")) << "the writer's lock stays";
    EXPECT_EQ(qz_test::read_bytes(path), before) << "nothing written beside the writer";

    Tqz_dbf_rw* reader = qz_dbf_open(path.c_str(), true, false);
    EXPECT_EQ(qz_dbf_get_storage(reader), qz_dbf_storage_file) << "readers need no lock";
    qz_dbf_close(reader);
    EXPECT_TRUE(qz_test::exists(path + ".lk")) << "a reader never removes the writer's lock";
    qz_dbf_close(writer);
    EXPECT_EQ(qz_dbf_get_storage(nullptr), qz_dbf_storage_none);
}

// Every bad source: a null handle, or (where OGR reads something) neutral
// results for indexes out of range. Returns how many handles opened.
int open_bad_sources(const std::vector<std::string>& paths, const std::string& ragged) {
    int opened = 0;
    for (const std::string& p : paths) {
        SCOPED_TRACE(p);
        // (A writable open of "" leaves the table file's lock ".lk" in the
        // working folder.)
        for (bool ro : {true, false}) {
            Tqz_dbf_rw* h = p.empty() && !ro ? nullptr : qz_dbf_open(p.c_str(), ro, false);
            if (!h) continue;
            ++opened;
            bool ok = true;
            unsigned n = qz_dbf_get_nr(h), nf = qz_dbf_get_nf(h), r = 0, len = 0;
            for (unsigned rec = 0; rec <= n + 1 && rec < 50; ++rec)
                for (unsigned f = 0; f <= nf && f < 50; ++f) {
                    qz_dbf_get_str(h, f, rec, ok);
                    qz_dbf_get_dbl(h, f, rec, ok);
                    qz_dbf_get_wstr(h, f, rec, len, ok, 0);
                }
            EXPECT_TRUE(!*qz_dbf_get_str(h, nf, 0, ok) && !ok);
            EXPECT_TRUE(qz_dbf_get_int(h, 0, n, ok) == 0 && !ok);
            // Only the unclaimed empty file opens as a table file, an empty one.
            EXPECT_EQ(qz_dbf_get_storage(h),
                      p == ragged ? qz_dbf_storage_ogr : qz_dbf_storage_file);
            EXPECT_EQ(qz_dbf_get_field_name(h, nf), nullptr);
            EXPECT_FALSE(qz_dbf_set_str(h, 0, n + 5, "x"));
            for (unsigned f = 0; f < nf && f < 50; ++f) qz_dbf_set_str(h, f, 0, "not a number");
            EXPECT_FALSE(qz_dbf_find_value(h, nf + 3, "x", r));
            qz_dbf_close(h);
        }
    }
    return opened;
}

TEST(OgrFallback, BadSourcesAreSilentNeutralAndLeakNothing) {
    ASSERT_TRUE(inputs().made);
    qz_test::Temp_dir dir;
    mkdir(dir.file("folder").c_str(), 0755);
    mkdir(dir.file("junk").c_str(), 0755);
    std::ofstream(dir.file("junk/a.txt")) << "not a table\n";
    const std::vector<uint8_t> gpkg = qz_test::read_bytes(inputs().gpkg);
    const std::string ragged = dir.file("ragged.csv");
    const std::pair<const char*, std::string> files[] = {
        {"empty.gpkg", ""},
        {"empty.csv", ""},
        {"truncated.gpkg", std::string(gpkg.begin(), gpkg.begin() + gpkg.size() / 2)},
        {"header_only.gpkg", std::string(gpkg.begin(), gpkg.begin() + 100)},
        {"ragged.csv", "a,b,c\n1,2\n3,4,5,6,7\n\n\"open quote,8,9\nx\n"},
        {"bad.geojson", "{\"type\": \"FeatureCollection\", \"features\": [ {\"type\":"}};
    std::vector<std::string> paths = {"", dir.file("folder"), dir.file("junk"),
                                      dir.file("missing.gpkg"), dir.file("no/such/dir.csv")};
    for (const auto& [name, text] : files) {
        std::ofstream(dir.file(name)) << text;
        paths.push_back(dir.file(name));
    }

    // The first round fills GDAL's own lasting caches (drivers, SQLite and
    // its settings); later rounds must not grow the heap any further.
    int opened = 0;
    size_t heap_before = 0, heap_after = 0;
    const std::string printed = stderr_of([&] {
        opened = open_bad_sources(paths, ragged);
#ifdef QZ_HEAP_BYTES
        heap_before = QZ_HEAP_BYTES();
        for (int round = 0; round < 10; ++round) open_bad_sources(paths, ragged);
        heap_after = QZ_HEAP_BYTES();
#endif
    });
    EXPECT_EQ(printed, "") << "GDAL must print nothing on stderr";
    // The ragged CSV, and the empty file that no format claims, each read-only and not.
    EXPECT_EQ(opened, 2 * 2);
    EXPECT_LE(heap_after, heap_before + 64 * 1024) << "ten rounds over bad sources leak";
}

}  // namespace
