#pragma once
// The K-nearest flag matrix: N × N bytes, byte j·N + i is 1 exactly when
// row i holds a record with column j (the transposed order is the format).
// It starts as N blocks of N zero bytes (a sparse file) and gets a 1 for
// every stored record.
#include <cstdint>
#include <cstdio>

#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"
#include "StatisticsAnalyst/detail/weights/RowWriter.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoProgress.h"

namespace ZOC::detail::weights {

// Sizes the open, empty flag matrix to n × n zero bytes; false when that fails.
bool StartFlagMatrix(std::FILE* flags, std::int64_t n);
// Sets the byte of row i, column j; false when writing fails.
bool SetFlag(std::FILE* flags, std::int64_t n, std::int64_t i, std::int64_t j);

// Marks the flag matrix `out` from the rows of `file`, whose layout has been
// read: "IMb030" when cancelled, the row reader's "ESa046", "ESa049" when
// writing fails.
Status MarkFlagMatrix(std::FILE* file, std::FILE* out, const BinaryLayout& layout, BuildProgress& progress);

// The flag matrix of an existing binary weights file, open for reading:
// "EEg020" for no file, "EAf017" for an empty output path; an old matrix
// there is deleted. The file gets the checks of every binary reader first,
// so a damaged file leaves no matrix; the matrix is written under a
// temporary name and renamed at the end ("ESa049" when that fails).
// "EUc010" when memory runs out, "EUc011" for any other error.
Status BuildFlagMatrix(std::FILE* file, const LUMA::LumaUnicodeString& outputPath, ZoProgress* progress, bool show);

}  // namespace ZOC::detail::weights
