// Text weights files, the diagnostic dumps and the conversion of weights files
// to tables, checked against hand-worked files and against damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <tuple>
#include <vector>

#include "StatisticsAnalyst/WeightsFileReaders.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "TestSupport.h"
#include "host/ZoFile.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

using namespace ZOC;

namespace {

// Points on the x axis with an int32 field "UID", inserted out of ID order so
// the files must sort them.
struct IdLayer {
  std::unique_ptr<ZoDataSource> source;
  ZoDatasetVector* dataset = nullptr;
};
IdLayer MakeIdLayer(const std::vector<std::pair<int, double>>& idAndX) {
  IdLayer layer;
  layer.source = ZoDataSource::CreateMemory();
  layer.dataset = layer.source->CreateDatasetVector("points", DatasetPoint, ZoPrjCoordSys());
  layer.dataset->CreateField(LUMA::LumaFieldInfo("UID", LUMA::FieldInt32));
  ZoRecordset* writer = layer.dataset->Query(ZoQueryDef());
  for (const auto& [id, x] : idAndX) {
    writer->AddNew(ZoGeometry::MakePoint({x, 0.0}));
    writer->SetFieldValue("UID", LUMA::LumaVariant(id));
    writer->Update();
  }
  layer.dataset->ReleaseRecordset(writer);
  layer.dataset->Commit();
  return layer;
}

// IDs 10..50 at x = 0, 1, 2, 3 and 10 (50 has no neighbour within 1.5).
IdLayer LineLayer() { return MakeIdLayer({{30, 2.0}, {10, 0.0}, {50, 10.0}, {40, 3.0}, {20, 1.0}}); }

ZoPatternsInformation Band(double band, bool standardize, ZoConceptualizationModel model = FixedDistanceBand) {
  ZoPatternsInformation info;
  info.Conceptualization = model;
  info.DistanceTolerance = band;
  info.Standardization = standardize;
  return info;
}

std::vector<std::string> Lines(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

bool HasId(const ZoWeightsUtilities& u, const char* id) {
  return u.GetStrErrorMes().Str().find(std::string("[") + id + "]") != std::string::npos;
}

struct Table {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory();
  ZoDatasetVector* dataset = source->CreateDatasetVector("table", DatasetTabular, ZoPrjCoordSys());
  // (UniqueID, NeighborsID) → Weight.
  std::map<std::pair<int, int>, double> Rows() const {
    std::map<std::pair<int, int>, double> rows;
    ZoRecordsetPtr r(dataset->Query(ZoQueryDef()));
    LumaVariant a, b, w;
    for (bool more = r->MoveFirst(); more && !r->IsEOF(); more = r->MoveNext()) {
      r->GetFieldValue("UniqueID", a);
      r->GetFieldValue("NeighborsID", b);
      r->GetFieldValue("Weight", w);
      rows[{a.ToInt(), b.ToInt()}] = w.ToDouble();
    }
    return rows;
  }
};

// A binary weights file written byte by byte, so damaged files can be made.
struct RawSwmb {
  int count = 2;
  int standardized = 0;
  std::vector<std::pair<std::int32_t, std::int32_t>> index = {{7, 1}, {8, 1}};
  std::vector<double> sums;
  std::vector<std::tuple<std::int32_t, std::int32_t, double>> records = {{0, 1, 1.0}, {1, 0, 1.0}};

  std::string Bytes() const {
    const std::string header = "QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@" + std::to_string(count) +
                               ";UNIQUEID@UID;CONCEPTUALIZATION@3;STANDARDIZATION@" + std::to_string(standardized) +
                               ";DISTANCEMETHOD@1;";
    std::string out;
    auto put = [&out](const void* p, std::size_t n) { out.append(static_cast<const char*>(p), n); };
    const std::int32_t length = static_cast<std::int32_t>(header.size() * 2);
    put(&length, 4);
    for (char c : header) {
      const char unit[2] = {c, 0};
      put(unit, 2);
    }
    for (const auto& [id, n] : index) {
      put(&id, 4);
      put(&n, 4);
    }
    for (double s : sums) put(&s, 8);
    for (const auto& [i, j, w] : records) {
      put(&i, 4);
      put(&j, 4);
      put(&w, 8);
    }
    return out;
  }
};

constexpr const char* kHeader1 =
    "QUILLARD@QUILLARD;DATASETNAME@points;DATASETTYPE@1;COUNTS@5;UNIQUEID@UID;CONCEPTUALIZATION@3;STANDARDIZATION@1;";

}  // namespace

TEST(WeightsText, FixedBandFileLineByLine) {
  satest::TempDir dir;
  IdLayer layer = LineLayer();
  ZoWeightsUtilities u;
  const std::string path = dir.File("band.swmb");
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", path, Band(1.5, true), 0)) << u.GetStrErrorMes().Str();
  // Worked by hand: sorted by UID the points are x = 0, 1, 2, 3, 10; a band
  // of 1.5 joins each point to the next, all weights 1; the fifth is alone.
  const std::vector<std::string> expected = {
      kHeader1,
      "10 20 30 40 50 ",
      "1.0000000000 2.0000000000 2.0000000000 1.0000000000 0.0000000000 ",
      "0 1 1.0000000000;",
      "1 0 1.0000000000;1 2 1.0000000000;",
      "2 1 1.0000000000;2 3 1.0000000000;",
      "3 2 1.0000000000;",
      ";"};
  EXPECT_EQ(Lines(path), expected);  // N + 3 lines

  // Without standardization there is no row-sum line: N + 2 lines.
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", path, Band(1.5, false), 0));
  const auto lines = Lines(path);
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[0].substr(lines[0].size() - 18), "STANDARDIZATION@0;");
  EXPECT_EQ(lines[2], "0 1 1.0000000000;");

