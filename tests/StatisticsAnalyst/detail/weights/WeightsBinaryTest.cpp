// Binary weights files: the exact bytes of a hand-worked file, round trips
// against the in-memory weights, the flag matrix, and files that must be
// refused cleanly.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "TestSupport.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
using Bytes = std::vector<unsigned char>;

namespace {

// Points with an int32 "ID" field (and a double "FID_REAL" copy of it).
satest::MemoryLayer Layer(const std::vector<LumaPoint2D>& points, const std::vector<int>& ids) {
  satest::MemoryLayer layer = satest::MakePointLayer(points);
  const std::vector<double> values(ids.begin(), ids.end());
  satest::AddField(layer.dataset, "ID", LUMA::FieldInt32, values);
  satest::AddField(layer.dataset, "FID_REAL", LUMA::FieldDouble, values);
  return layer;
}

Bytes ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

void WriteAll(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

void PutInt(Bytes& b, std::int32_t v) {
  for (int k = 0; k < 4; ++k)
    b.push_back(static_cast<unsigned char>((static_cast<std::uint32_t>(v) >> (8 * k)) & 0xFF));
}
void PutDouble(Bytes& b, double v) {
  std::uint64_t u;
  std::memcpy(&u, &v, 8);
  for (int k = 0; k < 8; ++k) b.push_back(static_cast<unsigned char>((u >> (8 * k)) & 0xFF));
}
void PutHeader(Bytes& b, const std::string& text) {
  PutInt(b, static_cast<std::int32_t>(text.size() * 2));
  for (char c : text) b.push_back(static_cast<unsigned char>(c)), b.push_back(0);
}

// The names in a folder, to show that a build left nothing beside its output.
std::vector<std::string> Listing(const satest::TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir.path())) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

bool Has(const ZoAnalysisFrame& o, const char* id) { return satest::HasMessageId(o.GetStrErrorMes(), id); }

// A binary weights file as the analyses open it: header values, index and
// row sums read, the file at its first row (null after a refusal, in u's message).
struct Opened {
  ZoStatisticsUtilities u;
  LumaUnicodeString field;
  LumaArray<ZoSWMFileUniqueIndex> index;
  ZoConceptualizationModel model{};
  unsigned char standardization = 0;
  LumaArray<double> sums;
  std::int64_t position = 0;
  std::FILE* f = nullptr;
  Opened(ZoDatasetVector* ds, const std::string& path)
      : f(u.CheckSWMFileValid(ds, path, field, index, model, standardization, sums, position)) {}
  ~Opened() {
    if (f) std::fclose(f);
  }
};

// The four points of the hand-worked file: 1.5 apart bands join 0-1 and 1-2;
// the last point, 2 away, has no neighbour.
const std::vector<LumaPoint2D> kLine = {{0, 0}, {1, 0}, {2, 0}, {4, 0}};
const std::vector<int> kIds = {30, 10, 40, 20};  // file order is ascending ID: features 1, 3, 0, 2

ZoPatternsInformation Band(double band, bool standardize) {
  ZoPatternsInformation info;
  info.Conceptualization = FixedDistanceBand;
  info.DistanceTolerance = band;
  info.Standardization = standardize;
  return info;
}

ZoPatternsInformation Nearest(int k) {
  ZoPatternsInformation info = Band(-1, false);
  info.Conceptualization = KNearestNeighbors;
  info.KNeighbors = k;
  return info;
}

}  // namespace

TEST(WeightsBinary, HandWorkedFileIsByteExact) {
  auto layer = Layer(kLine, kIds);
  satest::TempDir dir;
  for (bool standardize : {true, false}) {
    const std::string path = dir.File("line.swmb");
    ZoWeightsUtilities w;
    ASSERT_TRUE(w.BuildWeightMatrixBinary(layer.dataset, "ID", path, Band(1.5, standardize), false))
        << w.GetStrErrorMes().Str();
    // Ascending ID: 10 (x=1), 20 (x=4), 30 (x=0), 40 (x=2).
    Bytes expected;
    PutHeader(expected, std::string("QUILLARD@QUILLARD;DATASETNAME@points;DATASETTYPE@1;COUNTS@4;UNIQUEID@ID;"
                                    "CONCEPTUALIZATION@3;STANDARDIZATION@") +
                            (standardize ? "1" : "0") + ";DISTANCEMETHOD@1;");
    for (auto [id, count] : {std::pair{10, 2}, {20, 0}, {30, 1}, {40, 1}})
      PutInt(expected, id), PutInt(expected, count);
    if (standardize)
      for (double s : {2.0, 0.0, 1.0, 1.0}) PutDouble(expected, s);
    for (auto [i, j] : {std::pair{0, 2}, {0, 3}, {2, 0}, {3, 0}})
      PutInt(expected, i), PutInt(expected, j), PutDouble(expected, 1.0);
    EXPECT_EQ(ReadAll(path), expected) << "standardize=" << standardize;
  }
}

