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
#include <vector>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace tk::test {
namespace {

constexpr const char* kMarker = "SECRET-9c41d7";

// Sanitizer builds run the engine's memory traffic through interceptors:
// their time bounds are wider.
#if defined(__SANITIZE_THREAD__)
constexpr int kSlowdown = 6;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kSlowdown = 3;
#else
constexpr int kSlowdown = 1;
#endif

// Time and peak memory of one case.
class Bound {
 public:
  Bound(const char* what, int seconds, long megabytes)
      : m_what(what), m_seconds(seconds), m_kb(megabytes * 1024),
        m_start(std::chrono::steady_clock::now()), m_rss(MaxRssKb()) {}
  ~Bound() {
    const auto elapsed = std::chrono::steady_clock::now() - m_start;
    EXPECT_LT(elapsed, std::chrono::seconds(m_seconds * kSlowdown)) << m_what << ": time bound";
    EXPECT_LT(MaxRssKb() - m_rss, m_kb) << m_what << ": memory bound";
  }

 private:
  const char* m_what;
  int m_seconds;
  long m_kb;
  std::chrono::steady_clock::time_point m_start;
  long m_rss;
};

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
class SecretFiles {
 public:
  SecretFiles() {
    WriteFile(m_dir.path("secret.txt"), kMarker);
    WriteFile(m_dir.path("secret.dtd"), std::string("<!ENTITY x \"") + kMarker + "\">");
    WriteFile(m_dir.path("secret.xml"), std::string("<s>") + kMarker + "</s>");
    m_watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    EXPECT_GE(m_watch, 0);
    EXPECT_GE(inotify_add_watch(m_watch, m_dir.root().c_str(), IN_OPEN | IN_ACCESS), 0);
  }
  ~SecretFiles() { close(m_watch); }
  std::string path(const char* name) const { return m_dir.path(name); }
  std::string url(const char* name) const { return "file://" + m_dir.path(name); }
  // Names opened in the directory since the last call.
  std::string opened() {
    std::string names;
    alignas(inotify_event) char buffer[4096];
    for (ssize_t got; (got = read(m_watch, buffer, sizeof buffer)) > 0;) {
      for (ssize_t at = 0; at < got;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        if (event->len > 0) names += std::string(event->name) + " ";
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    return names;
  }

 private:
  TempDir m_dir;
  int m_watch = -1;
};

TEST(HostileInput, NoFileIsEverReadForADocumentOrStylesheet) {
  Bound bound("external references", 20, 256);
  SecretFiles secret;
  // The watch sees a read (of ours, here).
  ASSERT_EQ(ReadFile(secret.path("secret.txt")), kMarker);
  ASSERT_NE(secret.opened().find("secret.txt"), std::string::npos);  // opened, then read
  Instance tk;
  const std::string documents[] = {
      "<!DOCTYPE r [<!ENTITY e SYSTEM \"" + secret.url("secret.txt") + "\">]><r>&e;</r>",
      "<!DOCTYPE r [<!ENTITY e SYSTEM \"" + secret.path("secret.txt") + "\">]><r a='&e;'/>",
      "<!DOCTYPE r [<!ENTITY % p SYSTEM \"" + secret.url("secret.dtd") + "\"> %p;]><r>&x;</r>",
      "<!DOCTYPE r SYSTEM \"" + secret.url("secret.dtd") + "\"><r>&x;</r>",
      "<!DOCTYPE r PUBLIC \"-//X//Y\" \"" + secret.url("secret.dtd") + "\"><r>&x;</r>",
      "<r xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" + secret.url("secret.xml") +
          "'/></r>",
  };
  TempDir docs;
  for (const std::string& document : documents) {
    SCOPED_TRACE(document);
    // From text, and from a file (where a relative reference would resolve
    // next to the document).
    const int fromText = Import(tk.tk, document);
    const std::string text = fromText == 0 ? ExportText(tk.tk) : std::string();
    EXPECT_EQ(text.find(kMarker), std::string::npos) << text;
    const std::string file = docs.path("doc.xml");
    WriteFile(file, document);
    tk->CloseAllElements();
    const int fromFile = tk->ImportFromFile(file.c_str());
    const std::string loaded = fromFile == 0 ? ExportText(tk.tk) : std::string();
    EXPECT_EQ(loaded.find(kMarker), std::string::npos) << loaded;
    EXPECT_EQ(secret.opened(), "");
  }
  // A stylesheet reaching for the same files, by document() and by import.
  ASSERT_EQ(Import(tk.tk, "<r/>"), 0);
  const std::string sheets[] = {
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'><o><xsl:copy-of select=\"document('" + secret.url("secret.xml") +
          "')\"/></o></xsl:template></xsl:stylesheet>",
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:include href='" + secret.url("secret.xml") + "'/>"
      "<xsl:template match='/'><o/></xsl:template></xsl:stylesheet>",
      "<!DOCTYPE x [<!ENTITY e SYSTEM '" + secret.url("secret.txt") + "'>]>"
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'><o>&e;</o></xsl:template></xsl:stylesheet>",
  };
  for (const std::string& sheet : sheets) {
    SCOPED_TRACE(sheet);
    const int applied = TkXslt(tk.tk)->ApplyXSLT(sheet.c_str(), 0);
    const std::string text = ExportText(tk.tk);
    EXPECT_TRUE(applied == 0 || applied == -1);
    EXPECT_EQ(text.find(kMarker), std::string::npos) << text;
    EXPECT_EQ(secret.opened(), "");
  }
}

TEST(HostileInput, EntityExpansionBombsAreRefusedWithinBounds) {
  Instance tk;
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 'lol'>";
  for (int i = 1; i <= 10; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " '";
    for (int j = 0; j < 10; ++j) laughs += "&l" + std::to_string(i - 1) + ";";
    laughs += "'>";
  }
  laughs += "]><r>&l10;</r>";
  // Quadratic blow-up: one large entity used very often, no nesting.
  std::string quadratic = "<!DOCTYPE r [<!ENTITY big '" + std::string(50000, 'x') + "'>]><r>";
  for (int i = 0; i < 50000; ++i) quadratic += "&big;";
  quadratic += "</r>";
  // The same in an attribute value.
  std::string inAttribute = "<!DOCTYPE r [<!ENTITY big '" + std::string(50000, 'y') +
                            "'>]><r a='";
  for (int i = 0; i < 50000; ++i) inAttribute += "&big;";
  inAttribute += "'/>";
  for (const std::string* bomb : {&laughs, &quadratic, &inAttribute}) {
    Bound bound("entity expansion", 20, 512);
    EXPECT_EQ(Import(tk.tk, *bomb), -1);
  }
  ExpectUsable(tk.tk);
}

TEST(HostileInput, DeepNestingIsRefusedOnImportAndHandledWhenBuilt) {
  Instance tk;
  constexpr int kDepth = 100000;
  {
    Bound bound("deep import", 20, 512);
    std::string deep;
    deep.reserve(kDepth * 7 + 8);
    for (int i = 0; i < kDepth; ++i) deep += "<a>";
    for (int i = 0; i < kDepth; ++i) deep += "</a>";
    EXPECT_EQ(Import(tk.tk, deep), -1);
  }
  {
    // A deep tree built through the interface: every walk over it (paths,
    // export, the lifetime bookkeeping, freeing) must not recurse per level.
    Bound bound("deep tree", 60, 1024);
    constexpr int kBuiltDepth = kDepth;
    tk->CloseAllElements();
    ASSERT_EQ(tk->CreateEmpty("r"), 0);
    std::string path;
    path.reserve(kBuiltDepth * 2);
    for (int i = 0; i < kBuiltDepth; ++i) path += "a/";
    unsigned leaf = 0;
    ASSERT_EQ(tk->CreateElement(100, path.c_str(), &leaf), 0);
    EXPECT_EQ(tk->SetElementValue(leaf, nullptr, TK_VALUE_TEXT, 4, "leaf"), 0);
    unsigned size = 0;
    EXPECT_EQ(tk->GetElementValue(100, path.c_str(), TK_VALUE_TEXT, &size, nullptr), -105);
    EXPECT_EQ(size, 5u);
    const std::string text = ExportText(tk.tk);
    EXPECT_EQ(text.size(), std::strlen(kDeclaration) + 7 + kBuiltDepth * 7 + 4);
    EXPECT_EQ(tk->DeleteElement(100, "a"), 0);  // detached while the leaf's handle holds it
    EXPECT_EQ(tk->GetElementName(leaf, nullptr, &size), -105);
    tk->CloseAllElements();
  }
  ExpectUsable(tk.tk);
}

TEST(HostileInput, ManyAttributesOnOneElement) {
  Instance tk;
  constexpr int kCount = 100000;
  {
    Bound bound("attributes parsed", 60, 1024);
    std::string text = "<r";
    for (int i = 0; i < kCount; ++i) text += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    text += "/>";
    const int imported = Import(tk.tk, text);
    EXPECT_TRUE(imported == 0 || imported == -1);
    if (imported == 0) {
      unsigned index = kCount - 1;
      outputstr name, value;
      EXPECT_EQ(tk->EnumAttribute(100, nullptr, &index, name, value), 0);
      EXPECT_EQ(std::string(value.text()), std::to_string(kCount - 1));
    }
  }
  ExpectUsable(tk.tk);
}

TEST(HostileInput, HundredMegabyteTextNode) {
  Instance tk;
  const std::string big(100u << 20, 'z');
  {
    Bound bound("100 MB import", 60, 2048);
    const int imported = Import(tk.tk, "<r>" + big + "</r>");
    EXPECT_TRUE(imported == 0 || imported == -1);
  }
  {
    Bound bound("100 MB value", 60, 2048);
    tk->CloseAllElements();
    ASSERT_EQ(tk->CreateEmpty("r"), 0);
    ASSERT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, static_cast<unsigned>(big.size()),
                                  big.data()),
              0);
    unsigned size = 0;
    ASSERT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, nullptr), -105);
    ASSERT_EQ(size, big.size() + 1);
    std::vector<char> buffer(size);
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer.data()), 0);
    EXPECT_EQ(std::memcmp(buffer.data(), big.data(), big.size()), 0);
    outputstr out;
    EXPECT_EQ(tk->ExportToStream(out), 0);
    EXPECT_EQ(out.length(), std::strlen(kDeclaration) + big.size() + 7);
  }
  tk->CloseAllElements();
  ExpectUsable(tk.tk);
}