  // Inverse distance within 10: 1/2, 1/3, 1/5, 1/7 and 1/10 on the boundary.
  IdLayer spread = MakeIdLayer({{1, 0.0}, {2, 2.0}, {3, 5.0}, {4, 15.0}});
  ASSERT_TRUE(u.BuildWeightMatrixText(spread.dataset, "UID", path, Band(10, true, InverseDistance), 0));
  const std::vector<std::string> inverse = {
      "1 2 3 4 ",
      "0.7000000000 0.8333333333 0.6333333333 0.1000000000 ",
      "0 1 0.5000000000;0 2 0.2000000000;",
      "1 0 0.5000000000;1 2 0.3333333333;",
      "2 0 0.2000000000;2 1 0.3333333333;2 3 0.1000000000;",
      "3 2 0.1000000000;"};
  const auto inverseLines = Lines(path);
  ASSERT_FALSE(inverseLines.empty());
  EXPECT_EQ(std::vector<std::string>(inverseLines.begin() + 1, inverseLines.end()), inverse);

  // Row-sum entries are 13 characters whatever the size of the integer part.
  EXPECT_EQ(weightsfile::RowSumEntry(10.0), "10.000000000 ");
  EXPECT_EQ(weightsfile::RowSumEntry(123.456), "123.45600000 ");
  EXPECT_EQ(weightsfile::RowSumEntry(9.99), "9.9900000000 ");
}

TEST(WeightsText, BuildFailuresLeaveNoFile) {
  satest::TempDir dir;
  IdLayer layer = LineLayer();
  ZoWeightsUtilities u;
  // A cancelled build removes its partial file.
  const std::string path = dir.File("cancel.swmb");
  ZoCallbackProgress cancel([](const ZoProgressState&) { return false; });
  u.SetProgress(&cancel);
  EXPECT_FALSE(u.BuildWeightMatrixText(layer.dataset, "UID", path, Band(1.5, true), 1));
  EXPECT_TRUE(HasId(u, "IMb030")) << u.GetStrErrorMes().Str();
  EXPECT_FALSE(ZoFile::IsExist(path));
  u.SetProgress(nullptr);
  // An upper-case extension is written, but the text readers refuse it.
  const std::string upper = dir.File("upper.SWMB");
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", upper, Band(1.5, false), 0));
  EXPECT_FALSE(u.ReadWeightMatrixText(upper));
  EXPECT_TRUE(HasId(u, "EAf017"));
  Table table;
  EXPECT_FALSE(u.TextConverToTable(table.dataset, upper, 0));
  EXPECT_TRUE(HasId(u, "EAf017"));
  EXPECT_FALSE(u.BuildWeightMatrixText(layer.dataset, "UID", dir.File("x.txt"), Band(1.5, false), 0));
  EXPECT_TRUE(HasId(u, "EAf017"));
}