// Weights made elsewhere, given as rows by unique ID in any order: the file
// after its header is the one the builder writes for the same weights, and
// rows that do not make a file leave none.
TEST(WeightsBinary, RowsGivenElsewhereWriteTheBuildersFile) {
  auto layer = Layer(kLine, kIds);
  satest::TempDir dir;
  const std::string built = dir.File("built.swmb"), given = dir.File("given.swmb");
  ZoWeightsUtilities w;
  ASSERT_TRUE(w.BuildWeightMatrixBinary(layer.dataset, "ID", built, Band(1.5, true), false));
  ASSERT_TRUE(w.BuildWeightMatrixFromRows(given, "points", "ID", {40, 20, 10, 30}, {30, 10, 10, 40}, {10, 30, 40, 10},
                                          {1.0, 1.0, 1.0, 1.0}, 1))
      << w.GetStrErrorMes().Str();
  auto body = [](const Bytes& file) {
    std::int32_t header = 0;
    std::memcpy(&header, file.data(), 4);
    return Bytes(file.begin() + 4 + header, file.end());
  };
  EXPECT_EQ(body(ReadAll(given)), body(ReadAll(built)));

  auto refused = [&](std::vector<std::int32_t> rows, std::vector<std::int32_t> columns, std::vector<double> weights,
                     std::vector<std::int32_t> ids, const char* id) {
    EXPECT_FALSE(w.BuildWeightMatrixFromRows(dir.File("bad.swmb"), "points", "ID", ids, rows, columns, weights, 0))
        << id;
    EXPECT_TRUE(Has(w, id)) << w.GetStrErrorMes().Str();
  };
  refused({10}, {20}, {1.0}, {10, 20, 10}, ZOC::msg::ESa044);
  refused({10}, {99}, {1.0}, {10, 20}, ZOC::msg::ESa080);
  refused({10}, {20}, {std::nan("")}, {10, 20}, ZOC::msg::ESa046);
  refused({10, 20}, {20}, {1.0}, {10, 20}, ZOC::msg::ESa046);
  refused({}, {}, {}, {10}, ZOC::msg::EUb005);
  EXPECT_EQ(Listing(dir), (std::vector<std::string>{"built.swmb", "given.swmb"}));
}

TEST(WeightsBinary, RoundTripMatchesInMemoryWeights) {
  const auto points = satest::RandomPoints(120, 30.0, 17);
  std::vector<int> ids(points.size());
  for (std::size_t k = 0; k < ids.size(); ++k) ids[k] = static_cast<int>(k) * 3 + 7;  // ascending like QlID
  auto layer = Layer(points, ids);
  satest::TempDir dir;
  for (auto c : {InverseDistance, ZoneOfIndifference, KNearestNeighbors}) {
    ZoPatternsInformation info = Band(-1, true);
    info.FieldName = "VALUE";
    info.Conceptualization = c;
    info.KNeighbors = 4;
    info.Exponent = 2;
    const std::string path = dir.File("w.swmb");
    ZoWeightsUtilities w;
    ASSERT_TRUE(w.BuildWeightMatrixBinary(layer.dataset, "ID", path, info, false)) << w.GetStrErrorMes().Str();

    ZoStatisticsUtilities u;
    LumaArray<WeightMatrixUnit> units;
    ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
    info.Standardization = false;  // files hold raw weights
    ASSERT_TRUE(u.GetSpatialWeight(records.get(), info, units, false));

    Opened file(layer.dataset, path);
    ASSERT_NE(file.f, nullptr) << file.u.GetStrErrorMes().Str();
    EXPECT_EQ(file.field, "ID");
    EXPECT_EQ(file.model, c);
    EXPECT_EQ(file.standardization, 1);
    const int n = static_cast<int>(points.size());
    LumaArray<double> fromFile, fromMemory;
    for (int i = 0; i < n; ++i) {
      ASSERT_TRUE(file.u.ReadWeightMatrixBinary(file.f, file.index[i].Count, n, fromFile));
      ZoStatisticsUtilities::GetWeightMatrixRow(units, i, n, fromMemory);
      EXPECT_EQ(fromFile, fromMemory) << "row " << i;
      double sum = 0;
      for (double x : fromFile) sum += x;
      EXPECT_NEAR(file.sums[i], sum, 1e-12);
    }
  }
}

