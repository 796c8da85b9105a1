// Hostile input: documents and arguments made to read files, exhaust memory
// or time, or break the parser and the tree code. Each case must end with a
// clear result, inside a bound on time and memory checked here (a safety
// bound, not a speed requirement), and leave the instance usable.
#include <sys/inotify.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace tk::test {
namespace {

constexpr const char* kMarker = "SECRET-9c41d7";

std::string Repeat(const std::string& part, int count) {
  std::string all;
  all.reserve(part.size() * count);
  for (int i = 0; i < count; ++i) all += part;
  return all;
}

int Import(ITreeKeeper* tk, const std::string& text) {
  tk->CloseAllElements();
  return tk->ImportFromStream(text.c_str(), static_cast<int>(text.size()) + 1, nullptr);
}

// After a refused document, the same instance takes a good one.
void ExpectUsable(ITreeKeeper* tk) {
  ASSERT_EQ(Import(tk, "<ok>1</ok>"), 0);
  EXPECT_EQ(ExportText(tk), std::string(kDeclaration) + "<ok>1</ok>");
}

// Files with a marker, and a watch that tells whether anything opened them.
struct SecretFiles {
  SecretFiles() {
    WriteFile(m_dir.path("secret.txt"), kMarker);
    WriteFile(m_dir.path("secret.dtd"), std::string("<!ENTITY x \"") + kMarker + "\">");
    WriteFile(m_dir.path("secret.xml"), std::string("<s>") + kMarker + "</s>");
    m_watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    EXPECT_GE(inotify_add_watch(m_watch, m_dir.root().c_str(), IN_OPEN | IN_ACCESS), 0);
  }
  ~SecretFiles() { close(m_watch); }
  std::string url(const char* name) const { return "file://" + m_dir.path(name); }
  // Whether anything opened or read a file in the directory since the last call.
  bool touched() const {
    alignas(inotify_event) char buffer[4096];
    bool any = false;
    while (read(m_watch, buffer, sizeof buffer) > 0) any = true;
    return any;
  }

