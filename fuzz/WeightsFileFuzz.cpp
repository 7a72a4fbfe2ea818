// Feeds arbitrary bytes to the weights file readers. The first byte is the
// mode: bit 0 picks the file name's extension case, bits 1-3 pick the reader
//   0 the analyses' checked open and their row reader (binary)
//   1 the binary dump          2 the binary converter to a table
//   3 the flag-matrix builder  4 the text dump
//   5 the text converter       6 the binary header alone
//   7 every one of them in turn
// and the rest is the file. Any crash, sanitizer report or escaping
// exception is a finding; so is a reader that accepts a file another
// reader of the same form refuses (the binary readers share one checked
// reader and must agree).
#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "host/ZoDataSource.h"
#include "host/ZoFile.h"
#include "host/ZoRecordset.h"

using namespace ZOC;

namespace {

struct World {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory();
  ZoDatasetVector* points = nullptr;
  ZoDatasetVector* table = nullptr;  // empty; made again after each conversion that wrote to it
  std::string dir;

  World() {
    points = source->CreateDatasetVector("points", DatasetPoint, ZoPrjCoordSys());
    ZoRecordset* writer = points->Query(ZoQueryDef());
    for (int i = 0; i < 4; ++i) {
      writer->AddNew(ZoGeometry::MakePoint({double(i), double(i % 2)}));
      writer->Update();
    }
    points->ReleaseRecordset(writer);
    NewTable();
    char tmpl[] = "/tmp/sa_fuzz_XXXXXX";
    dir = mkdtemp(tmpl);
    std::freopen("/dev/null", "w", stdout);  // the dumps print
  }
  void NewTable() { table = source->CreateDatasetVector("table", DatasetTabular, ZoPrjCoordSys(), true); }
};

World& GetWorld() {
  static World world;
  return world;
}

// The analyses' open and row reads; true when the file was accepted.
bool CheckAndReadRows(World& world, const std::string& path) {
  ZoStatisticsUtilities utilities;
  LumaUnicodeString field;
  LumaArray<ZoSWMFileUniqueIndex> index;
  ZoConceptualizationModel model;
  unsigned char standardization = 0;
  LumaArray<double> sums;
  std::int64_t position = 0;
  std::FILE* f = utilities.CheckSWMFileValid(world.points, path, field, index, model, standardization, sums, position);
  if (!f) return false;
  LumaArray<double> row;
  bool ok = true;
  for (const auto& entry : index)
    if (!(ok = utilities.ReadWeightMatrixBinary(f, entry.Count, static_cast<int>(index.size()), row))) break;
  std::fclose(f);
  return ok;
}

bool ToTable(World& world, const std::string& path, bool text) {
  ZoWeightsUtilities weights;
  ZoDatasetVector* table = world.table;
  const bool ok =
      text ? weights.TextConverToTable(table, path, false) : weights.BinaryConverToTable(table, path, false);
  // A refused conversion leaves the table as it was: no field, no row.
  if (!ok && (table->GetRecordCount() != 0 || table->GetFieldInfos().size() > 1)) std::abort();
  if (ok) world.NewTable();
  return ok;
}

bool FlagMatrix(World& world, const std::string& path) {
  ZoWeightsUtilities weights;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  const std::string flags = world.dir + "/flags.bin";
  const bool ok = weights.BuildWeightsDictionary(f, flags, false);
  std::fclose(f);
  if (!ok && ZoFile::IsExist(flags)) std::abort();  // a refused build leaves no matrix
  ZoFile::Delete(flags);
  return ok;
}

bool Header(const std::string& path) {
  ZoWeightsUtilities weights;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  LumaArray<LumaUnicodeString> values;
  std::int64_t position = 0;
  const bool ok = weights.ReadHeader(f, values, position);
  std::fclose(f);
  return ok;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  World& world = GetWorld();
  const std::uint8_t mode = size > 0 ? data[0] : 0;
  const bool upper = mode & 1;
  const std::string path = world.dir + (upper ? "/input.SWMB" : "/input.swmb");
  if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
    if (size > 1) std::fwrite(data + 1, 1, size - 1, f);
    std::fclose(f);
  }
  ZoWeightsUtilities weights;
  switch ((mode >> 1) & 7) {
    case 0: CheckAndReadRows(world, path); break;
    case 1: weights.ReadWeightMatrixTextEx(path); break;
    case 2: ToTable(world, path, false); break;
    case 3: FlagMatrix(world, path); break;
    case 4: weights.ReadWeightMatrixText(path); break;
    case 5: ToTable(world, path, true); break;
    case 6: Header(path); break;
    default: {
      // The binary readers that do not compare the file with a dataset see
      // the same checks: they accept and refuse the same files.
      const bool dumped = weights.ReadWeightMatrixTextEx(path);
      const bool converted = ToTable(world, path, false);
      const bool flagged = FlagMatrix(world, path);
      if (dumped != converted || converted != flagged) std::abort();
      CheckAndReadRows(world, path);
      Header(path);
      const bool textDumped = weights.ReadWeightMatrixText(path);
      const bool textConverted = ToTable(world, path, true);
      if (textDumped != textConverted) std::abort();
    }
  }
  ZoFile::Delete(path);
  return 0;
}
