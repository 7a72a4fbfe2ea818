// Text weights files, the diagnostic dumps and the conversion of weights files
// to tables, checked against hand-worked files and against damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <tuple>
#include <vector>

#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"
#include "TestSupport.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

using namespace ZOC;

namespace {

// Points on the x axis with an int32 field "UID", inserted out of ID order so
// the files must sort them.
struct IdLayer {
  std::unique_ptr<ZoDataSource> source = ZoDataSource::CreateMemory();
  ZoDatasetVector* dataset = source->CreateDatasetVector("points", DatasetPoint, ZoPrjCoordSys());
};
IdLayer MakeIdLayer(const std::vector<std::pair<int, double>>& idAndX) {
  IdLayer layer;
  layer.dataset->CreateField(LUMA::LumaFieldInfo("UID", LUMA::FieldInt32));
  {
    ZoRecordsetPtr writer(layer.dataset->Query(ZoQueryDef()));
    for (const auto& [id, x] : idAndX) {
      writer->AddNew(ZoGeometry::MakePoint({x, 0.0}));
      writer->SetFieldValue("UID", LUMA::LumaVariant(id));
      writer->Update();
    }
  }
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

bool HasId(const ZoWeightsUtilities& u, const char* id) { return satest::HasMessageId(u.GetStrErrorMes(), id); }

// Runs a dump, which prints to stdout, and keeps what it printed.
bool Dump(ZoWeightsUtilities& u, const std::string& path, bool binary, std::string* out = nullptr) {
  testing::internal::CaptureStdout();
  const bool ok = binary ? u.ReadWeightMatrixTextEx(path) : u.ReadWeightMatrixText(path);
  const std::string printed = testing::internal::GetCapturedStdout();
  if (out) *out = printed;
  return ok;
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
  std::vector<std::tuple<std::int32_t, std::int32_t, double>> records = {{0, 1, 1.0}, {1, 0, 1.0}};

  std::string Bytes() const {
    const std::string header = "QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@" + std::to_string(count) +
                               ";UNIQUEID@UID;CONCEPTUALIZATION@3;STANDARDIZATION@" + std::to_string(standardized) +
                               ";DISTANCEMETHOD@1;";
    std::string out;
    auto put = [&out](const auto& v) { out.append(reinterpret_cast<const char*>(&v), sizeof v); };
    put(static_cast<std::int32_t>(header.size() * 2));
    for (char c : header) put(static_cast<char16_t>(c));
    for (const auto& [id, n] : index) put(id), put(n);
    for (const auto& [i, j, w] : records) put(i), put(j), put(w);
    return out;
  }
};

}  // namespace

TEST(WeightsText, HandWorkedFilesTablesAndDumps) {
  satest::TempDir dir;
  IdLayer layer = LineLayer();
  ZoWeightsUtilities u;
  const std::string bin = dir.File("b.swmb"), text = dir.File("t.swmb");
  // Builds both forms of one weights file and converts each to a table.
  auto convertBoth = [&](ZoDatasetVector* ds, const char* field, const ZoPatternsInformation& info) {
    std::pair<Table, Table> tables;
    EXPECT_TRUE(u.BuildWeightMatrixBinary(ds, field, bin, info, 0)) << u.GetStrErrorMes().Str();
    EXPECT_TRUE(u.BuildWeightMatrixText(ds, field, text, info, 0)) << u.GetStrErrorMes().Str();
    EXPECT_TRUE(u.BinaryConverToTable(tables.first.dataset, bin, 0)) << u.GetStrErrorMes().Str();
    EXPECT_TRUE(u.TextConverToTable(tables.second.dataset, text, 0)) << u.GetStrErrorMes().Str();
    return std::pair{tables.first.Rows(), tables.second.Rows()};
  };
  const auto [fromBinary, fromText] = convertBoth(layer.dataset, "UID", Band(1.5, true));
  // Sorted by UID the points are x = 0, 1, 2, 3, 10; a band of 1.5 joins each
  // point to the next, all weights 1; the fifth is alone, a bare ";" row.
  const std::vector<std::string> expected = {
      "QUILLARD@QUILLARD;DATASETNAME@points;DATASETTYPE@1;COUNTS@5;UNIQUEID@UID;CONCEPTUALIZATION@3;"
      "STANDARDIZATION@1;",
      "10 20 30 40 50 ",
      "1.0000000000 2.0000000000 2.0000000000 1.0000000000 0.0000000000 ",
      "0 1 1.0000000000;",
      "1 0 1.0000000000;1 2 1.0000000000;",
      "2 1 1.0000000000;2 3 1.0000000000;",
      "3 2 1.0000000000;",
      ";"};
  EXPECT_EQ(Lines(text), expected);
  // As tables, standardized: each weight over its row's sum; 50 has no row.
  const std::map<std::pair<int, int>, double> rows = {{{10, 20}, 1.0}, {{20, 10}, 0.5}, {{20, 30}, 0.5},
                                                      {{30, 20}, 0.5}, {{30, 40}, 0.5}, {{40, 30}, 1.0}};
  EXPECT_EQ(fromBinary, rows);
  EXPECT_EQ(fromText, rows);

  // Without standardization there is no row-sum line.
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", text, Band(1.5, false), 0));
  std::vector<std::string> unstandardized = expected;
  unstandardized[0].replace(unstandardized[0].size() - 2, 1, "0");
  unstandardized.erase(unstandardized.begin() + 2);
  EXPECT_EQ(Lines(text), unstandardized);

  // Inverse distance within 10: 1/2, 1/3, 1/5, 1/7 and 1/10 on the boundary.
  IdLayer spread = MakeIdLayer({{1, 0.0}, {2, 2.0}, {3, 5.0}, {4, 15.0}});
  ASSERT_TRUE(u.BuildWeightMatrixText(spread.dataset, "UID", text, Band(10, true, InverseDistance), 0));
  const std::vector<std::string> inverse = {"1 2 3 4 ",
                                            "0.7000000000 0.8333333333 0.6333333333 0.1000000000 ",
                                            "0 1 0.5000000000;0 2 0.2000000000;",
                                            "1 0 0.5000000000;1 2 0.3333333333;",
                                            "2 0 0.2000000000;2 1 0.3333333333;2 3 0.1000000000;",
                                            "3 2 0.1000000000;"};
  const auto inverseLines = Lines(text);
  ASSERT_FALSE(inverseLines.empty());
  EXPECT_EQ(std::vector<std::string>(inverseLines.begin() + 1, inverseLines.end()), inverse);
  // Row-sum entries are 13 characters whatever the size of the integer part.
  EXPECT_EQ(detail::weights::RowSumEntry(10.0), "10.000000000 ");
  EXPECT_EQ(detail::weights::RowSumEntry(123.456), "123.45600000 ");
  EXPECT_EQ(detail::weights::RowSumEntry(9.99), "9.9900000000 ");

  // Queen contiguity of columbus, up to ten neighbours a row: both forms give
  // the same table, and both dumps print the same lines.
  auto columbus = ZoDataSource::Open(satest::DataPath("columbus.gpkg"), false);
  ASSERT_TRUE(columbus);
  const auto [binaryRows, textRows] =
      convertBoth(columbus->GetDataset(0), "POLYID", Band(-1, true, ContiguityEdgesCorners));
  ASSERT_EQ(binaryRows.size(), 236u);
  ASSERT_EQ(textRows.size(), binaryRows.size());
  for (const auto& [key, w] : binaryRows) EXPECT_NEAR(textRows.at(key), w, 1e-10);
  std::string binaryDump, textDump;
  ASSERT_TRUE(Dump(u, bin, true, &binaryDump));
  ASSERT_TRUE(Dump(u, text, false, &textDump));
  EXPECT_EQ(textDump, binaryDump);
  EXPECT_EQ(std::count(binaryDump.begin(), binaryDump.end(), '\n'), 2 + 236);
}

TEST(WeightsText, RefusedBuildsAndConversions) {
  satest::TempDir dir;
  IdLayer layer = LineLayer();
  ZoWeightsUtilities u;
  Table table;
  const std::string text = dir.File("t.swmb"), upper = dir.File("upper.SWMB"), missing = dir.File("missing.swmb");
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", text, Band(1.5, false), 0));
  // An upper-case extension is written, but the text readers refuse it.
  ASSERT_TRUE(u.BuildWeightMatrixText(layer.dataset, "UID", upper, Band(1.5, false), 0));
  // The dump of it, a missing text file and a text file read as binary are
  // refused in tests/hostile/weights.tsv.
  const std::vector<std::pair<std::function<bool()>, const char*>> refusals = {
      {[&] { return u.TextConverToTable(table.dataset, upper, 0); }, ZOC::msg::EAf017},
      {[&] { return u.BuildWeightMatrixText(layer.dataset, "UID", dir.File("x.txt"), Band(1.5, false), 0); },
       ZOC::msg::EAf017},
      {[&] { return u.TextConverToTable(nullptr, text, 0); }, ZOC::msg::EEg002},
      {[&] { return u.TextConverToTable(layer.dataset, text, 0); }, ZOC::msg::ELb001},  // a point dataset is no table
      {[&] { return u.BinaryConverToTable(layer.dataset, text, 0); }, ZOC::msg::ELb001},
      {[&] { return u.BinaryConverToTable(table.dataset, missing, 0); }, ZOC::msg::ESa049},
  };
  for (std::size_t i = 0; i < refusals.size(); ++i) {
    EXPECT_FALSE(refusals[i].first()) << i;
    EXPECT_TRUE(HasId(u, refusals[i].second)) << i << ": " << u.GetStrErrorMes().Str();
  }
  // Cancelling a conversion fails it (a cancelled build: WeightsBinaryTest.cpp).
  ZoCallbackProgress cancel([](const ZoProgressState&) { return false; });
  u.SetProgress(&cancel);
  EXPECT_FALSE(u.TextConverToTable(table.dataset, text, 1));
  EXPECT_TRUE(HasId(u, ZOC::msg::IMb030));
}

TEST(WeightsText, DamagedTextFilesFailCleanly) {
  satest::TempDir dir;
  const std::string path = dir.File("bad.swmb");
  auto head = [](const char* counts, int standardized) {
    return std::string("QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@") + counts +
           ";UNIQUEID@UID;CONCEPTUALIZATION@3;STANDARDIZATION@" + std::to_string(standardized) + ";\n";
  };
  const std::string head0 = head("2", 0), head1 = head("2", 1);
  const std::vector<std::pair<std::string, const char*>> cases = {
      {"", ZOC::msg::ESa045},                                                                 // empty file
      {"QUILLARD@QUILLARD;DATASETNAME@d;Counts@2;\n7 8 \n", ZOC::msg::ESa045},                // a key out of place
      {"QUILLARD@QUILLARD;DATASETNAME@d;DATASETTYPE@1;COUNTS@2;\n7 8 \n", ZOC::msg::ESa045},  // no STANDARDIZATION
      {head("two", 0) + "7 8 \n", ZOC::msg::ESa045},                                          // COUNTS no number
      {head("-2", 0), ZOC::msg::ESa045},                                                      // or negative
      {head0, ZOC::msg::ESa046},                                                              // no ID line
      {head0 + "7 \n;\n", ZOC::msg::ESa046},                                                  // fewer IDs than COUNTS
      {head0 + "7 8 9 \n;\n;\n", ZOC::msg::ESa046},                                           // more IDs
      {head0 + "7 x \n;\n;\n", ZOC::msg::ESa046},                                             // an ID that is no number
      {head1 + "7 8 \n", ZOC::msg::ESa046},                                                   // no row-sum line
      {head1 + "7 8 \n1.0000000000 \n", ZOC::msg::ESa046},                                    // too few row sums
      {head0 + "7 8 \n0 1 1.0000000000;\n1 0 abc;\n", ZOC::msg::ESa046},                      // garbage weight
      {head0 + "7 8 \n0 2 1.0000000000;\n;\n", ZOC::msg::ESa046},                             // column out of range
      {head0 + "7 8 \n-1 1 1.0000000000;\n;\n", ZOC::msg::ESa046},                            // row out of range
      {head0 + "7 8 \n0 1;\n;\n", ZOC::msg::ESa046},                                          // too few pieces
      {head0 + "7 8 \n0 1 1.0 4;\n;\n", ZOC::msg::ESa046},                                    // too many pieces
      {head0 + "7 8 \n0 1 nan;\n;\n", ZOC::msg::ESa046},                                      // not a finite weight
      {head0 + "7 8 \n;\n;\n0 1 1.0;\n", ZOC::msg::ESa046},                                   // a row more than COUNTS
      {head1 + "7 8 \n2.0000000000 1.0000000000 \n0 1 1.0;1 1 3.0;\n", ZOC::msg::ESa046},     // a row fewer
  };
  ZoWeightsUtilities u;
  for (const auto& [content, id] : cases) {
    WriteFile(path, content);
    Table table;
    EXPECT_FALSE(u.TextConverToTable(table.dataset, path, 0)) << content;
    EXPECT_TRUE(HasId(u, id)) << content << " -> " << u.GetStrErrorMes().Str();
    EXPECT_EQ(table.dataset->GetFieldInfos().size(), 1u) << content;  // refused before the table is touched
    EXPECT_FALSE(Dump(u, path, false)) << content;
    EXPECT_TRUE(HasId(u, id)) << content;
  }
  // A complete file converts. Each record names its feature by its own row
  // index; the divisor is the sum of the line it stands on.
  WriteFile(path, head1 + "7 8 \n2.0000000000 1.0000000000 \n0 1 1.0;1 1 3.0;\n;\n");
  Table table;
  ASSERT_TRUE(u.TextConverToTable(table.dataset, path, 0)) << u.GetStrErrorMes().Str();
  EXPECT_EQ(table.Rows(), (std::map<std::pair<int, int>, double>{{{7, 8}, 0.5}, {{8, 8}, 1.5}}));
}

TEST(WeightsText, DamagedBinaryFilesFailCleanly) {
  satest::TempDir dir;
  const std::string path = dir.File("bad.swmb");
  ZoWeightsUtilities u;
  // Converts; the number of rows written, or -1 on failure.
  auto convert = [&](const std::string& bytes) {
    WriteFile(path, bytes);
    Table table;
    return u.BinaryConverToTable(table.dataset, path, 0) ? static_cast<int>(table.Rows().size()) : -1;
  };
  const RawSwmb good;
  ASSERT_EQ(convert(good.Bytes()), 2) << u.GetStrErrorMes().Str();
  const std::vector<std::function<void(RawSwmb&)>> damage = {
      [](RawSwmb& r) { std::get<1>(r.records[1]) = 5; },          // column out of range
      [](RawSwmb& r) { r.index[0].second = -1; },                 // negative neighbour count
      [](RawSwmb& r) { r.count = 2000000000; },                   // far beyond the file: refused before allocating
      [](RawSwmb& r) { r.standardized = 1, r.records.clear(); },  // no row sums
  };
  for (std::size_t i = 0; i < damage.size(); ++i) {
    RawSwmb raw = good;
    damage[i](raw);
    EXPECT_EQ(convert(raw.Bytes()), -1) << i;
    EXPECT_TRUE(HasId(u, ZOC::msg::ESa046)) << i << ": " << u.GetStrErrorMes().Str();
  }
  // A row count beyond the file, a wrong feature count, a byte too many:
  // the converter, the dump and the flag-matrix builder all refuse them.
  std::vector<std::string> refused;
  RawSwmb longRow = good;
  longRow.index[1].second = 1000000;
  refused.push_back(longRow.Bytes());
  RawSwmb recount = good;
  recount.count = 3;
  refused.push_back(recount.Bytes());
  refused.push_back(good.Bytes() + '\0');
  // Every truncation of a valid file, down to nothing.
  const std::string bytes = good.Bytes();
  for (std::size_t size = 0; size < bytes.size(); ++size) refused.push_back(bytes.substr(0, size));
  for (std::size_t i = 0; i < refused.size(); ++i) {
    EXPECT_EQ(convert(refused[i]), -1) << i;
    EXPECT_FALSE(u.GetStrErrorMes().IsEmpty()) << i;
    EXPECT_FALSE(Dump(u, path, true)) << i;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    EXPECT_FALSE(u.BuildWeightsDictionary(f, dir.File("flags.bin"), 0)) << i;
    std::fclose(f);
    EXPECT_FALSE(ZoFile::IsExist(dir.File("flags.bin"))) << i;
  }
}
