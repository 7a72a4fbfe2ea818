#pragma once
// A result table as every front end gives it: named columns and rows of
// named values in the same order (common/ReportValues.h), which zostat
// prints and writes and the Python module turns into a DataFrame.
#include <string>
#include <vector>

#include "common/ReportValues.h"

namespace ZOC {
class ZoDatasetVector;
}

namespace ZOC::front {

struct ReportTable {
  std::string name;
  std::vector<std::string> columns;  // known even when there is no row
  std::vector<ReportValues> rows;    // each keyed by `columns`, in order
};

// The table's rows into `target`: a field per column (integers and flags
// as 32-bit integers, numbers as reals, words as text; a column without
// any value as reals), a value null where it is null or not finite. Throws
// Failure ("EUa016") when the table does not take them.
void WriteReportTable(ZoDatasetVector* target, const ReportTable& table);

}  // namespace ZOC::front