TEST(HostileInput, BrokenEncodingsAndEmbeddedNuls) {
  Bound bound("broken encodings", 20, 256);
  Instance tk;
  TempDir dir;
  // Bytes that are no UTF-8 in a document that claims UTF-8.
  for (const char* bad : {"<r>\xC3\x28</r>", "<r a='\xFF\xFE'/>", "<r>\xED\xA0\x80</r>",
                          "<\xC0\xAF/>", "<r>\xF4\x90\x80\x80</r>"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(Import(tk.tk, bad), -1);
  }
  // UTF-16 with an odd byte count, from a file (text stops at the first NUL).
  const std::string file = dir.path("odd.xml");
  for (const std::string& bytes : {std::string("\xFF\xFE<\0r\0/\0>\0\n", 11),
                                   std::string("\xFE\xFF\0<\0r\0/\0>\0", 11),
                                   std::string("\xFF\xFE", 2), std::string("\xFF\xFE<", 3)}) {
    WriteFile(file, bytes);
    tk->CloseAllElements();
    // A whole document before the stray byte may load; nothing else does.
    const int imported = tk->ImportFromFile(file.c_str());
    if (imported == 0) {
      EXPECT_EQ(ExportText(tk.tk), std::string(kDeclaration) + "<r/>");
    } else {
      EXPECT_EQ(imported, -1);
    }
  }
  // A NUL inside the stated size: the text ends there.
  const char withNul[] = "<r>a</r>\0<x/>";
  tk->CloseAllElements();
  EXPECT_EQ(tk->ImportFromStream(withNul, sizeof withNul, nullptr), 0);
  EXPECT_EQ(ExportText(tk.tk), std::string(kDeclaration) + "<r>a</r>");
  const char cut[] = "<r>a\0</r>";
  tk->CloseAllElements();
  EXPECT_EQ(tk->ImportFromStream(cut, sizeof cut, nullptr), -1);
  // Values: invalid UTF-8 is repaired, a NUL ends the text within its size.
  tk->CloseAllElements();
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, 7, "ab\0cdef"), 0);
  EXPECT_EQ(ExportText(tk.tk), std::string(kDeclaration) + "<r>ab</r>");
  EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, 4, "\xC3\x28\xFF!"), 0);
  const std::string repaired = ExportText(tk.tk);
  EXPECT_EQ(Import(tk.tk, repaired), 0) << repaired;
  EXPECT_EQ(ExportText(tk.tk), repaired);
}

