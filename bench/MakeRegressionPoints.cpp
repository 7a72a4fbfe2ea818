// Writes N random points in the unit square with five explanatory fields
// X1..X5 and a dependent field Y whose relationship to X1 drifts across the
// square, for the regression benchmarks.
//   make_regression_points OUTPUT N
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoRecordset.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_regression_points OUTPUT N\n");
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
  const char* fields[] = {"Y", "X1", "X2", "X3", "X4", "X5"};
  for (const char* f : fields)
    if (!ds || !ds->CreateField(LUMA::LumaFieldInfo(f, LUMA::FieldDouble))) {
      std::fprintf(stderr, "cannot create the layer: %s\n", error.c_str());
      return 1;
    }
  const auto points = satest::RandomPoints(static_cast<std::size_t>(n), 1.0, 42);
  std::mt19937_64 rng(7);
  std::normal_distribution<double> normal(0.0, 1.0);
  ZOC::ZoRecordset* writer = ds->Query(ZOC::ZoQueryDef());
  for (long i = 0; i < n; ++i) {
    const auto& p = points[static_cast<std::size_t>(i)];
    double x[5], y = 1.0;
    for (int j = 0; j < 5; ++j) x[j] = normal(rng);
    y += (1.0 + 2.0 * p.x) * x[0] - 0.5 * x[1] + 0.25 * x[2] + std::sin(6.0 * p.y) * x[3] + 0.1 * x[4] + normal(rng);
    writer->AddNew(ZOC::ZoGeometry::MakePoint(p));
    writer->SetFieldValue("Y", LUMA::LumaVariant(y));
    for (int j = 0; j < 5; ++j) writer->SetFieldValue(fields[j + 1], LUMA::LumaVariant(x[j]));
    writer->Update();
  }
  ds->ReleaseRecordset(writer);
  return ds->Commit() ? 0 : 1;
}
