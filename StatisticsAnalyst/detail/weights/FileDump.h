#pragma once
// The diagnostic dumps of weights files to standard output. A binary file
// and the text file built from the same data print the same lines:
//   the unique IDs in file order, each followed by one blank, on one line;
//   when the file is standardized, the row sums on one line, as the
//   13-character entries of the text form;
//   then one line "i j w" per neighbour record (w with 10 decimals), rows in
//   order; a row without neighbours prints nothing.
// The whole file is checked before the first line is printed, as the
// converters do, so a damaged file prints nothing.
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaUnicodeString.h"

namespace ZOC::detail::weights {

// Dumps a text weights file: "EAf017" unless the path ends in ".swmb"
// exactly (the text reader wants lower case), then the text reader's
// failures; "EUc010" when memory runs out, "ESa046" when reading fails.
Status DumpTextFile(const LUMA::LumaUnicodeString& path);
// Dumps a binary weights file: "EAf017" unless the path ends in ".swmb" in
// any case, then the binary reader's failures; "EUc010" when memory runs
// out, "ESa046" when reading fails.
Status DumpBinaryFile(const LUMA::LumaUnicodeString& path);

}  // namespace ZOC::detail::weights