  TempDir m_dir;
  int m_watch = -1;
};

TEST(HostileInput, NoFileIsEverReadForADocumentOrStylesheet) {
  Bound bound{"external references", 20, 256};
  SecretFiles secret;
  // The watch sees a read (of ours, here).
  ASSERT_EQ(ReadFile(secret.m_dir.path("secret.txt")), kMarker);
  ASSERT_TRUE(secret.touched());
  Instance tk;
  const std::string documents[] = {
      "<!DOCTYPE r [<!ENTITY e SYSTEM \"" + secret.url("secret.txt") + "\">]><r>&e;</r>",
      "<!DOCTYPE r [<!ENTITY e SYSTEM \"" + secret.m_dir.path("secret.txt") + "\">]><r a='&e;'/>",
      "<!DOCTYPE r [<!ENTITY % p SYSTEM \"" + secret.url("secret.dtd") + "\"> %p;]><r>&x;</r>",
      "<!DOCTYPE r PUBLIC \"-//X//Y\" \"" + secret.url("secret.dtd") + "\"><r>&x;</r>",
      "<r xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" +
          secret.url("secret.xml") + "'/></r>",
  };
  TempDir docs;
  const std::string file = docs.path("doc.xml");
  for (const std::string& document : documents) {
    SCOPED_TRACE(document);
    // From text, and from a file (where a relative reference would resolve
    // next to the document).
    const std::string text = Import(tk.tk, document) == 0 ? ExportText(tk.tk) : "";
    EXPECT_EQ(text.find(kMarker), std::string::npos) << text;
    WriteFile(file, document);
    tk->CloseAllElements();
    const std::string loaded = tk->ImportFromFile(file.c_str()) == 0 ? ExportText(tk.tk) : "";
    EXPECT_EQ(loaded.find(kMarker), std::string::npos) << loaded;
    EXPECT_FALSE(secret.touched());
  }
  // A stylesheet reaching for the same files, by document(), include and entity.
  ASSERT_EQ(Import(tk.tk, "<r/>"), 0);
  const std::string head = "<xsl:stylesheet version='1.0' "
                           "xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>";
  const std::string sheets[] = {
      head + "<xsl:template match='/'><o><xsl:copy-of select=\"document('" +
          secret.url("secret.xml") + "')\"/></o></xsl:template></xsl:stylesheet>",
      head + "<xsl:include href='" + secret.url("secret.xml") + "'/>"
             "<xsl:template match='/'><o/></xsl:template></xsl:stylesheet>",
      "<!DOCTYPE x [<!ENTITY e SYSTEM '" + secret.url("secret.txt") + "'>]>" + head +
          "<xsl:template match='/'><o>&e;</o></xsl:template></xsl:stylesheet>",
  };
  for (const std::string& sheet : sheets) {
    SCOPED_TRACE(sheet);
    const int applied = TkXslt(tk.tk)->ApplyXSLT(sheet.c_str(), 0);
    EXPECT_TRUE(applied == 0 || applied == -1);
    EXPECT_EQ(ExportText(tk.tk).find(kMarker), std::string::npos);
    EXPECT_FALSE(secret.touched());
  }
}

TEST(HostileInput, EntityExpansionBombsAreRefusedWithinBounds) {
  Instance tk;
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 'lol'>";
  for (int i = 1; i <= 10; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " '" +
              Repeat("&l" + std::to_string(i - 1) + ";", 10) + "'>";
  }
  laughs += "]><r>&l10;</r>";
  // Quadratic blow-up: one large entity used very often, no nesting; in
  // content and in an attribute value.
  const std::string big = "<!DOCTYPE r [<!ENTITY big '" + std::string(50000, 'x') + "'>]>";
  for (const std::string& bomb : {laughs, big + "<r>" + Repeat("&big;", 50000) + "</r>",
                                  big + "<r a='" + Repeat("&big;", 50000) + "'/>"}) {
    Bound bound{"entity expansion", 20, 512};
    EXPECT_EQ(Import(tk.tk, bomb), -1);
  }
  ExpectUsable(tk.tk);
}

// A tree is never deeper than an import reads back (the root and 256 levels
// below it): CreateElement refuses to go deeper, and ApplyXSLT refuses a
// deeper result. A tree at the limit exports, imports and transforms.
TEST(HostileInput, DepthIsBoundTheSameForImportCreationAndTransformation) {
  Instance tk;
  {
    Bound bound{"deep import", 20, 512};
    EXPECT_EQ(Import(tk.tk, Repeat("<a>", 100000) + Repeat("</a>", 100000)), -1);
  }
  EXPECT_EQ(Import(tk.tk, Repeat("<a>", 258) + Repeat("</a>", 258)), -1);
  tk->CloseAllElements();
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  unsigned deepest = 0;
  ASSERT_EQ(tk->CreateElement(100, Repeat("a/", 255).c_str(), &deepest), 0);
  {
    MessageLog log;
    // b lands on the last level; c would go below it.
    EXPECT_EQ(tk->CreateElement(deepest, "b/c", nullptr), -113);
    EXPECT_EQ(log.joined(), "CreateElement: element create failed\n");
  }
  ASSERT_EQ(tk->CloseElement(deepest), 0);
  const std::string full = ExportText(tk.tk);
  ASSERT_EQ(Import(tk.tk, full), 0);
  EXPECT_EQ(ExportText(tk.tk), full);

  const std::string head =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>";
  const std::string copy = "<xsl:template match='/'><xsl:copy-of select='.'/></xsl:template>";
  for (const std::string& sheet :
       {head + copy + "</xsl:stylesheet>",
        head + "<xsl:strip-space elements='*'/>" + copy + "</xsl:stylesheet>",
        std::string(kIdentity)}) {
    EXPECT_EQ(TkXslt(tk.tk)->ApplyXSLT(sheet.c_str(), 0), 0) << sheet;
    EXPECT_EQ(ExportText(tk.tk), full);
  }
  const std::string deeper = head + "<xsl:template match='/'><w><xsl:copy-of select='.'/></w>"
                                    "</xsl:template></xsl:stylesheet>";
  EXPECT_EQ(TkXslt(tk.tk)->ApplyXSLT(deeper.c_str(), 0), -1);
  EXPECT_EQ(ExportText(tk.tk), full);
}

TEST(HostileInput, HundredMegabyteText) {
  Instance tk;
  const std::string big(100u << 20, 'z');
  // Each step is bounded on its own: the text's copies made here (the
  // document, the read buffer, the export) are not the library's.
  {
    Bound bound{"100 MB import", 60, 2048};
    const int imported = Import(tk.tk, "<r>" + big + "</r>");
    EXPECT_TRUE(imported == 0 || imported == -1);
  }
  tk->CloseAllElements();
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  const auto length = static_cast<unsigned>(big.size());
  {
    Bound bound{"100 MB value", 60, 2048};
    ASSERT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, length, big.data()), 0);
    unsigned size = 0;
    ASSERT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, nullptr), -105);
    ASSERT_EQ(size, length + 1);
    std::string read(size, '\0');
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, read.data()), 0);
    EXPECT_EQ(read, big + '\0');
  }
  {
    Bound bound{"100 MB export", 60, 2048};
    EXPECT_EQ(ExportText(tk.tk).size(), std::strlen(kDeclaration) + length + 7);
  }
  ExpectUsable(tk.tk);
}

