#include "host/ZoStringEx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

using ZOC::ZoStringEx;

namespace {

// Well-formed: two upper-case letters, one lower-case letter, three digits;
// "ESa0010" is the single seven-character identifier.
bool WellFormed(const std::string& id) {
  if (id == "ESa0010") return true;
  return id.size() == 6 && std::isupper(static_cast<unsigned char>(id[0])) &&
         std::isupper(static_cast<unsigned char>(id[1])) && std::islower(static_cast<unsigned char>(id[2])) &&
         std::all_of(id.begin() + 3, id.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

std::string Text(const char* id) { return ZoStringEx::LoadResString(id).Str(); }

// Progress formats that the analyses fill with (i + 1, n).
const char* const kPerItemFormats[] = {"IMb322", "IMb323", "IMb325", "IMb327", "IMb329", "IMb331", "IMb335", "IMb337",
                                       "IMb339", "IMb341", "IMb358", "IMb360", "IMb363", "IMb391", "IMb393", "IMb395",
                                       "IMb396", "IMb397", "IMb399", "IMb400", "IMb401", "IMf002", "IMf004", "IMf005"};

}  // namespace

TEST(ZoStringEx, CatalogueIsSortedUniqueAndWellFormed) {
  const std::vector<std::string> ids = ZoStringEx::ListIdentifiers();
  ASSERT_GE(ids.size(), 100u);
  EXPECT_TRUE(std::adjacent_find(ids.begin(), ids.end(), std::greater_equal<>()) == ids.end())
      << "identifiers must be strictly ascending";
  for (const std::string& id : ids) {
    EXPECT_TRUE(WellFormed(id)) << id;
    EXPECT_TRUE(ZoStringEx::HasResString(id.c_str())) << id;
    const std::string text = Text(id.c_str());
    const std::string prefix = "[" + id + "] ";
    EXPECT_EQ(text.rfind(prefix, 0), 0u) << text;
    EXPECT_GT(text.size(), prefix.size() + 10) << "text of " << id << " says too little";
    EXPECT_EQ(text.find("Unknown message identifier"), std::string::npos) << id;
  }
  // "ESa001" and "ESa0010" are two different messages, not a prefix match.
  EXPECT_NE(Text("ESa001"), Text("ESa0010"));
}

TEST(ZoStringEx, UnknownIdentifiersStillNameThemselves) {
  EXPECT_FALSE(ZoStringEx::HasResString("ZZz999"));
  EXPECT_EQ(Text("ZZz999"), "[ZZz999] Unknown message identifier.");
  // Near misses of real identifiers must not resolve to their neighbours.
  for (const char* id : {"ESa00", "ESa0011", "esa041", "ESa041 ", "ESa999", "AAa000", "ZZz"}) {
    EXPECT_FALSE(ZoStringEx::HasResString(id)) << id;
    EXPECT_EQ(Text(id), std::string("[") + id + "] Unknown message identifier.");
  }
  EXPECT_FALSE(ZoStringEx::HasResString(nullptr));
  EXPECT_FALSE(ZoStringEx::LoadResString(nullptr).IsEmpty());
  EXPECT_FALSE(ZoStringEx::LoadResString("").IsEmpty());
}

TEST(ZoStringEx, FormatReplacesPlaceholders) {
  EXPECT_EQ(ZoStringEx::Format("%1 of %2", {"3", "10"}).Str(), "3 of 10");
  EXPECT_EQ(ZoStringEx::Format("%2-%1-%2", {"a", "b"}).Str(), "b-a-b");  // repeated and out of order
  EXPECT_EQ(ZoStringEx::Format("%1 and %3", {"x"}).Str(), "x and %3");   // missing argument kept
  EXPECT_EQ(ZoStringEx::Format("%1", {}).Str(), "%1");
  EXPECT_EQ(ZoStringEx::Format("100%% of %1%%", {"n"}).Str(), "100% of n%");
  EXPECT_EQ(ZoStringEx::Format("%%1 stays", {"x"}).Str(), "%1 stays");  // escaped, not a placeholder
  EXPECT_EQ(ZoStringEx::Format("%0 %a 50% end%", {"x"}).Str(), "%0 %a 50% end%");
  EXPECT_EQ(ZoStringEx::Format("%1%2", {"%2", "y"}).Str(), "%2y");  // arguments are not rescanned
  EXPECT_EQ(ZoStringEx::Format("%9%1%10", {"a", "b", "c", "d", "e", "f", "g", "h", "i"}).Str(), "iaa0");
  EXPECT_EQ(ZoStringEx::Format("", {"x"}).Str(), "");
  EXPECT_EQ(ZoStringEx::Format("Feature %1 of %2", 7, 12345678901LL).Str(), "Feature 7 of 12345678901");
}

TEST(ZoStringEx, ProgressTextsFitHowTheyAreUsed) {
  for (const char* id : kPerItemFormats) {
    const std::string pattern = Text(id);
    EXPECT_NE(pattern.find("%1"), std::string::npos) << id;
    EXPECT_NE(pattern.find("%2"), std::string::npos) << id;
    const std::string shown = ZoStringEx::Format(ZoStringEx::LoadResString(id), 41, 97).Str();
    EXPECT_NE(shown.find("41"), std::string::npos) << shown;
    EXPECT_NE(shown.find("97"), std::string::npos) << shown;
    EXPECT_EQ(shown.find('%'), std::string::npos) << shown;
  }
  // Every other text (titles double as plain messages) must show no placeholder
  // when used unformatted; the exceptions are error texts always formatted
  // with what they name (a count, a feature's QlID, an exception's text).
  const std::vector<std::string> formattedErrors = {"ESa074", "ESa090", "ESa097", "ESa098", "ESa102", "ESa103",
                                                    "ESa104", "ESa105", "ESa106", "ESa108", "ESa109", "ESa110",
                                                    "EUc001", "EUc002", "EUc003", "EUc004", "EUc011"};
  for (const std::string& id : ZoStringEx::ListIdentifiers()) {
    const bool formatted = std::count(formattedErrors.begin(), formattedErrors.end(), id) > 0 ||
                           std::find_if(std::begin(kPerItemFormats), std::end(kPerItemFormats),
                                        [&](const char* f) { return id == f; }) != std::end(kPerItemFormats);
    if (!formatted) {
      EXPECT_EQ(Text(id.c_str()).find('%'), std::string::npos) << id;
    }
  }
  const std::string tooFew = ZoStringEx::Format(ZoStringEx::LoadResString("ESa074"), {"5"}).Str();
  EXPECT_NE(tooFew.find("5"), std::string::npos) << tooFew;
  EXPECT_EQ(tooFew.find('%'), std::string::npos) << tooFew;
}
