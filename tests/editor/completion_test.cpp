// What Tab offers in qzdbf edit for the text before the cursor.
#include <gtest/gtest.h>

#include "edit_completion.h"

namespace {

using qzdbf::complete_edit_line;
using Words = std::vector<std::string>;

const Words kFields = {"NAME", "NOTE", "QTY", "Qty2"};

TEST(EditCompletion, CommandsFieldsAndOptionsWhereEachIsTaken) {
    struct Case {
        const char* before;
        size_t start;
        Words candidates;
        bool space;
    };
    const Case cases[] = {
        {"", 0, qzdbf::edit_commands(), true},
        {"s", 0, {"set", "save", "show"}, true},
        {"SH", 0, {"show"}, true},
        {"  de", 2, {"del", "delmask"}, true},
        {"zz", 0, {}, true},
        // Field names in any letter case, after set and find only.
        {"set ", 4, kFields, true},
        {"set\tqT", 4, {"QTY", "Qty2"}, true},
        {"find na", 5, {"NAME"}, true},
        {"set NAME ", 9, {}, true},
        {"del n", 4, {}, true},
        // show: its options, and the names of a --fields list one by one.
        {"show 3 --fields no", 16, {"NOTE"}, false},
        {"show --fields NAME,", 19, kFields, false},
        {"show --vertical n", 16, {}, true},
        // alter: options, and the existing field of each change.
        {"alter --r", 6, {"--rename", "--retype"}, true},
        {"alter --drop qt", 13, {"QTY", "Qty2"}, true},
        {"alter --rename na", 15, {"NAME"}, false},
        {"alter --rename NAME=n", 15, {}, true},
        {"alter --add n", 12, {}, true},
    };
    for (const Case& c : cases) {
        const qzdbf::Completion got = complete_edit_line(c.before, kFields);
        EXPECT_EQ(got.candidates, c.candidates) << "'" << c.before << "'";
        if (!c.candidates.empty()) {
            EXPECT_EQ(got.start, c.start) << "'" << c.before << "'";
            EXPECT_EQ(got.space, c.space) << "'" << c.before << "'";
        }
    }
}

TEST(EditCompletion, CommonBeginningKeepsTheFirstWordsLettersAndWholeCharacters) {
    EXPECT_EQ(qzdbf::common_prefix({"QTY", "Qty2"}), "QTY");
    EXPECT_EQ(qzdbf::common_prefix({}), "");
    // Ж (D0 96) and Ц (D0 A6) share their first byte, not a character.
    EXPECT_EQ(qzdbf::common_prefix({"A\xD0\x96", "A\xD0\xA6"}), "A");
    EXPECT_EQ(qzdbf::matching({"Ж1", "ж2"}, "Ж"), Words({"Ж1"}));
}

}  // namespace
