// The modern interface as a client sees it: built on the installed header
// and the shared library alone.
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.hpp>

namespace {

using Value = std::variant<std::string, uint32_t, tk::Bytes>;
enum class Place { kText, kCData, kAttribute };

void Write(tk::Element& element, Place place, const Value& value) {
  std::visit([&](const auto& v) {
    if (place == Place::kText) element.set("v", v);
    if (place == Place::kCData) element.set_cdata("v", v);
    if (place == Place::kAttribute) element.set_attr("v", v);
  }, value);
}

Value Read(const tk::Element& element, Place place, const Value& like) {
  return std::visit([&](const auto& v) -> Value {
    using T = std::decay_t<decltype(v)>;
    if (place == Place::kText) return element.get<T>("v");
    if (place == Place::kCData) return element.get_cdata<T>("v");
    return element.attr<T>("v");
  }, like);
}

uint64_t Handles(const tk::Document& doc) { return doc.native()->GetHandleCount(); }

// Every value type survives a write and a read in every place, through an
// export and a new parse as well.
TEST(ModernValues, RoundTripEveryTypeInEveryPlace) {
  const std::vector<Value> values = {
      std::string("a & <b> \"c\""), std::string("\xC3\xA9\xF0\x9F\x98\x80"), std::string(),
      std::string(300, 'x'), uint32_t{0}, uint32_t{4294967295u},
      tk::Bytes{std::byte{0x00}, std::byte{0xAB}, std::byte{0xFF}}, tk::Bytes{}};
  for (Place place : {Place::kText, Place::kCData, Place::kAttribute}) {
    for (const Value& value : values) {
      tk::Document doc = tk::Document::create("r");
      tk::Element root = doc.root();
      Write(root, place, value);
      const std::string where = std::to_string(static_cast<int>(place)) + " " + doc.str();
      EXPECT_EQ(Read(root, place, value), value) << where;
      tk::Document again = tk::Document::parse(doc.str());
      EXPECT_EQ(Read(again.root(), place, value), value) << where;
    }
  }
}

// A read converts strictly; std::optional turns only absence into nullopt.
TEST(ModernValues, StrictReadsAndAbsence) {
  const tk::Document doc = tk::Document::parse(
      "<r e=\"\" t=\"1x\"><n>12a</n><big>4294967296</big><empty/><odd>abc</odd></r>");
  const tk::Element root = doc.root();
  const struct { const char* what; int code; int expected; } cases[] = {
      {"letters as number", root.try_get<uint32_t>("n").code(), -104},
      {"past 32 bits", root.try_get<uint32_t>("big").code(), -104},
      {"empty as number", root.try_get<uint32_t>("empty").code(), -107},
      {"odd hex digits", root.try_get<tk::Bytes>("odd").code(), -104},
      {"no element", root.try_get<uint32_t>("none").code(), -102},
      {"attribute as number", root.try_attr<uint32_t>("t").code(), -104},
      {"empty attribute as number", root.try_attr<uint32_t>("e").code(), -108},
      {"no attribute", root.try_attr("none").code(), -1},
      {"optional, present but bad", root.try_get<std::optional<uint32_t>>("n").code(), -104},
      {"optional, absent", root.try_get<std::optional<uint32_t>>("none").code(), 0},
  };
  for (const auto& c : cases) EXPECT_EQ(c.code, c.expected) << c.what;
  EXPECT_EQ(doc.get("empty"), "");
  EXPECT_EQ(doc.get<tk::Bytes>("empty"), tk::Bytes{});
  EXPECT_EQ(doc.get<std::optional<uint32_t>>("none"), std::nullopt);
  EXPECT_EQ(root.attr<std::optional<std::string>>("none"), std::nullopt);
  EXPECT_EQ(doc.get<std::optional<std::string>>("n"), "12a");
}

// The last text node is the value, also behind a shorter one, which the
// library's sized read can't pass.
TEST(ModernValues, LastTextNodeBehindShorterOne) {
  const tk::Document doc = tk::Document::parse(
      "<r><a>ab<c/>x&lt;y&#233;\xF0\x9F\x98\x80</a><d><![CDATA[q]]><c/><![CDATA[<long>]]></d></r>");
  EXPECT_EQ(doc.get("a"), "x<y\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(doc.root().get_cdata("d"), "<long>");
}

// set makes what is missing and writes into what exists; append always adds.
TEST(ModernTree, SetCreatesAppendAddsRemoveTakes) {
  tk::Document doc = tk::Document::create("cfg");
  doc.set("net/port", 8080);
  doc.set("net/port", 8081u);
  doc.root().append("net/item").set("", "a");
  doc.root().append("net/item").set("", "b");
  doc.root().child("net").set_attr("id", "x");
  EXPECT_EQ(doc.str(), "<?xml version='1.0' encoding='UTF-8' ?>\n<cfg><net id=\"x\"><port>8081"
                       "</port><item>a</item><item>b</item></net></cfg>");
  EXPECT_EQ(doc.try_set("n", -1).code(), -104);
  doc.root().remove("net/port");
  doc.root().child("net").remove_attr("id");
  EXPECT_EQ(doc.root().child("net").str(),
            "<?xml version='1.0' encoding='UTF-8' ?>\n<net><item>a</item><item>b</item></net>");
  EXPECT_FALSE(doc.find("net/port"));
  EXPECT_EQ(doc.root().try_remove_attr("id").code(), -1);
  EXPECT_EQ(doc.root().child("net").name(), "net");
}

TEST(ModernTree, IterationForms) {
  const tk::Document doc = tk::Document::parse(
      "<r><a k=\"1\" l=\"two\"/>text<!--c--><b/><a/>tail</r>");
  std::vector<std::string> names;
  for (const tk::Element& child : doc.children()) names.push_back(child.name());
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "a"}));
  int count = 0;
  for (const tk::Element& a : doc.children("a")) count += a.name() == "a";
  EXPECT_EQ(count, 2);
  std::vector<std::pair<std::string, std::string>> attributes;
  for (const auto& [name, value] : doc.child("a").attributes()) attributes.emplace_back(name, value);
  EXPECT_EQ(attributes, (decltype(attributes){{"k", "1"}, {"l", "two"}}));
  // Nothing to iterate: no children, no attributes, no such name.
  EXPECT_EQ(doc.child("b").children().begin(), doc.child("b").children().end());
  EXPECT_EQ(doc.child("b").attributes().begin(), doc.child("b").attributes().end());
  EXPECT_EQ(doc.children("z").begin(), doc.children("z").end());
  EXPECT_EQ(Handles(doc), 1u);
}

