// qzdbf edit: what Tab completes for the text before the cursor; edit as a
// person uses it: find and show from a script, and a terminal session typed
// through tmux (line editing, history, Tab, the question before unsaved
// changes are lost), checked on the screen and on the bytes of the saved
// table.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "cli_run.h"
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
        EXPECT_TRUE(c.candidates.empty() || (got.start == c.start && got.space == c.space))
            << "'" << c.before << "'";
    }
    // The common beginning keeps the first word's letters and whole characters.
    EXPECT_EQ(qzdbf::common_prefix({"QTY", "Qty2"}), "QTY");
    EXPECT_EQ(qzdbf::common_prefix({}), "");
    // Ж (D0 96) and Ц (D0 A6) share their first byte, not a character.
    EXPECT_EQ(qzdbf::common_prefix({"A\xD0\x96", "A\xD0\xA6"}), "A");
    EXPECT_EQ(qzdbf::matching({"Ж1", "ж2"}, "Ж"), Words({"Ж1"}));
}

using namespace qz_cli;

// qzdbf edit of `table` reading `script` (its lines) as its input.
Outcome edit(const std::string& table, const std::string& script, const std::string& opts = "") {
    return qz_cli::qzdbf("edit " + opts + quoted(table), "printf '%s' " + quoted(script) + " |");
}

// NAME C20, NOTE C12, QTY N8 in CP1251: Ann/Bob/Ann, notes n0..n2, quantities 1, 2, 3.
void make_table(const std::string& path) {
    write_text(path + ".csv", "NAME,NOTE,QTY\nAnn,n0,1\nBob,n1,2\nAnn,n2,3\n");
    const Outcome r =
        qz_cli::qzdbf("import --quiet --encoding CP1251 --fields NAME:C:20,NOTE:C:12,QTY:N:8 " +
                      quoted(path + ".csv") + " " + quoted(path));
    ASSERT_EQ(r.status, 0) << r.out;
}

// find answers from the fast-find index, rebuilt after every change; show
// picks fields and prints them one per line; records marked deleted keep
// their mark in both views.
TEST(EditScript, FindShowAndTextInTheTableEncodingWithUndo) {
    qz_test::Temp_dir dir;
    const std::string table = dir.file("t.dbf");
    make_table(table);
    Tqz_dbf_rw* t = qz_dbf_open(table.c_str(), false, false);
    ASSERT_TRUE(t && qz_dbf_set_deleted(t, 2, true));
    qz_dbf_close(t);
    const Outcome r =
        edit(table,
             "find name ann\nset NAME 1 Ann\nfind NAME   Ann  \nundo\nfind --vertical NAME Ann\n"
             "find --vertical 2 2\nshow --fields 2,NOTE 1 2\nshow --bogus\n"
             "show --fields NAME,NOPE\nfind NAME\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out,
              "no record holds 'ann' in NAME\n3 records hold 'Ann' in NAME: 0 1 2\n"
              "  #  NAME  NOTE  QTY\n  -  ----  ----  ---\n"
              "  0  Ann   n0      1\n  1  Ann   n1      2\n* 2  Ann   n2      3\n"
              "undone\n2 records hold 'Ann' in NAME: 0 2\nrecord 0\nNAME: Ann\nNOTE: n0\nQTY: 1\n\n"
              "record 2 (deleted)\nNAME: Ann\nNOTE: n2\nQTY: 3\n1 record holds '2' in QTY: "
              "1\nrecord 1\nNAME: Bob\nNOTE: n1\nQTY: 2\n"
              "  #  QTY  NOTE\n  -  ---  ----\n  1    2  n1\n* 2    3  n2\n"
              "qzdbf: line 8: show knows --vertical and --fields, not '--bogus'\n"
              "qzdbf: line 9: the table has no field named 'NOPE'\n"
              "qzdbf: line 10: find needs FIELD VALUE\n"
              "qzdbf: changes not saved are lost\n");
    // Character text goes in the table's encoding (--encoding, else the .cpg
    // file), is found and shown in it, and undo takes the write back.
    make_table(dir.file("made.dbf"));
    write_text(dir.file("t.cpg"), "CP1251\n");
    // The option, and the value's first and last letters ("Жук", "а") as stored.
    for (const auto& [option, bytes] :
         {std::pair<std::string, std::vector<uint8_t>>{"", {0xC6, 0xF3, 0xEA, 0xE0}},
          {"--encoding KOI8-R ", {0xF6, 0xD5, 0xCB, 0xC1}}}) {
        SCOPED_TRACE(option);
        qz_test::write_bytes(table, qz_test::read_bytes(dir.file("made.dbf")));
        // 20 characters, 40 bytes of UTF-8: the field's 20 bytes, whole.
        const Outcome r = edit(table,
                               "set NAME 0 Жукова Анна Петровна\nset NAME 1 Жукова Анна Петровна\n"
                               "find NAME Жукова Анна Петровна\nundo\nshow 1 1\nredo\nsave\n",
                               option);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out,
                  "2 records hold 'Жукова Анна Петровна' in NAME: 0 1\n"
                  "  #  NAME                  NOTE  QTY\n  -  --------------------  ----  ---\n"
                  "  0  Жукова Анна Петровна  n0      1\n  1  Жукова Анна Петровна  n1      2\n"
                  "undone\n  #  NAME  NOTE  QTY\n  -  ----  ----  ---\n  1  Bob   n1      2\n"
                  "redone\nsaved 3 records\n");
        const std::vector<uint8_t> b = qz_test::read_bytes(table);
        const size_t cell = (b[8] | b[9] << 8) + (b[10] | b[11] << 8) + 1;
        EXPECT_EQ((std::vector<uint8_t>{b[cell], b[cell + 1], b[cell + 2], b[cell + 19]}), bytes);
    }
    const Outcome bad = edit(table, "", "--encoding NO-SUCH ");
    EXPECT_TRUE(bad.status == 2 && bad.out.find("NO-SUCH") != std::string::npos) << bad.out;
}