TEST(HostileInput, BrokenEncodingsAndEmbeddedNuls) {
  Bound bound{"broken encodings", 20, 256};
  Instance tk;
  // Bytes that are no UTF-8 in a document that claims UTF-8: a surrogate, an overlong form.
  for (const char* bad : {"<r>\xED\xA0\x80</r>", "<\xC0\xAF/>"}) EXPECT_EQ(Import(tk.tk, bad), -1);
  // UTF-16 with an odd byte count, from a file: a whole document before the
  // stray byte may load; nothing else does.
  TempDir dir;
  const std::string file = dir.path("odd.xml");
  for (const std::string& bytes :
       {std::string("\xFF\xFE<\0r\0/\0>\0\n", 11), std::string("\xFE\xFF\0<\0r\0/\0>\0", 11)}) {
    WriteFile(file, bytes);
    tk->CloseAllElements();
    const int imported = tk->ImportFromFile(file.c_str());
    EXPECT_TRUE(imported == -1 || ExportText(tk.tk) == std::string(kDeclaration) + "<r/>");
  }
  // What lies behind a NUL inside the stated size is not read.
  const char withNul[] = "<r>a</r>\0<x/>";
  tk->CloseAllElements();
  EXPECT_EQ(tk->ImportFromStream(withNul, sizeof withNul, nullptr), 0);
  EXPECT_EQ(ExportText(tk.tk), std::string(kDeclaration) + "<r>a</r>");
  // A value whose bytes were repaired gives a document that reads back.
  ASSERT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, 4, "\xC3\x28\xFF!"), 0);
  const std::string repaired = ExportText(tk.tk);
  EXPECT_EQ(Import(tk.tk, repaired), 0) << repaired;
  EXPECT_EQ(ExportText(tk.tk), repaired);
}

TEST(HostileInput, MegabytePathsAndNames) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  Bound bound{"1 MB paths", 20, 512};
  const std::string component(1u << 20, 'p');
  for (const std::string& path : {component, Repeat("q/", 1 << 19)}) {
    unsigned size = 0, index = 0;
    EXPECT_EQ(tk->OpenElement(path.c_str()), 0u);
    EXPECT_EQ(tk->GetElementValue(100, path.c_str(), TK_VALUE_TEXT, &size, nullptr), -102);
    EXPECT_EQ(tk->EnumElement(100, path.c_str(), &index, nullptr), -102);
  }
  EXPECT_NE(tk->CreateElement(100, component.c_str(), nullptr), 0);
  EXPECT_EQ(tk->setAttributeValue(100, nullptr, component.c_str(), TK_VALUE_TEXT, 0, "v"), 0);
  EXPECT_EQ(tk->DeleteAttribute(100, nullptr, component.c_str()), 0);
  TempDir dir;
  const std::string longFile = dir.path(component);
  EXPECT_EQ(tk->ImportFromFile(longFile.c_str()), -101);
  EXPECT_EQ(tk->ExportToFile(longFile.c_str()), -111);
}

