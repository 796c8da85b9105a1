// Regressions of what the fuzz targets found, each reduced to its cause.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace tk::test {
namespace {

// A buffer with guard bytes behind the room the caller claims.
struct GuardedBuffer {
  explicit GuardedBuffer(unsigned room) : room(room) { std::memset(bytes, 0xAA, sizeof bytes); }
  bool guardIntact() const {
    for (unsigned i = room; i < sizeof bytes; ++i) {
      if (static_cast<unsigned char>(bytes[i]) != 0xAA) return false;
    }
    return true;
  }
  unsigned room;
  char bytes[64 + 16];
};

// Several text children: the size an earlier child needs must not become
// room to write into for a later one when the caller's buffer is smaller.
TEST(FuzzFindings, LaterTextChildNeverWritesPastTheCallersBuffer) {
  struct Case {
    const char* document;
    int type;
    unsigned room;
    bool cdata;
  };
  const Case cases[] = {
      {"<r>1<!--c-->2</r>", TK_VALUE_NUMBER, 2, false},
      {"<r>three<!--c-->one</r>", TK_VALUE_TEXT, 2, false},
      {"<r>abcdef<!--c-->abcd</r>", TK_VALUE_BINARY, 1, false},
      {"<r><![CDATA[three]]><!--c--><![CDATA[one]]></r>", TK_VALUE_TEXT, 3, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.document);
    Instance tk;
    ASSERT_EQ(tk->ImportFromStream(c.document, 1, nullptr), 0);
    const auto read = [&](unsigned* size, GuardedBuffer& buffer) {
      return c.cdata ? tk->GetElementCDATAValue(100, nullptr, c.type, size, buffer.bytes)
                     : tk->GetElementValue(100, nullptr, c.type, size, buffer.bytes);
    };
    GuardedBuffer small(c.room);
    unsigned size = c.room;
    EXPECT_EQ(read(&size, small), -105);
    EXPECT_GT(size, c.room);
    EXPECT_TRUE(small.guardIntact());
    // With the room asked for, the read goes through.
    GuardedBuffer enough(size);
    const unsigned asked = size;
    EXPECT_EQ(read(&size, enough), 0);
    EXPECT_LE(size, asked);
    EXPECT_TRUE(enough.guardIntact());
  }
}

// Within the caller's room the reading protocol stays as it is: the first
// child's stored size is the capacity the second is judged by.
TEST(FuzzFindings, ProtocolWithinTheCallersRoomIsUnchanged) {
  Instance tk;
  ASSERT_EQ(tk->ImportFromStream("<r>one<!--c-->three</r>", 1, nullptr), 0);
  GuardedBuffer buffer(64);
  unsigned size = 64;
  EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer.bytes), -105);
  EXPECT_EQ(size, 6u);
  EXPECT_STREQ(buffer.bytes, "one");
  EXPECT_TRUE(buffer.guardIntact());
}

// The engine writes a namespace declaration's value without escapes, so a
// value that would not read back the same is refused, whether it is set or
// loaded; what is accepted exports and imports back unchanged.
TEST(FuzzFindings, NamespaceDeclarationValuesReadBack) {
  for (const char* name : {"xmlns", "xmlns:p"}) {
    Instance tk;
    ASSERT_EQ(tk->CreateEmpty("r"), 0);
    for (const char* value : {"a&b", "a<b", "a\tb", "a\nb", "a\rb"}) {
      SCOPED_TRACE(std::string(name) + "=" + value);
      EXPECT_EQ(tk->setAttributeValue(100, nullptr, name, TK_VALUE_TEXT, 0, value), -1);
    }
    ASSERT_EQ(tk->setAttributeValue(100, nullptr, name, TK_VALUE_TEXT, 0, "a\"b'c"), 0);
    const std::string first = ExportText(tk.tk);
    Instance again;
    ASSERT_EQ(again->ImportFromStream(first.c_str(), 1, nullptr), 0) << first;
    EXPECT_EQ(ExportText(again.tk), first);
  }
  Instance loaded;
  EXPECT_EQ(loaded->ImportFromStream("<r xmlns='a&amp;b'/>", 1, nullptr), -1);
  EXPECT_EQ(loaded->ImportFromStream("<r xmlns:p='a&#10;b'/>", 1, nullptr), -1);
  EXPECT_EQ(loaded->ImportFromStream("<r xmlns:p='urn:x'/>", 1, nullptr), 0);
}

}  // namespace
}  // namespace tk::test