TEST(WeightsBinary, RefusedBuildsLeaveNoFile) {
  satest::TempDir dir;
  const std::string path = dir.File("w.swmb");
  auto check = [&](ZoDatasetVector* ds, const char* field, const ZoPatternsInformation& info, const char* id) {
    WriteAll(path, {1, 2, 3});  // an old file at the path goes in every case
    ZoWeightsUtilities w;
    EXPECT_FALSE(w.BuildWeightMatrixBinary(ds, field, path, info, false)) << id;
    EXPECT_TRUE(Has(w, id)) << w.GetStrErrorMes().Str();
    EXPECT_FALSE(ZoFile::IsExist(path)) << id;
  };
  auto layer = Layer(kLine, {5, 6, 5, 7});
  check(layer.dataset, "ID", Band(2, false), ZOC::msg::ESa044);
  check(layer.dataset, "FID_REAL", Band(2, false), ZOC::msg::ECa009);
  check(layer.dataset, "NOPE", Band(2, false), ZOC::msg::ECb004);
  check(layer.dataset, "", Band(2, false), ZOC::msg::ECb005);
  check(layer.dataset, "QlID", Nearest(4), ZOC::msg::ESa042);
  ZoPatternsInformation k = Band(2, false);
  k.Conceptualization = ContiguityEdgesOnly;
  check(layer.dataset, "QlID", k, ZOC::msg::ESa025);
  ZoPatternsInformation unknown = Band(2, false);
  unknown.Conceptualization = SpatialWeightsFile;  // no file stores that relationship
  check(layer.dataset, "QlID", unknown, ZOC::msg::ESa023);

  ZoWeightsUtilities w;
  EXPECT_FALSE(w.BuildWeightMatrixBinary(nullptr, "QlID", dir.File("w.swmb"), Band(2, false), false));
  EXPECT_TRUE(Has(w, ZOC::msg::EEg002));
  EXPECT_FALSE(w.BuildWeightMatrixBinary(layer.dataset, "QlID", dir.File("w.txt"), Band(2, false), false));
  EXPECT_TRUE(Has(w, ZOC::msg::EAf017));
  auto source = ZoDataSource::CreateMemory();  // a table has no places
  ZoDatasetVector* table = source->CreateDatasetVector("t", DatasetTabular, ZoPrjCoordSys());
  EXPECT_FALSE(w.BuildWeightMatrixBinary(table, "QlID", dir.File("t.swmb"), Band(-1, false), false));
  EXPECT_TRUE(Has(w, ZOC::msg::EEe018));
  // A band that joins nobody still makes a valid file: every count is 0.
  EXPECT_TRUE(w.BuildWeightMatrixBinary(layer.dataset, "QlID", dir.File("none.swmb"), Band(1e-3, false), false));

  EXPECT_TRUE(w.BuildWeightMatrixBinary(layer.dataset, "QlID", dir.File("W.SWMB"), Nearest(3), false))  // N − 1
      << w.GetStrErrorMes().Str();
}