// Names holding each byte value, inside and leading: accepted or refused,
// never a document that can't be read back.
TEST(HostileInput, NamesWithEveryByteValue) {
  Bound bound{"names of every byte", 20, 256};
  Instance tk;
  for (int byte = 1; byte <= 0xFF; ++byte) {
    SCOPED_TRACE(byte);
    const std::string lead(1, static_cast<char>(byte));
    const std::string name = "n" + lead + "m";
    tk->CloseAllElements();
    const int root = tk->CreateEmpty(name.c_str());
    EXPECT_TRUE(root == 0 || (root == -1 && tk->CreateEmpty("r") == 0)) << root;
    for (const std::string& n : {name, lead}) {
      const int element = tk->CreateElement(100, n.c_str(), nullptr);
      EXPECT_TRUE(element == 0 || element == -1 || element == -102) << element;
      const int attribute = tk->setAttributeValue(100, nullptr, n.c_str(), TK_VALUE_TEXT, 0, "v");
      EXPECT_TRUE(attribute == 0 || attribute == -1) << attribute;
    }
    const std::string text = ExportText(tk.tk);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(Import(tk.tk, text), 0) << text;
    EXPECT_EQ(ExportText(tk.tk), text);
  }
}

// Walks by position and by name over a wide element cost one step a child
// whatever happens between the steps: another document walked beside it, an
// attribute written on each child.
TEST(HostileInput, WideWalksBesideOtherWork) {
  constexpr unsigned kChildren = 20000;
  const std::string xml = "<r>" + Repeat("<c/>", kChildren) + "</r>";
  Instance a, b;
  ASSERT_EQ(Import(a.tk, xml), 0);
  ASSERT_EQ(Import(b.tk, xml), 0);
  Bound bound{"wide walks", 2, 256};
  for (unsigned i = 0; i < kChildren && (i % 1024 != 0 || !bound.over()); ++i) {
    for (ITreeKeeper* tk : {a.tk, b.tk}) {
      unsigned count = i, byName = 0;
      const unsigned byIndex = tk->OpenElement(100, i);
      ASSERT_NE(byIndex, 0u);
      ASSERT_EQ(tk->setAttributeValue(byIndex, nullptr, "k", TK_VALUE_TEXT, 0, "v"), 0);
      ASSERT_EQ(tk->EnumElement(100, nullptr, "c", &count, &byName), 0);
      ASSERT_EQ(count, kChildren);
      ASSERT_EQ(tk->setAttributeValue(byName, nullptr, "n", TK_VALUE_TEXT, 0, "v"), 0);
      tk->CloseElement(byName);
      tk->CloseElement(byIndex);
    }
  }
}

// A branch taken out of the tree while a handle holds it, whose elements each
// declare the prefix they use: its export is one walk over the branch and
// writes what it wrote in the tree.
TEST(HostileInput, RemovedBranchWithADeclarationOnEveryElement) {
  Instance tk;
  ASSERT_EQ(Import(tk.tk, "<r xmlns:q='urn:q'><s q:a='1'>" +
                              Repeat("<p:e xmlns:p='urn:p'/>", 160000) + "</s></r>"),
            0);
  const unsigned branch = tk->OpenElement("s");
  outputstr inTree, removed;
  ASSERT_EQ(tk->ExportSubTreeToStream(branch, inTree), 0);
  ASSERT_EQ(tk->DeleteElement(100, "s"), 0);
  {
    Bound bound{"removed branch export", 1, 256};
    ASSERT_EQ(tk->ExportSubTreeToStream(branch, removed), 0);
  }
  EXPECT_STREQ(removed.text(), inTree.text());
}

}  // namespace
}  // namespace tk::test
