// Thousands of random changes on a loaded memory table through the exports:
// undoing them all gives back the table as loaded, byte for byte; redoing
// them all gives the table that the same changes make without any history.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "memory/history_item.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

enum Field_index : unsigned { NAME, QTY, PRICE, CODE, RATE, FLAG, DAY, FIELD_COUNT };

// A table of every common field type with `n` records of mixed values,
// written by the disk table.
void make_table(const std::string& path, unsigned int n) {
    const struct {
        const char* name;
        Tqz_dbf_field_type type;
        unsigned len, dec;
    } spec[FIELD_COUNT] = {{"NAME", dbf_ft_char, 12, 0},     {"QTY", dbf_ft_numeric, 8, 0},
                           {"PRICE", dbf_ft_numeric, 10, 2}, {"CODE", dbf_ft_integer, 4, 0},
                           {"RATE", dbf_ft_double, 8, 0},    {"FLAG", dbf_ft_logical, 1, 0},
                           {"DAY", dbf_ft_date, 8, 0}};
    Tqz_dbf_field f[FIELD_COUNT];
    for (unsigned i = 0; i < FIELD_COUNT; ++i)
        qz_dbf_field_init(&f[i], spec[i].name, spec[i].type, spec[i].len, spec[i].dec);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), FIELD_COUNT, n, f, false);
    ASSERT_NE(t, nullptr);
    for (unsigned int r = 0; r < n; ++r) {
        qz_dbf_set_str(t, NAME, r, ("item " + std::to_string(r)).c_str());
        qz_dbf_set_int(t, QTY, r, static_cast<int>(r * 7));
        qz_dbf_set_dbl(t, PRICE, r, r * 1.25);
        qz_dbf_set_int(t, CODE, r, static_cast<int>(r) - 50);
        qz_dbf_set_dbl(t, RATE, r, r / 3.0);
        qz_dbf_set_bool(t, FLAG, r, r % 2 == 0);
        qz_dbf_set_str(t, DAY, r, "20240601");
    }
    qz_dbf_close(t);
}

// Applies one random change to both tables (record indexes mostly inside
// the table, now and then past its end: writes there make no step); true
// when it makes a step.
bool random_change(std::mt19937& rng, Tqz_dbf_memory* t, Tqz_dbf_memory* plain) {
    const unsigned nr = qz_dbf_mem_get_nr(t), roll = rng() % 100;
    const unsigned r = nr == 0 || rng() % 50 == 0 ? nr + rng() % 3 : rng() % nr;
    // The fields each kind of write takes (set_str: text of the field's kind).
    const unsigned fields[3][7] = {{NAME, NAME, QTY, PRICE, DAY, FLAG, CODE},
                                   {QTY, CODE, PRICE, NAME, RATE},
                                   {PRICE, RATE, QTY, CODE, NAME}};
    const unsigned f = roll < 50 ? fields[0][rng() % 7] : fields[roll < 75 ? 1 : 2][rng() % 5];
    std::string text(rng() % 16, ' ');
    for (char& c : text) c = "abcdefghij KLMNOP0123456789-."[rng() % 29];
    if (f == QTY || f == PRICE || f == CODE) text = std::to_string(int(rng() % 200000) - 100000);
    if (f == FLAG) text = rng() % 2 ? "T" : "n";
    const int number = static_cast<int>(rng() % 2000001) - 1000000;
    for (Tqz_dbf_memory* m : {t, plain}) {
        if (roll < 6)
            qz_dbf_mem_add(m);
        else if (roll < 12)
            qz_dbf_mem_ins(m, r);
        else if (roll < 18)
            qz_dbf_mem_del(m, r);
        else if (roll < 50)
            qz_dbf_mem_set_str(m, f, r, text.c_str());
        else if (roll < 75)
            qz_dbf_mem_set_int(m, f, r, number);
        else
            qz_dbf_mem_set_dbl(m, f, r, number / 64.0);
    }
    return roll < 18 || r < nr;
}

TEST(RandomChanges, UndoAllGivesTheLoadedTableRedoAllTheChangedOne) {
    qz_test::Temp_dir dir;
    Iqz_history_manager* m = qz_history_manager_get_instance();
    qz_history_manager_clear(m);
    const unsigned int count = 12000;
    qz_history_manager_set_limit(m, count + 100);
    make_table(dir.file("orig.dbf"), 200);
    const std::vector<uint8_t> file = qz_test::read_bytes(dir.file("orig.dbf"));
    qz_test::write_bytes(dir.file("plain.dbf"), file);
    auto saved = [&](Tqz_dbf_memory* t) {
        EXPECT_TRUE(qz_dbf_mem_save_as(t, dir.file("s.dbf").c_str()));
        return qz_test::read_bytes(dir.file("s.dbf"));
    };

    Tqz_dbf_memory* t = qz_dbf_mem_load(dir.file("orig.dbf").c_str());
    qz_history_manager_set_enabled(false);  // a table without history
    Tqz_dbf_memory* plain = qz_dbf_mem_load(dir.file("plain.dbf").c_str());
    qz_history_manager_set_enabled(true);
    ASSERT_TRUE(t && plain);
    const std::vector<uint8_t> as_loaded = saved(t);
    // The table as loaded is the file as written, but for the save's date.
    ASSERT_EQ(as_loaded.size(), file.size());
    EXPECT_TRUE(std::equal(as_loaded.begin() + 4, as_loaded.end(), file.begin() + 4));

    std::mt19937 rng(20240601);
    unsigned int steps = 0;
    for (unsigned int k = 0; k < count; ++k) steps += random_change(rng, t, plain);
    EXPECT_GT(steps, 10000u);
    EXPECT_EQ(qz_history_manager_get_step_count(m), steps);
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), static_cast<long>(steps));
    const std::vector<uint8_t> changed = saved(plain);
    EXPECT_EQ(saved(t), changed) << "with and without history alike";
    std::printf("[ figures  ] %u random changes made %u steps; %u records at the end\n", count,
                steps, qz_dbf_mem_get_nr(t));

    unsigned int undone = 0, redone = 0;
    while (qz_history_manager_undo(m)) ++undone;
    EXPECT_EQ(undone, steps);
    EXPECT_EQ(saved(t), as_loaded) << "every change undone";
    while (qz_history_manager_redo(m)) ++redone;
    EXPECT_EQ(redone, steps);
    EXPECT_EQ(saved(t), changed) << "every change redone";

    EXPECT_TRUE(qz_dbf_mem_free(t));
    EXPECT_EQ(qz_history_manager_get_step_count(m), 0u) << "the table's steps went with it";
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), 0);
    EXPECT_TRUE(qz_dbf_mem_free(plain));
    qz_history_manager_set_limit(m, 1000);
}

}  // namespace
