// Basic host types, files, text files and progress.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "TestSupport.h"
#include "host/LumaUnicodeString.h"
#include "host/LumaVariant.h"
#include "host/ZoFile.h"
#include "host/ZoProgress.h"
#include "host/ZoTextFile.h"

using namespace ZOC;
using LUMA::LumaVariant;

TEST(LumaUnicodeString, Utf16RoundTripIncludingSurrogatePairs) {
  const LumaUnicodeString text("Québec \xF0\x9F\x8C\x8D QlID");  // e-acute and a 4-byte emoji
  const std::u16string utf16 = text.ToUtf16();
  EXPECT_EQ(utf16.size(), 14u);  // the emoji is a surrogate pair
  EXPECT_EQ(utf16[7], 0xD83C);
  EXPECT_EQ(LumaUnicodeString::FromUtf16(utf16), text);
  // Malformed input degrades to U+FFFD instead of failing or overreading.
  EXPECT_EQ(LumaUnicodeString("a\xC3").ToUtf16(), std::u16string(u"a\uFFFD"));
  EXPECT_EQ(LumaUnicodeString::FromUtf16(std::u16string(1, char16_t(0xDC00))).Str(), "\xEF\xBF\xBD");
}

// Each name reserved by a file of its own, which a guard removes unless
// released.
TEST(ZoFile, TemporaryNamesAreUniqueReservedAndGuarded) {
  std::set<std::string> names;
  for (int i = 0; i < 50; ++i) {
    const LumaUnicodeString name = ZoFile::GetTemporaryFileName("Quillard", ".swmb");
    EXPECT_EQ(name.Str().rfind(ZoFile::GetTemporaryPath().Str() + "Quillard", 0), 0u);
    EXPECT_TRUE(name.Str().size() > 5 && name.Str().substr(name.GetLength() - 5) == ".swmb") << name.Str();
    EXPECT_TRUE(ZoFile::IsExist(name));
    names.insert(name.Str());
    ZoTempFileGuard guard(name);
    if (i % 2) guard.Release();
  }
  EXPECT_EQ(names.size(), 50u);
  int kept = 0;
  for (const std::string& name : names) kept += ZoFile::IsExist(name) && ZoFile::Delete(name) && !ZoFile::IsExist(name);
  EXPECT_EQ(kept, 25);
  EXPECT_TRUE(ZoFile::Delete("/nonexistent/never/there"));
}

// What a second Ctrl-C removes from its signal handler: listed files, and
// listed folders with their contents (a scratch folder holds a staging
// folder), links removed but never followed; nothing that is off the list.
TEST(ZoTempRegistry, RemovesListedFilesAndFoldersOnly) {
  namespace fs = std::filesystem;
  satest::TempDir dir;
  const fs::path scratch = dir.path() / ".out.gpkg.zostat_tmp_1_0";
  fs::create_directories(scratch / ".stage" / "deeper");
  for (const fs::path& f : {scratch / "out.gpkg", scratch / "out.gpkg-journal", scratch / ".stage" / "stage.gpkg",
                            scratch / ".stage" / "deeper" / "x", dir.path() / "temporary.swmb",
                            dir.path() / "kept.swmb", dir.path() / "outside"})
    std::ofstream(f) << "data";
  fs::create_directory_symlink(dir.path(), scratch / "link-to-parent");
  fs::create_symlink(dir.path() / "outside", scratch / ".stage" / "link-to-file");
  const int folder = ZoTempRegistry::Add(scratch.string(), true);
  const int file = ZoTempRegistry::Add((dir.path() / "temporary.swmb").string(), false);
  const int taken = ZoTempRegistry::Add((dir.path() / "kept.swmb").string(), false);
  ASSERT_TRUE(folder >= 0 && file >= 0 && taken >= 0);
  ZoTempRegistry::Remove(taken);
  {
    ZoTempFileGuard released((dir.path() / "outside").string());
    released.Release();
  }
  ZoTempRegistry::RemoveAllNow();
  EXPECT_EQ(satest::FilesIn(dir.path()), (std::vector<std::string>{"kept.swmb", "outside"}));
  ZoTempRegistry::Remove(folder);
  ZoTempRegistry::Remove(file);
}

// A relative path is listed as it names a file now, from the working folder.
TEST(ZoTempRegistry, ListsRelativePathsFromTheWorkingFolder) {
  namespace fs = std::filesystem;
  satest::TempDir dir;
  const fs::path before = fs::current_path();
  fs::current_path(dir.path());
  std::ofstream("relative.tmp") << "data";
  ZoTempFileGuard guard("relative.tmp");
  fs::current_path(before);
  ZoTempRegistry::RemoveAllNow();
  EXPECT_FALSE(fs::exists(dir.path() / "relative.tmp"));
}

TEST(ZoTextFile, LinesCrLfLastLineAndLimits) {
  satest::TempDir dir;
  const std::string path = dir.File("t.txt");
  {
    ZoTextFile out;
    ASSERT_TRUE(out.Open(path, ZoTextFile::ModeWrite));
    EXPECT_TRUE(out.WriteLine("first"));
    EXPECT_TRUE(out.Write("second\r\n\nlast without newline"));
    EXPECT_TRUE(out.Close());
  }
  ZoTextFile in;
  ASSERT_TRUE(in.Open(path, ZoTextFile::ModeRead));
  std::string line;
  std::vector<std::string> lines;
  while (in.ReadLine(line)) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"first", "second", "", "last without newline"}));
  EXPECT_FALSE(in.LineTooLong());

  ASSERT_TRUE(in.Open(path, ZoTextFile::ModeRead));
  in.SetMaxLineLength(3);
  EXPECT_FALSE(in.ReadLine(line));
  EXPECT_TRUE(in.LineTooLong());
  EXPECT_FALSE(ZoTextFile().Open(dir.File("missing/x"), ZoTextFile::ModeRead));
}

TEST(ZoProgress, RangesMapOntoTheWholeRunAndCallbackCancels) {
  std::vector<double> seen;
  int calls = 0;
  ZoCallbackProgress progress([&](const ZoProgressState& s) {
    seen.push_back(s.percent);
    return ++calls < 8;
  });
  progress.SetBothPosRange(0, 60);
  progress.SetProgressPos(50);
  EXPECT_DOUBLE_EQ(seen.back(), 30.0);
  progress.SetBothPosRange(61, 100);
  progress.SetProgressPos(100);
  EXPECT_DOUBLE_EQ(seen.back(), 100.0);
  progress.SetProgressPos(0);
  EXPECT_DOUBLE_EQ(seen.back(), 61.0);
  progress.SetMessage("feature 1 of 2");
  EXPECT_EQ(progress.State().message, "feature 1 of 2");
  EXPECT_FALSE(progress.IsCanceled());  // 7 calls so far
  EXPECT_TRUE(progress.IsCanceled());   // the 8th answers false
  EXPECT_TRUE(progress.IsCanceled());   // and it stays cancelled
}

// The default progress (the one a signal stops) is the terminal's.
TEST(ZoProgress, DefaultIsTheTerminalsWhichRequestsCancel) {
  EXPECT_NE(dynamic_cast<ZoTerminalProgress*>(ZoProgress::Create().get()), nullptr);
  ZoTerminalProgress::RequestCancel();
  EXPECT_TRUE(ZoTerminalProgress().IsCanceled());
  ZoTerminalProgress::ResetCancel();
  EXPECT_FALSE(ZoTerminalProgress().IsCanceled());
}