TEST(HostileInput, MegabytePathsAndNames) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  Bound bound("1 MB paths", 20, 512);
  const std::string component(1u << 20, 'p');
  std::string manyComponents;  // half a million components
  for (int i = 0; i < (1 << 19); ++i) manyComponents += "q/";
  for (const std::string* path : {&component, static_cast<const std::string*>(&manyComponents)}) {
    unsigned size = 0;
    EXPECT_EQ(tk->OpenElement(path->c_str()), 0u);
    EXPECT_EQ(tk->GetElementValue(100, path->c_str(), TK_VALUE_TEXT, &size, nullptr), -102);
    EXPECT_EQ(tk->setAttributeValue(100, path->c_str(), "a", TK_VALUE_TEXT, 0, "v"), -102);
    EXPECT_EQ(tk->DeleteElement(100, path->c_str()), -102);
    unsigned index = 0;
    EXPECT_EQ(tk->EnumElement(100, path->c_str(), &index, nullptr), -102);
  }
  const int created = tk->CreateElement(100, component.c_str(), nullptr);
  EXPECT_NE(created, 0);
  EXPECT_EQ(tk->setAttributeValue(100, nullptr, component.c_str(), TK_VALUE_TEXT, 0, "v"), 0);
  EXPECT_EQ(tk->DeleteAttribute(100, nullptr, component.c_str()), 0);
  TempDir dir;
  const std::string longFile = dir.path(component);
  EXPECT_EQ(tk->ImportFromFile(longFile.c_str()), -101);
  EXPECT_EQ(tk->ExportToFile(longFile.c_str()), -111);
  EXPECT_EQ(tk->CreateEmpty(component.c_str()), -112);
}

// Names holding each byte value: accepted or refused, never a document that
// can't be read back.
TEST(HostileInput, NamesWithEveryByteValue) {
  Bound bound("names of every byte", 20, 256);
  Instance tk;
  for (int byte = 1; byte <= 0xFF; ++byte) {
    SCOPED_TRACE(byte);
    const char c = static_cast<char>(byte);
    const std::string name = std::string("n") + c + "m";
    const std::string lead(1, c);
    tk->CloseAllElements();
    const int root = tk->CreateEmpty(name.c_str());
    if (root != 0) {
      EXPECT_EQ(root, -1);
      ASSERT_EQ(tk->CreateEmpty("r"), 0);
    }
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

}  // namespace
}  // namespace tk::test
