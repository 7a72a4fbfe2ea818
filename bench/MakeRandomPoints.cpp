// Writes N uniformly random points in the unit square (seed 42) with a
// double field VALUE to a datasource, for the command-line benchmarks.
//   make_random_points OUTPUT.gpkg N
#include <cstdio>
#include <cstdlib>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoRecordset.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_random_points OUTPUT N\n");
    return 2;
  }
  const long n = std::atol(argv[2]);
  LUMA::LumaUnicodeString error;
  auto source = ZOC::ZoDataSource::OpenOrCreate(argv[1], &error);
  if (!source) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  ZOC::ZoDatasetVector* ds =
      source->CreateDatasetVector("points", ZOC::DatasetPoint, ZOC::ZoPrjCoordSys(), true, &error);
  if (!ds || !ds->CreateField(LUMA::LumaFieldInfo("VALUE", LUMA::FieldDouble))) {
    std::fprintf(stderr, "cannot create the layer: %s\n", error.c_str());
    return 1;
  }
  const auto points = satest::RandomPoints(static_cast<std::size_t>(n), 1.0, 42);
  ZOC::ZoRecordset* writer = ds->Query(ZOC::ZoQueryDef());
  for (long i = 0; i < n; ++i) {
    writer->AddNew(ZOC::ZoGeometry::MakePoint(points[static_cast<std::size_t>(i)]));
    writer->SetFieldValue("VALUE", LUMA::LumaVariant(points[static_cast<std::size_t>(i)].x * 100.0));
    writer->Update();
  }
  ds->ReleaseRecordset(writer);
  return ds->Commit() ? 0 : 1;
}
