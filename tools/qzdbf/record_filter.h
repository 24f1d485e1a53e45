// The --where conditions of dump and get: NAME=value, NAME!=value,
// NAME<value, NAME>value, NAME<=value, NAME>=value and NAME~text (the cell
// holds the text). Numbers compare as numbers, dates and datetimes as
// dates, logical cells as true or false, text as text; with ignore_case,
// letters compare without regard to case.
#pragma once

#include <string>
#include <vector>

#include "cell_values.h"
#include "cli.h"

namespace qzdbf {

class Record_filter {
  public:
    // Parses the conditions for `table` (all of them must hold); false with
    // a message that names the condition.
    bool parse(Tqz_dbf_rw* table, const std::vector<std::string>& conditions, bool ignore_case,
               std::string& error);
    // Whether record `record` meets every condition.
    bool matches(Tqz_dbf_rw* table, unsigned int record) const;
    // The first record that can meet the conditions: the library's value
    // search finds the first record that equals an `=` condition on a
    // character field (it ignores letter case, so no earlier record can
    // match). `end` when no record can.
    unsigned long long first_candidate(Tqz_dbf_rw* table, unsigned long long first,
                                       unsigned long long end) const;
    bool empty() const { return conditions_.empty(); }

  private:
    enum class Op { eq, ne, lt, gt, le, ge, contains };
    struct Condition {
        std::string text;  // as given, for messages
        unsigned int field = 0;
        Op op = Op::eq;
        std::string value;   // UTF-8 (folded when ignoring case)
        std::string system;  // the value as given (system text)
        double number = 0;   // the value as a number, when it is one
        bool is_number = false;
        long long date = 0;  // the value as YYYYMMDD, when it is a date
        bool is_date = false;
        int logical = -1;  // the value as a logical (0 or 1), when it is one
    };
    bool meets(const Condition& c, Tqz_dbf_rw* table, unsigned int record) const;
    std::vector<Condition> conditions_;
    bool ignore_case_ = false;
};

}  // namespace qzdbf