// Handles end with their last owner, whether a scope ends or an exception
// leaves it; an element keeps its instance alive.
TEST(ModernLifetime, HandlesEndUnderExceptions) {
  tk::Document doc = tk::Document::parse("<r><a>1</a><a>x</a><a>3</a></r>");
  EXPECT_THROW(
      for (const tk::Element& a : doc.children("a")) a.get<uint32_t>(), tk::Error);
  EXPECT_THROW(
      {
        tk::Element kept = doc.child("a");
        tk::Element copy = kept;
        EXPECT_EQ(copy.handle(), kept.handle());
        EXPECT_EQ(Handles(doc), 2u);
        doc.child("a/none");
      },
      tk::Error);
  EXPECT_EQ(Handles(doc), 1u);

  // A held element blocks a transformation; once it goes, the same call works.
  const char* stylesheet =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'><out/></xsl:template></xsl:stylesheet>";
  std::optional<tk::Element> held = doc.child("a");
  EXPECT_EQ(doc.try_transform(stylesheet).message(), "ApplyXSLT: open handles present");
  held.reset();
  doc.transform(stylesheet);
  EXPECT_EQ(doc.root().name(), "out");

  tk::Element survivor;
  {
    tk::Document gone = tk::Document::parse("<r><a>kept</a></r>");
    survivor = gone.child("a");
  }
  EXPECT_EQ(survivor.get(), "kept");
  EXPECT_EQ(tk::Element().try_get().code(), -6);
}

std::vector<std::string> g_forwarded;
void Forwarded(const char* text) { g_forwarded.emplace_back(text); }

// The message of a failure reaches the Error on the failing thread, and
// a callback given to set_debug_output gets every message as well.
TEST(ModernErrors, MessagesFollowTheFailingThread) {
  try {
    tk::Document::load("/nonexistent/file.xml");
    FAIL();
  } catch (const tk::Error& error) {
    EXPECT_EQ(error.code(), -101);
    EXPECT_EQ(error.message(), "ImportFromFile:  file open failed");
    EXPECT_NE(std::string(error.what()).find("load '/nonexistent/file.xml'"), std::string::npos);
  }
  std::string other;
  std::thread([&other] { other = tk::Document::try_parse("<a>").status().message(); }).join();
  EXPECT_EQ(other, "ImportFromStream :  loadXML failed");
  EXPECT_EQ(tk::Document::create("r").root().try_remove("none").message(), "");

  tk::set_debug_output(Forwarded);
  const tk::Status status = tk::Element().try_get().status();  // fails in this interface, not the library
  const tk::Status failed = tk::Document::try_parse("<a>").status();
  tk::set_debug_output(nullptr);
  EXPECT_EQ(status.code(), -6);
  EXPECT_EQ(failed.code(), -1);
  ASSERT_EQ(g_forwarded.size(), 1u);
  EXPECT_EQ(g_forwarded[0], failed.message() + "\n");
}

// A callback installed with TkSetDebugOutput keeps every message; errors
// then carry the code alone.
TEST(ModernErrors, ClientCallbackTakesTheMessages) {
  g_forwarded.clear();
  TkSetDebugOutput(Forwarded);
  const tk::Status failed = tk::Document::try_parse("<a>").status();
  tk::set_debug_output(nullptr);
  EXPECT_EQ(failed.code(), -1);
  EXPECT_EQ(failed.message(), "");
  EXPECT_EQ(g_forwarded.size(), 1u);
}

}  // namespace
