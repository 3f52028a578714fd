#pragma once

#include <set>
#include <string>
#include <vector>

namespace velatest {

// Compares log lines, "LEVEL text", with what the running test's row in the table of faults of
// docs/software-board.md says: each line of the row has to be there, else this is a failure of the
// test. The result are the WARN and ERROR lines that the row does not have. In a row "..." stands
// for any text.
std::set<std::string> LinesBesideRow(const std::vector<std::string>& lines);

}  // namespace velatest
