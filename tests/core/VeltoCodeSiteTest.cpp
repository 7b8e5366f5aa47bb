#include <velto/core/VeltoCodeSite.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

VeltoCodeSite whereCalled(VeltoCodeSite site = VeltoCodeSite::current()) { return site; }

TEST(VeltoCodeSite, defaultedParameterNamesTheCallersFileFunctionAndLine) {
  const unsigned line = __LINE__ + 1;
  const VeltoCodeSite site = whereCalled();
  EXPECT_EQ(site.lineNumber(), line);
  EXPECT_EQ(site.functionName(), "TestBody");
  EXPECT_NE(site.fileName().find("VeltoCodeSiteTest.cpp"), std::string_view::npos) << site.fileName();
}

TEST(VeltoCodeSite, storesTextsUnchanged) {
  constexpr VeltoCodeSite site("/a/b/Cache.cpp", "get(key:)", 12);
  static_assert(site.lineNumber() == 12);
  EXPECT_EQ(site.fileName(), "/a/b/Cache.cpp");
  EXPECT_EQ(site.functionName(), "get(key:)");
}

TEST(VeltoCodeSite, equalityComparesAllThreeFieldsByValue) {
  const VeltoCodeSite a("f", "g()", 1);
  EXPECT_EQ(a, VeltoCodeSite("f", "g()", 1));
  EXPECT_NE(a, VeltoCodeSite("f", "g()", 2)) << "sites differing only in line must differ";
  EXPECT_NE(a, VeltoCodeSite("F", "g()", 1));
  EXPECT_NE(a, VeltoCodeSite("f", "h()", 1));

  // Equal texts at different addresses are still equal.
  std::string file = "f";
  std::string function = "g()";
  EXPECT_EQ(a, VeltoCodeSite::interned(file, function, 1));
}

TEST(VeltoCodeSite, internedTextsOutliveTheirSource) {
  VeltoCodeSite site = [] {
    // Longer than the small-string buffer, so the text lives on the heap and dies with `file`.
    std::string file = "/run/time/Path.cpp";
    return VeltoCodeSite::interned(file, std::string("made()"), 3);
  }();
  EXPECT_EQ(site.fileName(), "/run/time/Path.cpp");
  EXPECT_EQ(site.functionName(), "made()");
  EXPECT_EQ(VeltoCodeSite::interned("/run/time/Path.cpp", "made()", 3).fileName().data(), site.fileName().data())
      << "the same text is interned once";
}

TEST(VeltoCodeSite, sanitizedKeepsTheLastPathComponent) {
  EXPECT_EQ(VeltoCodeSite::sanitized("a/b/c.ext"), "c.ext");
  EXPECT_EQ(VeltoCodeSite::sanitized("/abs/path/File.cpp"), "File.cpp");
  EXPECT_EQ(VeltoCodeSite::sanitized("NoSlash"), "NoSlash");
  EXPECT_EQ(VeltoCodeSite::sanitized("ends/with/"), "");
  EXPECT_EQ(VeltoCodeSite::sanitized(""), "");
  EXPECT_EQ(VeltoCodeSite::sanitized("/"), "");
}

TEST(VeltoCodeSite, librarySiteMacroRecordsTheRealLine) {
  const unsigned line = __LINE__ + 1;
  const VeltoCodeSite site = VELTO_SITE("Via/DispatchQueue+VeltoVia", "async(via:) inner");
  EXPECT_EQ(site.fileName(), "Via/DispatchQueue+VeltoVia");
  EXPECT_EQ(site.functionName(), "async(via:) inner");
  EXPECT_EQ(site.lineNumber(), line);
}

}  // namespace
