#include "StatisticsAnalyst/detail/weights/FileDump.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

namespace {

// The ID line and, when standardized, the row-sum line.
void PrintTables(const WeightsFileReader& reader) {
  std::string line;
  for (std::int32_t id : reader.Ids()) {
    line += std::to_string(id);
    line += ' ';
  }
  line += '\n';
  std::fputs(line.c_str(), stdout);
  if (reader.Standardized()) {
    line.clear();
    for (double sum : reader.RowSums()) line += RowSumEntry(sum);
    line += '\n';
    std::fputs(line.c_str(), stdout);
  }
}

// Prints the rows of a reader whose rows have all been checked.
Status PrintRows(WeightsFileReader& reader) {
  std::vector<RowRecord> records;
  RowRead read;
  while ((read = reader.Next(records)) == RowRead::Read) {
    for (const auto& r : records) {
      std::fputs(RecordText(r.row, r.column, r.weight).c_str(), stdout);
      std::fputc('\n', stdout);
    }
  }
  std::fflush(stdout);
  return read == RowRead::End ? Status::Ok() : Status::Fail(msg::ESa046);
}

// Checks the whole file, then prints it: a damaged file prints nothing.
Status PrintChecked(WeightsFileReader& reader) {
  if (Status s = CheckAllRows(reader); !s) return s;
  PrintTables(reader);
  return PrintRows(reader);
}

}  // namespace

Status DumpTextFile(const LumaUnicodeString& path) {
  return GuardReading([&]() -> Status {
    // The text reader wants ".swmb" exactly, in lower case.
    if (path.IsEmpty() || !HasSwmbExtension(path, false)) return Status::Fail(msg::EAf017);
    std::unique_ptr<WeightsFileReader> reader;
    if (Status s = OpenTextWeights(path, reader); !s) return s;
    return PrintChecked(*reader);
  });
}

Status DumpBinaryFile(const LumaUnicodeString& path) {
  return GuardReading([&]() -> Status {
    if (path.IsEmpty() || !HasSwmbExtension(path, true)) return Status::Fail(msg::EAf017);
    std::unique_ptr<WeightsFileReader> reader;
    if (Status s = OpenBinaryWeights(path, reader); !s) return s;
    return PrintChecked(*reader);
  });
}

}  // namespace ZOC::detail::weights
