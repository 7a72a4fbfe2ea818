// Feeds arbitrary bytes to every weights file reader: the checked binary
// open and its row reader, the flag-matrix builder, both diagnostic dumps
// and both converters to tables. The first byte picks the file name's
// extension case; the rest is the file. Any crash, sanitizer report or
// escaping exception is a finding.
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

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
  std::string dir;

  World() {
    points = source->CreateDatasetVector("points", DatasetPoint, ZoPrjCoordSys());
    ZoRecordset* writer = points->Query(ZoQueryDef());
    for (int i = 0; i < 4; ++i) {
      writer->AddNew(ZoGeometry::MakePoint({double(i), double(i % 2)}));
      writer->Update();
    }
    points->ReleaseRecordset(writer);
    char tmpl[] = "/tmp/sa_fuzz_XXXXXX";
    dir = mkdtemp(tmpl);
    std::freopen("/dev/null", "w", stdout);  // the dumps print
  }
};

World& GetWorld() {
  static World world;
  return world;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  World& world = GetWorld();
  const bool upper = size > 0 && (data[0] & 1);
  const std::string path = world.dir + (upper ? "/input.SWMB" : "/input.swmb");
  if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
    if (size > 1) std::fwrite(data + 1, 1, size - 1, f);
    std::fclose(f);
  }

  ZoStatisticsUtilities utilities;
  LumaUnicodeString field;
  LumaArray<ZoSWMFileUniqueIndex> index;
  ZoConceptualizationModel model;
  unsigned char standardization = 0;
  LumaArray<double> sums;
  std::int64_t position = 0;
  if (std::FILE* f = utilities.CheckSWMFileValid(world.points, path, field, index, model, standardization, sums,
                                                 position)) {
    LumaArray<double> row;
    for (const auto& entry : index)
      if (!utilities.ReadWeightMatrixBinary(f, entry.Count, static_cast<int>(index.size()), row)) break;
    std::fclose(f);
  }

  ZoWeightsUtilities weights;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    weights.BuildWeightsDictionary(f, world.dir + "/flags.bin", false);
    std::fclose(f);
  }
  weights.ReadWeightMatrixTextEx(path);
  weights.ReadWeightMatrixText(path);
  for (bool text : {false, true}) {
    ZoDatasetVector* table = world.source->CreateDatasetVector("table", DatasetTabular, ZoPrjCoordSys(), true);
    if (text) weights.TextConverToTable(table, path, false);
    else weights.BinaryConverToTable(table, path, false);
  }
  ZoFile::Delete(path);
  return 0;
}
