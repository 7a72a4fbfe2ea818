#pragma once
// ZoWeightsUtilities: spatial weights matrix files. It builds binary and text
// ".swmb" files from a dataset, builds the K-nearest flag matrix, reads
// headers, prints diagnostic dumps and converts weights files to tables.
//
// Binary layout (little-endian, no padding):
//   int32 L | header text, L bytes of UTF-16LE |
//   N × {int32 unique ID, int32 neighbour count} in ascending unique-ID order |
//   N × double row sums (only when STANDARDIZATION is not 0) |
//   rows: Σ counts × {int32 row i, int32 column j, double raw weight}.
// Header text: "QUILLARD@QUILLARD;DATASETNAME@name;DATASETTYPE@t;COUNTS@N;
// UNIQUEID@field;CONCEPTUALIZATION@c;STANDARDIZATION@s;DISTANCEMETHOD@m;".
// Readers refuse headers of 200 UTF-16 code units or more.
//
// Text layout, one item per line: the header without DISTANCEMETHOD; the
// unique IDs, each followed by a blank; when standardized, the row sums as
// 13-character entries ("%12.{11-d}f " with d digits in the integer part);
// then one line per feature: "i j w;" per neighbour with w as "%.10f", or ";".
//
// K-nearest flag matrix: N × N bytes, byte j·N + i is 1 exactly when row i
// holds a record with column j (the transposed order is the format).
//
// Rows stream: while writing, one row, the unique-index table and the row
// sums are in memory; the rows come from the neighbour search, never from a
// dense row of N weights. Builders delete an existing output first, write
// under a temporary name beside it and rename that at the end, so no partial
// file ever stands under the output's name; the temporary goes on any failure
// or cancellation.
//
// Readers: one checked binary reader serves the analyses, the dump, the
// converter and the flag-matrix builder; the text form gets the same checks.
// Every reader checks the whole file before it hands out or writes anything.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaArray;
using LUMA::LumaUnicodeString;

class SA_API ZoWeightsUtilities : public ZoAnalysisFrame {
 public:
  ZoWeightsUtilities() = default;

  // ---- Builders ----
  // Writes the binary weights file of the dataset: features in ascending
  // order of the unique-ID field (integer type 3, 4 or 16, unique values),
  // weights as the parameters' conceptualization 1-7 defines them.
  // Messages: "EEg002", "EEe018" (not points, lines or regions), "EAf017",
  // "ECb005", "ECb004", "ECd001", "ECa009", "EKa013", "EUb005" (fewer than 2
  // features), "ESa025", "ESa050", "ESa042", "ESa044", "ESa049", "ESa008",
  // "ESa060", "ESa032", "EUc010" (memory), "IMb030".
  unsigned char BuildWeightMatrixBinary(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                                        const LumaUnicodeString& path, const ZoPatternsInformation& info,
                                        unsigned char showProgress);
  // The same for K nearest (conceptualization 7 only, else "ESa048"), also
  // writing the flag matrix to flagPath ("ESa076" when empty, "EUb004" when
  // it is the weights file itself).
  unsigned char BuildWeightMatrixBinaryK(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                                         const LumaUnicodeString& path, const LumaUnicodeString& flagPath,
                                         const ZoPatternsInformation& info, unsigned char showProgress);
  // The flag matrix of an existing binary weights file, open for reading.
  // The file gets the checks of every binary reader first: a damaged file
  // leaves no matrix.
  unsigned char BuildWeightsDictionary(std::FILE* file, const LumaUnicodeString& outputPath,
                                       unsigned char showProgress);
  // Writes the binary weights file of weights made elsewhere, given as the
  // rows BinaryConverToTable writes (feature uniqueIds[h] has neighbour
  // neighborIds[h] with weight weights[h]) and `ids`, every feature's unique
  // ID. An analysis reads it with a dataset whose field `uniqueIdField` holds
  // exactly these IDs. Messages: "EAf017", "ECb005", "EUb005", "ESa044"
  // (repeated ID), "ESa080" (an entry's ID not in `ids`), "ESa046" (a weight
  // not finite, columns of unequal lengths), "ESa049", "EUc010".
  unsigned char BuildWeightMatrixFromRows(const LumaUnicodeString& path, const LumaUnicodeString& datasetName,
                                          const LumaUnicodeString& uniqueIdField, const std::vector<std::int32_t>& ids,
                                          const std::vector<std::int32_t>& uniqueIds,
                                          const std::vector<std::int32_t>& neighborIds,
                                          const std::vector<double>& weights, unsigned char standardization);
  // Writes the text weights file (same checks and rows as the binary builder).
  unsigned char BuildWeightMatrixText(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                                      const LumaUnicodeString& path, const ZoPatternsInformation& info,
                                      unsigned char showProgress);