TEST(WeightsText, BinaryAndTextConvertToTheSameTable) {
  satest::TempDir dir;
  IdLayer layer = LineLayer();
  ZoWeightsUtilities u;
  const std::string bin = dir.File("b.swmb"), text = dir.File("t.swmb");
  ASSERT_TRUE(u.BuildWeightMatrixBinary(layer.dataset, "UID", bin, Band(1.5, true), 0)) << u.GetStrErrorMes().Str();
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", text, Band(1.5, true), 0));
  Table fromBinary, fromText;
  ASSERT_TRUE(u.BinaryConverToTable(fromBinary.dataset, bin, 0)) << u.GetStrErrorMes().Str();
  ASSERT_TRUE(u.TextConverToTable(fromText.dataset, text, 0)) << u.GetStrErrorMes().Str();
  // Standardized: each weight over its row's sum; 50 has no neighbour, no row.
  const std::map<std::pair<int, int>, double> expected = {{{10, 20}, 1.0}, {{20, 10}, 0.5}, {{20, 30}, 0.5},
                                                          {{30, 20}, 0.5}, {{30, 40}, 0.5}, {{40, 30}, 1.0}};
  EXPECT_EQ(fromBinary.Rows(), expected);
  EXPECT_EQ(fromText.Rows(), expected);

  // A larger case: queen contiguity of columbus; both forms agree and each
  // feature's standardized weights add up to 1.
  LumaUnicodeString error;
  auto columbus = ZoDataSource::Open(satest::DataPath("columbus.gpkg"), false, &error);
  ASSERT_TRUE(columbus);
  ZoPatternsInformation queen = Band(-1, true, ContiguityEdgesCorners);
  ASSERT_TRUE(u.BuildWeightMatrixBinary(columbus->GetDataset(0), "POLYID", bin, queen, 0)) << u.GetStrErrorMes().Str();
  ASSERT_TRUE(u.BuildWeightMatrixText(columbus->GetDataset(0), "POLYID", text, queen, 0));
  Table b2, t2;
  ASSERT_TRUE(u.BinaryConverToTable(b2.dataset, bin, 0));
  ASSERT_TRUE(u.TextConverToTable(t2.dataset, text, 0));
  const auto rows = b2.Rows(), textRows = t2.Rows();
  ASSERT_EQ(rows.size(), 236u);
  ASSERT_EQ(textRows.size(), rows.size());
  std::map<int, double> sums;
  for (const auto& [key, w] : rows) {
    sums[key.first] += w;
    EXPECT_NEAR(textRows.at(key), w, 1e-10);
    EXPECT_TRUE(rows.count({key.second, key.first}));  // contiguity is symmetric
  }
  EXPECT_EQ(sums.size(), 49u);
  for (const auto& [id, sum] : sums) EXPECT_NEAR(sum, 1.0, 1e-12) << id;

  // Both dumps print the same lines for the same weights.
  testing::internal::CaptureStdout();
  ASSERT_TRUE(u.ReadWeightMatrixTextEx(bin));
  const std::string binaryDump = testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  ASSERT_TRUE(u.ReadWeightMatrixText(text));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), binaryDump);
  EXPECT_EQ(std::count(binaryDump.begin(), binaryDump.end(), '\n'), 2 + 236);
}

