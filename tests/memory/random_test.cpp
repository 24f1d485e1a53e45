// Thousands of random changes on a loaded memory table through the exports:
// undoing them all gives back the table as loaded, byte for byte; redoing
// them all gives the table that the same changes make without any history.
// Once more with a small step limit: the oldest steps drop out, every item
// is erased exactly once, and undo goes back as far as the limit allows.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "memory/history_item.h"
#include "qzk_file_dbf.h"
#include "test_support.h"

namespace {

using qz_test::Temp_dir;

enum Field_index : unsigned { NAME, QTY, PRICE, CODE, RATE, FLAG, DAY, FIELD_COUNT };

struct Change {
    enum Kind { add, ins, del, set_str, set_int, set_dbl } kind;
    unsigned int field = 0;
    unsigned int record = 0;
    std::string text;
    int number = 0;
    double real = 0;
};

// A table of every common field type with `n` records of mixed values,
// written by the disk table.
void make_table(const std::string& path, unsigned int n) {
    Tqz_dbf_field f[FIELD_COUNT];
    qz_dbf_field_init(&f[NAME], "NAME", dbf_ft_char, 12, 0);
    qz_dbf_field_init(&f[QTY], "QTY", dbf_ft_numeric, 8, 0);
    qz_dbf_field_init(&f[PRICE], "PRICE", dbf_ft_numeric, 10, 2);
    qz_dbf_field_init(&f[CODE], "CODE", dbf_ft_integer, 4, 0);
    qz_dbf_field_init(&f[RATE], "RATE", dbf_ft_double, 8, 0);
    qz_dbf_field_init(&f[FLAG], "FLAG", dbf_ft_logical, 1, 0);
    qz_dbf_field_init(&f[DAY], "DAY", dbf_ft_date, 8, 0);
    Tqz_dbf_rw* t = qz_dbf_create(path.c_str(), FIELD_COUNT, n, f, false);
    ASSERT_NE(t, nullptr);
    qz_dbf_close(t);
    t = qz_dbf_open(path.c_str(), false, false);
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

std::string random_text(std::mt19937& rng) {
    static const char letters[] = "abcdefghij KLMNOP0123456789-.";
    std::string s(rng() % 16, ' ');
    for (char& c : s) c = letters[rng() % (sizeof letters - 1)];
    return s;
}

// The next change for a table of `nr` records: record indexes mostly in the
// table, now and then past its end.
Change random_change(std::mt19937& rng, unsigned int nr) {
    Change c;
    unsigned int roll = rng() % 100;
    c.record = nr == 0 || rng() % 50 == 0 ? nr + rng() % 3 : rng() % nr;
    if (roll < 6) {
        c.kind = Change::add;
    } else if (roll < 12) {
        c.kind = Change::ins;
    } else if (roll < 18) {
        c.kind = Change::del;
    } else if (roll < 50) {
        c.kind = Change::set_str;
        const unsigned fields[] = {NAME, NAME, QTY, PRICE, DAY, FLAG, CODE};
        c.field = fields[rng() % 7];
        c.text = c.field == FLAG ? (rng() % 2 ? "T" : "n") : random_text(rng);
        if (c.field == QTY || c.field == PRICE || c.field == CODE)
            c.text = std::to_string(static_cast<int>(rng() % 200000) - 100000);
    } else if (roll < 75) {
        c.kind = Change::set_int;
        const unsigned fields[] = {QTY, CODE, PRICE, NAME, RATE};
        c.field = fields[rng() % 5];
        c.number = static_cast<int>(rng() % 2000001) - 1000000;
    } else {
        c.kind = Change::set_dbl;
        const unsigned fields[] = {PRICE, RATE, QTY, CODE, NAME};
        c.field = fields[rng() % 5];
        c.real = (static_cast<double>(rng() % 2000001) - 1000000.0) / 64.0;
    }
    return c;
}

void apply(Tqz_dbf_memory* t, const Change& c) {
    switch (c.kind) {
        case Change::add:
            qz_dbf_mem_add(t);
            break;
        case Change::ins:
            qz_dbf_mem_ins(t, c.record);
            break;
        case Change::del:
            qz_dbf_mem_del(t, c.record);
            break;
        case Change::set_str:
            qz_dbf_mem_set_str(t, c.field, c.record, c.text.c_str());
            break;
        case Change::set_int:
            qz_dbf_mem_set_int(t, c.field, c.record, c.number);
            break;
        case Change::set_dbl:
            qz_dbf_mem_set_dbl(t, c.field, c.record, c.real);
            break;
    }
}

// A table loaded without history: the history manager is off meanwhile.
Tqz_dbf_memory* load_without_history(const std::string& path) {
    qz_history_manager_set_enabled(false);
    Tqz_dbf_memory* t = qz_dbf_mem_load(path.c_str());
    qz_history_manager_set_enabled(true);
    return t;
}

std::vector<uint8_t> saved(Tqz_dbf_memory* t, const std::string& path) {
    EXPECT_TRUE(qz_dbf_mem_save_as(t, path.c_str()));
    return qz_test::read_bytes(path);
}

// Whether a change would touch a cell: writes outside the table are
// refused by the value layer and make no step.
bool makes_step(const Change& c, unsigned int nr) {
    return c.kind == Change::add || c.kind == Change::ins || c.kind == Change::del || c.record < nr;
}

class RandomChanges : public ::testing::Test {
  protected:
    void SetUp() override {
        m = qz_history_manager_get_instance();
        ASSERT_NE(m, nullptr);
        qz_history_manager_clear(m);
        original = dir.file("orig.dbf");
        make_table(original, 200);
    }
    void TearDown() override {
        qz_history_manager_set_limit(m, 1000);
        qz_history_manager_clear(m);
        EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), 0) << "every item erased";
    }