  // ---- Diagnostic dumps to standard output ----
  unsigned char ReadWeightMatrixText(const LumaUnicodeString& path);    // text form
  unsigned char ReadWeightMatrixTextEx(const LumaUnicodeString& path);  // binary form

  // ---- Conversion to tables ----
  // Appends one row per stored neighbour record to a tabular dataset (type 0)
  // with fields "UniqueID", "NeighborsID" (int32) and "Weight" (double; the
  // stored weight divided by its row's sum when the file is standardized).
  unsigned char BinaryConverToTable(ZoDatasetVector* target, const LumaUnicodeString& path, unsigned char showProgress);
  unsigned char TextConverToTable(ZoDatasetVector* target, const LumaUnicodeString& path, unsigned char showProgress);

  // ---- File layout pieces ----
  // Writes L, the header text, the unique-index table (counts as given) and,
  // when standardizing, N zero row sums. Returns 4 + L, the offset of the
  // unique-index table, or -1 when writing fails.
  std::int64_t WriteFileHead(std::FILE* file, ZoDatasetVector* dataset, int count,
                             const LumaUnicodeString& uniqueIdField, ZoConceptualizationModel model,
                             unsigned char standardization, ZoDistanceMethod method,
                             const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex);
  // Row writers: append every row at the file's position, set each entry's
  // neighbour count and, when standardizing, each row sum. 1 on success.
  int WriteDistanceSWMB(std::FILE* file, ZoRecordset* records, const ZoPatternsInformation& info,
                        LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums);
  int WriteContiguitySWMB(std::FILE* file, ZoRecordset* records, ZoConceptualizationModel model,
                          unsigned char standardization, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                          LumaArray<double>& rowSums);
  int WriteKNearestSWMB(std::FILE* file, ZoRecordset* records, int k, unsigned char standardization,
                        ZoDistanceMethod method, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                        LumaArray<double>& rowSums);
  // Back-patch: the unique-index table at `offset`, then the row sums when standardizing.
  bool WriteUniqueIDFieldSWMB(std::FILE* file, std::int64_t offset, const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                              unsigned char standardization, const LumaArray<double>& rowSums);

  // Reads the binary header from the file's start: the eight values in key
  // order, and the position 4 + L of the unique-index table. "EEg020" for a
  // null handle; "EUb001" for a text weights file; "ESa045" for a header that
  // is unreadable, 200 code units or longer, has a key out of place, a part
  // without a value, or not exactly the eight parts.
  unsigned char ReadHeader(std::FILE*& file, LumaArray<LumaUnicodeString>& values, std::int64_t& position);
  // The text header line: the seven keys without DISTANCEMETHOD, in order.
  // A line with no part at all is accepted (no values). False without a
  // message for a key out of place.
  unsigned char ReadHeader(const std::string& line, LumaArray<LumaUnicodeString>& values);

  // The conceptualization's own checks against the records ("ESa025",
  // "ESa050", "ESa042", "ESa023").
  bool CheckParameter(ZoRecordset* records, const ZoPatternsInformation& info);
};

}  // namespace ZOC