TEST(WeightsBinary, CancelledBuildLeavesNoFiles) {
  auto layer = Layer(satest::RandomPoints(200, 10, 4), std::vector<int>(200, 0));
  satest::TempDir dir;
  ZoCallbackProgress progress([](const ZoProgressState& s) { return s.percent < 40; });
  ZoWeightsUtilities w;
  w.SetProgress(&progress);
  const ZoPatternsInformation info = Nearest(3);
  EXPECT_FALSE(w.BuildWeightMatrixBinaryK(layer.dataset, "QlID", dir.File("k.swmb"), dir.File("k.flags"), info, true));
  EXPECT_TRUE(Has(w, ZOC::msg::IMb030));
  EXPECT_FALSE(w.BuildWeightMatrixText(layer.dataset, "QlID", dir.File("t.swmb"), info, true));
  EXPECT_TRUE(Has(w, ZOC::msg::IMb030));
  // Nothing at all: neither the outputs nor the temporaries they were built under.
  EXPECT_EQ(Listing(dir), std::vector<std::string>{});
}

TEST(WeightsBinary, FlagMatrixIsTransposedAndRebuildsFromTheFile) {
  const auto points = satest::RandomPoints(25, 10, 9);
  std::vector<int> ids(points.size());
  for (std::size_t k = 0; k < ids.size(); ++k) ids[k] = static_cast<int>(ids.size() - k);  // reversed
  auto layer = Layer(points, ids);
  satest::TempDir dir;
  ZoPatternsInformation info = Nearest(3);
  ZoWeightsUtilities w;
  EXPECT_FALSE(w.BuildWeightMatrixBinaryK(layer.dataset, "ID", dir.File("k.swmb"), "", info, false));
  EXPECT_TRUE(Has(w, ZOC::msg::ESa076));
  info.Conceptualization = FixedDistanceBand;
  EXPECT_FALSE(w.BuildWeightMatrixBinaryK(layer.dataset, "ID", dir.File("k.swmb"), dir.File("k.flags"), info, false));
  EXPECT_TRUE(Has(w, ZOC::msg::ESa048));
  info.Conceptualization = KNearestNeighbors;
  EXPECT_FALSE(w.BuildWeightMatrixBinaryK(layer.dataset, "ID", dir.File("k.swmb"), dir.File("k.swmb"), info, false));
  EXPECT_TRUE(Has(w, ZOC::msg::EUb004));  // the flag matrix may not be the weights file
  // A build over an existing file replaces it and leaves nothing else.
  WriteAll(dir.File("k.swmb"), {1, 2, 3});
  ASSERT_TRUE(w.BuildWeightMatrixBinaryK(layer.dataset, "ID", dir.File("k.swmb"), dir.File("k.flags"), info, false))
      << w.GetStrErrorMes().Str();
  EXPECT_EQ(Listing(dir), (std::vector<std::string>{"k.flags", "k.swmb"}));

  // Rows from the file: byte j·N + i is 1 exactly for the records (i, j).
  const int n = 25;
  Opened file(layer.dataset, dir.File("k.swmb"));
  ASSERT_NE(file.f, nullptr);
  Bytes expected(n * n, 0);
  LumaArray<double> row;
  for (int i = 0; i < n; ++i) {
    ASSERT_TRUE(file.u.ReadWeightMatrixBinary(file.f, file.index[i].Count, n, row));
    EXPECT_EQ(file.index[i].Count, 3);
    for (int j = 0; j < n; ++j)
      if (row[j] != 0) expected[j * n + i] = 1;
  }
  EXPECT_EQ(ReadAll(dir.File("k.flags")), expected);

  ASSERT_EQ(std::fseek(file.f, 0, SEEK_SET), 0);
  ASSERT_TRUE(w.BuildWeightsDictionary(file.f, dir.File("again.flags"), false)) << w.GetStrErrorMes().Str();
  EXPECT_EQ(ReadAll(dir.File("again.flags")), expected);

  ZoAnalyzingPatterns patterns;
  EXPECT_FALSE(patterns.ReadWeightMatrixBinaryK(n, row));
  EXPECT_TRUE(Has(patterns, ZOC::msg::EEg020));
  ASSERT_TRUE(patterns.OpenWeightsDictionary(dir.File("k.flags")));
  for (int r = 0; r < n; ++r) {
    ASSERT_TRUE(patterns.ReadWeightMatrixBinaryK(n, row));
    for (int i = 0; i < n; ++i) EXPECT_EQ(row[i], expected[r * n + i]);
  }
  EXPECT_FALSE(patterns.ReadWeightMatrixBinaryK(n, row));  // past the last block
  EXPECT_TRUE(Has(patterns, ZOC::msg::ESa046));
}