TEST(WeightsText, ConverterRefusals) {
  satest::TempDir dir;
  IdLayer layer = LineLayer();
  ZoWeightsUtilities u;
  Table table;
  const std::string text = dir.File("t.swmb");
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", text, Band(1.5, false), 0));
  EXPECT_FALSE(u.TextConverToTable(nullptr, text, 0));
  EXPECT_TRUE(HasId(u, "EEg002"));
  EXPECT_FALSE(u.TextConverToTable(layer.dataset, text, 0));  // a point dataset is no table
  EXPECT_TRUE(HasId(u, "ELb001"));
  EXPECT_FALSE(u.BinaryConverToTable(layer.dataset, text, 0));
  EXPECT_TRUE(HasId(u, "ELb001"));
  EXPECT_FALSE(u.TextConverToTable(table.dataset, dir.File("missing.swmb"), 0));
  EXPECT_TRUE(HasId(u, "EAg033"));
  EXPECT_FALSE(u.BinaryConverToTable(table.dataset, dir.File("missing.swmb"), 0));
  EXPECT_TRUE(HasId(u, "ESa049"));
  EXPECT_FALSE(u.BinaryConverToTable(table.dataset, text, 0));  // a text file is no binary file
  EXPECT_TRUE(HasId(u, "ESa045"));
  // Cancelling the conversion.
  ZoCallbackProgress cancel([](const ZoProgressState&) { return false; });
  u.SetProgress(&cancel);
  EXPECT_FALSE(u.TextConverToTable(table.dataset, text, 1));
  EXPECT_TRUE(HasId(u, "IMb030"));
}

TEST(WeightsText, DamagedTextFilesFailCleanly) {
  satest::TempDir dir;
  const std::string path = dir.File("bad.swmb");
  const std::string head0 =
      "QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@2;UNIQUEID@UID;CONCEPTUALIZATION@3;STANDARDIZATION@0;\n";
  const std::string head1 =
      "QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@2;UNIQUEID@UID;CONCEPTUALIZATION@3;STANDARDIZATION@1;\n";
  const std::vector<std::pair<std::string, const char*>> cases = {
      {"", "ESa045"},                                                   // empty file
      {"QUILLARD@QUILLARD;DATASETNAME@d;Counts@2;\n7 8 \n", "ESa045"},  // a key out of place
      {"QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@2;\n7 8 \n", "ESa045"},  // no STANDARDIZATION
      {"QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@two;UNIQUEID@U;CONCEPTUALIZATION@3;"
       "STANDARDIZATION@0;\n7 8 \n",
       "ESa045"},
      {"QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@-2;UNIQUEID@U;CONCEPTUALIZATION@3;"
       "STANDARDIZATION@0;\n",
       "ESa045"},
      {head0, "ESa046"},                                       // no ID line
      {head0 + "7 \n;\n", "ESa046"},                           // fewer IDs than COUNTS
      {head0 + "7 8 9 \n;\n;\n", "ESa046"},                    // more IDs
      {head0 + "7 x \n;\n;\n", "ESa046"},                      // an ID that is no number
      {head1 + "7 8 \n", "ESa046"},                            // no row-sum line
      {head1 + "7 8 \n1.0000000000 \n", "ESa046"},             // too few row sums
      {head0 + "7 8 \n0 1 1.0000000000;\n1 0 abc;\n", "ESa046"},   // garbage weight
      {head0 + "7 8 \n0 2 1.0000000000;\n;\n", "ESa046"},          // column out of range
      {head0 + "7 8 \n-1 1 1.0000000000;\n;\n", "ESa046"},         // row out of range
      {head0 + "7 8 \n0 1;\n;\n", "ESa046"},                       // too few pieces
      {head0 + "7 8 \n0 1 1.0 4;\n;\n", "ESa046"},                 // too many pieces
      {head0 + "7 8 \n0 1 nan;\n;\n", "ESa046"},                   // not a finite weight
      {head0 + "7 8 \n;\n;\n0 1 1.0;\n", "ESa046"},                // a row more than COUNTS
  };
  ZoWeightsUtilities u;
  for (const auto& [content, id] : cases) {
    WriteFile(path, content);
    Table table;
    EXPECT_FALSE(u.TextConverToTable(table.dataset, path, 0)) << content;
    EXPECT_TRUE(HasId(u, id)) << content << " -> " << u.GetStrErrorMes().Str();
    // Refused before the table is touched: no fields, no rows.
    EXPECT_EQ(table.dataset->GetFieldInfos().size(), 1u) << content;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(u.ReadWeightMatrixText(path)) << content;
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(HasId(u, id)) << content;
  }
  // A file that ends before its last row is converted up to there. Each
  // record names its feature by its own row index; the divisor is the sum of
  // the line it stands on.
  WriteFile(path, head1 + "7 8 \n2.0000000000 1.0000000000 \n0 1 1.0;1 1 3.0;\n");
  Table table;
  ASSERT_TRUE(u.TextConverToTable(table.dataset, path, 0)) << u.GetStrErrorMes().Str();
  const std::map<std::pair<int, int>, double> expected = {{{7, 8}, 0.5}, {{8, 8}, 1.5}};
  EXPECT_EQ(table.Rows(), expected);
}

