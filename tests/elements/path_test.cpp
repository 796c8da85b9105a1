#include <gtest/gtest.h>

#include <string>

#include "support/default_codeset.h"
#include "support/test_support.h"
#include "support/xml_text.h"

namespace tk {
namespace {

using test::Instance;

// The element a path opens, as XML: "root" for the root, "" when none.
std::string Opened(ITreeKeeper* tk, const std::string& path) {
  const unsigned handle = tk->OpenElement(path.c_str());
  return handle == 100 ? "root" : handle == 0 ? "" : test::SubTreeText(tk, handle);
}

TEST(ElementPath, FirstMatchPerLevelWithoutBacktracking) {
  const std::string name63 = "n" + std::string(62, 'x');
  Instance tk;
  ASSERT_EQ(test::LoadText(tk.tk, "<cfg><a/><a><b/></a>text<c><d/></c><cfg><x/></cfg>"
                                  "<p:x xmlns:p='urn:p'/><" +
                                      name63 + "/><" + name63 + "x/></cfg>"),
            0);
  const struct {
    std::string path;
    std::string opened;
  } cases[] = {
      {"c/d", "<d/>"}, {"c/d/", "<d/>"}, {"a", "<a/>"},
      {"a/b", ""},  // the first a has no children; the second is never tried
      {"c//d", ""}, {"c/d//", ""}, {"/", ""}, {"//", ""}, {"/c", ""}, {"#text", ""},
      {"c/d/e", ""},
      // A first component naming the root, ASCII case ignored, is dropped;
      // below it names are exact, and a child named like the root is reached
      // only behind the root's own name.
      {"", "root"}, {"CFG/", "root"}, {"Cfg", "root"}, {"CFG/c", "<c><d/></c>"},
      {"cfg/C", ""}, {"C/d", ""}, {"cfgx", ""}, {"cfg//c", ""},
      {"cfg/cfg", "<cfg><x/></cfg>"}, {"cfg/x", ""},
      // Prefixed names match their qualified name only.
      {"p:x", "<p:x xmlns:p=\"urn:p\"/>"}, {"x", ""}, {"p:", ""}, {":x", ""},
      // Past 63 bytes nothing is found, even where the element exists.
      {name63, "<" + name63 + "/>"}, {name63 + "x", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(Opened(tk.tk, c.path), c.opened) << c.path;
  EXPECT_EQ(tk->GetHandleCount(), 8u);  // misses add nothing
}

TEST(ElementPath, NamesCompareInTheDefaultCodePage) {
  Instance tk;
  ASSERT_EQ(test::LoadText(tk.tk, "<r><caf\xC3\xA9/></r>"), 0);
  EXPECT_EQ(Opened(tk.tk, "caf\xC3\xA9"), "<caf\xC3\xA9/>");
  test::DefaultCodeset latin1("CP1252");
  EXPECT_EQ(Opened(tk.tk, "caf\xE9"), "<caf\xC3\xA9/>");
  EXPECT_EQ(Opened(tk.tk, "caf\xC3\xA9"), "");
}

}  // namespace
}  // namespace tk