TEST(WeightsBinary, ChangedDatasetsAndDamagedFilesAreRefused) {
  auto layer = Layer(kLine, kIds);
  satest::TempDir dir;
  const std::string good = dir.File("good.swmb");
  ZoWeightsUtilities w;
  ASSERT_TRUE(w.BuildWeightMatrixBinary(layer.dataset, "ID", good, Band(1.5, true), false));
  const Bytes bytes = ReadAll(good);

  auto open = [&](ZoDatasetVector* ds, const std::string& path, const char* id) {
    Opened file(ds, path);
    EXPECT_EQ(file.f, nullptr) << id;
    EXPECT_TRUE(Has(file.u, id)) << id << ": " << file.u.GetStrErrorMes().Str();
  };
  auto damaged = [&](Bytes b, const char* id) {
    const std::string path = dir.File("bad.swmb");
    WriteAll(path, b);
    open(layer.dataset, path, id);
  };
  const std::size_t headerEnd = 4 + bytes[0] + 256 * bytes[1];

  // Cuts and extra bytes are refused by every reader: WeightsTextTest.cpp.
  damaged(Bytes(bytes.begin(), bytes.begin() + 20), ZOC::msg::ESa045);              // cut inside the header
  damaged(Bytes(bytes.begin(), bytes.begin() + headerEnd + 12), ZOC::msg::ESa046);  // cut inside the index
  Bytes hugeLength = bytes;
  hugeLength[0] = 0xFF, hugeLength[1] = 0xFF, hugeLength[2] = 0xFF, hugeLength[3] = 0x7F;
  damaged(hugeLength, ZOC::msg::ESa045);

  const std::string ok =
      "QUILLARD@QUILLARD;DATASETNAME@points;DATASETTYPE@1;COUNTS@4;UNIQUEID@ID;"
      "CONCEPTUALIZATION@3;STANDARDIZATION@0;DISTANCEMETHOD@1;";
  auto header = [&](std::string text, const std::string& from = "", const std::string& to = "") {
    if (!from.empty()) text.replace(text.find(from), from.size(), to);
    Bytes b;
    PutHeader(b, text);
    return b;
  };
  damaged(header("QUILLARD@QUILLARD;DATASETNAME@points;DATASETTYPE@1;Counts@4;"), ZOC::msg::ESa045);
  damaged(header("QUILLARD@QUILLARD;DATASETNAME@points;"), ZOC::msg::ESa045);         // parts missing
  damaged(header(ok + "EXTRA@1;"), ZOC::msg::ESa045);                                 // a ninth part
  damaged(header(ok, "DATASETNAME@points", "DATASETNAME;points"), ZOC::msg::ESa045);  // no value
  damaged(header(ok, "points", std::string(200, 'x')), ZOC::msg::ESa045);             // 200 code units or more
  damaged(header(ok, "COUNTS@4", "COUNTS@four"), ZOC::msg::ESa045);
  damaged(header(ok, "UNIQUEID@ID", "UNIQUEID@NOPE"), ZOC::msg::ESa078);

  // A text weights file is named as such, not as an unreadable header.
  ASSERT_TRUE(w.BuildWeightMatrixText(layer.dataset, "ID", dir.File("text.swmb"), Band(1.5, true), false));
  open(layer.dataset, dir.File("text.swmb"), ZOC::msg::EUb001);

  open(nullptr, good, ZOC::msg::EEg002);
  open(layer.dataset, "", ZOC::msg::ESa076);
  open(layer.dataset, dir.File("x.bin"), ZOC::msg::EAf017);
  open(layer.dataset, dir.File("missing.swmb"), ZOC::msg::ESa077);

  // The dataset changed after the build: an ID, then the record count.
  auto changed = Layer(kLine, {30, 11, 40, 20});
  open(changed.dataset, good, ZOC::msg::ESa080);
  auto more = Layer({{0, 0}, {1, 0}, {2, 0}, {4, 0}, {9, 9}}, {30, 10, 40, 20, 50});
  open(more.dataset, good, ZOC::msg::ESa079);

  ZoStatisticsUtilities u;
  LumaArray<double> dense;
  EXPECT_FALSE(u.ReadWeightMatrixBinary(nullptr, 1, 4, dense));
  EXPECT_TRUE(Has(u, ZOC::msg::EEg020));
}