TEST(WeightsText, DamagedBinaryFilesFailCleanly) {
  satest::TempDir dir;
  const std::string path = dir.File("bad.swmb");
  ZoWeightsUtilities u;
  auto convert = [&](const RawSwmb& raw, std::size_t* rows = nullptr) {
    WriteFile(path, raw.Bytes());
    Table table;
    const bool ok = u.BinaryConverToTable(table.dataset, path, 0);
    if (rows) *rows = table.Rows().size();
    return ok;
  };
  RawSwmb good;
  std::size_t rows = 0;
  ASSERT_TRUE(convert(good, &rows)) << u.GetStrErrorMes().Str();
  EXPECT_EQ(rows, 2u);

  RawSwmb outOfRange = good;
  std::get<1>(outOfRange.records[1]) = 5;
  EXPECT_FALSE(convert(outOfRange));
  EXPECT_TRUE(HasId(u, "ESa046"));
  RawSwmb negativeCount = good;
  negativeCount.index[0].second = -1;
  EXPECT_FALSE(convert(negativeCount));
  EXPECT_TRUE(HasId(u, "ESa046"));
  RawSwmb hugeCount = good;  // COUNTS far beyond the file: refused before any allocation
  hugeCount.count = 2000000000;
  EXPECT_FALSE(convert(hugeCount));
  EXPECT_TRUE(HasId(u, "ESa046"));
  RawSwmb missingSums = good;
  missingSums.standardized = 1;
  missingSums.records.clear();
  EXPECT_FALSE(convert(missingSums));
  EXPECT_TRUE(HasId(u, "ESa046"));
  // A row count beyond the file ends the conversion early, which still succeeds;
  // the dump calls that row unreadable.
  RawSwmb longRow = good;
  longRow.index[1].second = 1000000;
  ASSERT_TRUE(convert(longRow, &rows));
  EXPECT_EQ(rows, 1u);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(u.ReadWeightMatrixTextEx(path));
  testing::internal::GetCapturedStdout();
  EXPECT_TRUE(HasId(u, "ESa046"));

  // Every truncation of a valid file either fails with a message or converts a prefix.
  const std::string bytes = good.Bytes();
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    WriteFile(path, bytes.substr(0, size));
    Table table;
    if (!u.BinaryConverToTable(table.dataset, path, 0)) {
      EXPECT_FALSE(u.GetStrErrorMes().IsEmpty()) << size;
    } else {
      EXPECT_LT(table.Rows().size(), 2u) << size;
    }
    testing::internal::CaptureStdout();
    EXPECT_FALSE(u.ReadWeightMatrixTextEx(path)) << size;
    testing::internal::GetCapturedStdout();
  }
}