    // Applies `count` random changes to the loaded table and to `plain`
    // (without history); returns the changes and how many steps they made.
    std::vector<Change> run(Tqz_dbf_memory* t, Tqz_dbf_memory* plain, unsigned int count,
                            unsigned int seed, unsigned int& steps) {
        std::mt19937 rng(seed);
        std::vector<Change> changes;
        steps = 0;
        for (unsigned int k = 0; k < count; ++k) {
            changes.push_back(random_change(rng, qz_dbf_mem_get_nr(t)));
            if (makes_step(changes.back(), qz_dbf_mem_get_nr(t))) ++steps;
            apply(t, changes.back());
            apply(plain, changes.back());
        }
        return changes;
    }

    Temp_dir dir;
    std::string original;
    Iqz_history_manager* m = nullptr;
};

TEST_F(RandomChanges, UndoAllGivesTheLoadedTableRedoAllTheChangedOne) {
    const unsigned int count = 12000;
    qz_history_manager_set_limit(m, count + 100);
    const std::vector<uint8_t> file = qz_test::read_bytes(original);
    qz_test::write_bytes(dir.file("plain.dbf"), file);

    Tqz_dbf_memory* t = qz_dbf_mem_load(original.c_str());
    Tqz_dbf_memory* plain = load_without_history(dir.file("plain.dbf"));
    ASSERT_NE(t, nullptr);
    ASSERT_NE(plain, nullptr);
    const std::vector<uint8_t> as_loaded = saved(t, dir.file("loaded.dbf"));
    // The table as loaded is the file as written, but for the save's date.
    ASSERT_EQ(as_loaded.size(), file.size());
    EXPECT_TRUE(std::equal(as_loaded.begin() + 4, as_loaded.end(), file.begin() + 4));

    unsigned int steps = 0;
    run(t, plain, count, 20240601, steps);
    EXPECT_GT(steps, 10000u);
    EXPECT_EQ(qz_history_manager_get_step_count(m), steps);
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), static_cast<long>(steps));
    const std::vector<uint8_t> changed = saved(plain, dir.file("changed.dbf"));
    EXPECT_EQ(saved(t, dir.file("t1.dbf")), changed) << "with and without history alike";
    std::printf("[ figures  ] %u random changes made %u steps; %u records at the end\n", count,
                steps, qz_dbf_mem_get_nr(t));

    unsigned int undone = 0;
    while (qz_history_manager_undo(m)) ++undone;
    EXPECT_EQ(undone, steps);
    EXPECT_EQ(saved(t, dir.file("t2.dbf")), as_loaded) << "every change undone";
    unsigned int redone = 0;
    while (qz_history_manager_redo(m)) ++redone;
    EXPECT_EQ(redone, steps);
    EXPECT_EQ(saved(t, dir.file("t3.dbf")), changed) << "every change redone";

    EXPECT_TRUE(qz_dbf_mem_free(t));
    EXPECT_EQ(qz_history_manager_get_step_count(m), 0u) << "the table's steps went with it";
    EXPECT_EQ(Tqz_history_item_adapter_base::get_live_count(), 0);
    EXPECT_TRUE(qz_dbf_mem_free(plain));
}

}  // namespace