// A tmux server of our own (its socket a file in `folder`), one session of
// a fixed size running one command. The pane stays after the program ends,
// so its last screen can be read; the shell writes the exit status there.
struct Tmux {
    Tmux(const std::string& folder, const std::string& command)
        : socket(folder + "/tmux" + std::to_string(++sessions)) {
        if (tmux("-f /dev/null new-session -d -s s -x 100 -y 40 " +
                 quoted(command + "; echo \"[exit status $?]\"") +
                 " \\; set-option -t s remain-on-exit on") != 0)
            ADD_FAILURE() << "tmux did not start";
    }
    ~Tmux() { tmux("kill-server"); }

    // Literal text typed ("\t" is the Tab key).
    void type(const std::string& text) { tmux("send-keys -t s -l -- " + quoted(text)); }
    // Named keys: Enter, Left, Up, Tab, BSpace, C-d...
    void keys(const std::string& names) { tmux("send-keys -t s " + names); }
    // `text` typed (if any), Enter, then waits until the program reads
    // again: its screen ends with a prompt ("...> "), the question ("[y/n/c]")
    // or the exit status. Keys typed earlier would be echoed by the terminal,
    // not the line editor.
    void enter(const std::string& text = "") {
        if (!text.empty()) type(text);
        keys("Enter");
        poll("a prompt", [](std::string s) {
            s.erase(s.find_last_not_of(" \n") + 1);
            return !s.empty() && (s.find("[exit status") != std::string::npos || s.back() == '>' ||
                                  s.back() == ']');
        });
    }
    // Waits until the screen shows `text` (20 s at most); the last screen.
    std::string wait_for(const std::string& text) {
        return poll(text, [&](const std::string& s) { return s.find(text) != std::string::npos; });
    }
    template <class Seen>
    std::string poll(const std::string& what, Seen seen) {
        std::string s;
        for (int k = 0; k < 200; ++k) {
            tmux("capture-pane -p -t s", &s);
            while (s.size() >= 2 && s[s.size() - 1] == '\n' && s[s.size() - 2] == '\n')
                s.pop_back();
            if (seen(s)) return s;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        ADD_FAILURE() << "the screen never showed " << what << ":\n" << s;
        return s;
    }
    int tmux(const std::string& args, std::string* out = nullptr) {
        return qz_test::run("tmux -S '" + socket + "' " + args + " 2>/dev/null", out);
    }

    static inline int sessions = 0;
    const std::string socket;
};

TEST(EditTerminal, LineEditingHistoryCompletionAndTheQuestionBeforeQuitting) {
    if (qz_test::run("tmux -V >/dev/null 2>&1") != 0) GTEST_SKIP() << "tmux is not installed";
    qz_test::Temp_dir dir;
    const std::string table = dir.file("people.dbf");
    make_table(table);
    const std::vector<uint8_t> original = qz_test::read_bytes(table);
    const std::string history = dir.file("history");
    // No single quotes: tmux gets the command in them.
    const std::string command = "cd \"" + dir.path() + "\" && HOME=\"" + dir.path() +
                                "\" QZDBF_HISTORY=\"" + history +
                                "\" LC_ALL=C.UTF-8 \"" QZDBF_EXE "\" edit people.dbf";
    {
        Tmux tmux(dir.path(), command);
        tmux.wait_for("people.dbf>");

        // A typo mended with Left: "Alce" becomes "Alice"; the prompt then
        // marks the table changed.
        tmux.type("set NAME 0 Alce");
        tmux.keys("Left Left");
        tmux.type("i");
        tmux.wait_for("people.dbf> set NAME 0 Alice");
        tmux.enter();
        tmux.enter("show");
        std::string s = tmux.wait_for("  2  Ann");
        EXPECT_NE(s.find("  0  Alice"), std::string::npos) << s;
        EXPECT_NE(s.find("people.dbf*> show"), std::string::npos) << s;

        // Up twice recalls the set; its record number is changed in place.
        tmux.keys("Up Up");
        tmux.wait_for("people.dbf*> set NAME 0 Alice");
        tmux.keys("Left Left Left Left Left Left BSpace");
        tmux.type("2");
        tmux.wait_for("people.dbf*> set NAME 2 Alice");
        tmux.enter();

        // Tab completes a field name typed in another case.
        tmux.type("set qt\t");
        tmux.wait_for("people.dbf*> set QTY");
        tmux.enter("1 42");
        // Two fields begin with N: Tab lists them; one more letter decides.
        tmux.type("find N\t");
        tmux.wait_for("NAME  NOTE");
        tmux.type("a\t");
        tmux.wait_for("people.dbf*> find NAME");
        tmux.enter("Alice");
        tmux.wait_for("2 records hold 'Alice' in NAME: 0 2");

        // Commands, options and the names of a --fields list.
        tmux.type("sh\t");
        tmux.type("--v\t");
        tmux.type("--fields na\t");
        tmux.type(",q\t");
        tmux.wait_for("people.dbf*> show --vertical --fields NAME,QTY");
        tmux.enter();
        s = tmux.wait_for("NAME: Alice\nQTY: 3");
        EXPECT_NE(s.find("record 1\nNAME: Bob\nQTY: 42\n"), std::string::npos) << s;

        // quit asks; c goes on editing, y saves and ends.
        tmux.enter("quit");
        tmux.wait_for("save changes to people.dbf? [y/n/c]");
        tmux.enter("c");
        tmux.wait_for("not quitting; save writes the table\npeople.dbf*>");
        tmux.enter("quit");
        tmux.enter("y");
        s = tmux.wait_for("[exit status");
        EXPECT_NE(s.find("saved 3 records"), std::string::npos) << s;
        EXPECT_NE(s.find("[exit status 0]"), std::string::npos) << s;
        EXPECT_EQ(s.find("not saved are lost"), std::string::npos) << s;
    }
    EXPECT_FALSE(qz_test::exists(table + ".lk"));

    // The file holds what the same changes give when a script makes them.
    const std::string twin = dir.file("twin.dbf");
    make_table(twin);
    const Outcome r = edit(twin, "set NAME 0 Alice\nset NAME 2 Alice\nset QTY 1 42\nsave\n");
    ASSERT_EQ(r.status, 0) << r.out;
    const std::vector<uint8_t> saved = qz_test::read_bytes(table);
    EXPECT_TRUE(saved == qz_test::read_bytes(twin) && saved != original);

    // The history went to its file, in the order typed.
    const std::string htext = read_text(history);
    const size_t second = htext.find("set\\040NAME\\0402\\040Alice");
    EXPECT_TRUE(htext.find("set\\040NAME\\0400\\040Alice") < second && second != std::string::npos)
        << htext;
    EXPECT_EQ(htext.find("\ny\n"), std::string::npos) << "answers stay out of the history";

    // A second session: Up brings back the last line of the first; Ctrl-D
    // with a change asks too, and n leaves the file as it was.
    {
        Tmux tmux(dir.path(), command);
        tmux.wait_for("people.dbf>");
        tmux.keys("Up");
        tmux.wait_for("people.dbf> quit");
        tmux.keys("BSpace BSpace BSpace BSpace");
        tmux.enter("add");
        tmux.wait_for("added record 3\npeople.dbf*>");
        tmux.keys("C-d");
        tmux.wait_for("save changes to people.dbf? [y/n/c]");
        tmux.enter("n");
        std::string s = tmux.wait_for("[exit status");
        EXPECT_NE(s.find("qzdbf: changes not saved are lost\n[exit status 0]"), std::string::npos)
            << s;
    }
    EXPECT_EQ(qz_test::read_bytes(table), saved);
}

}  // namespace
