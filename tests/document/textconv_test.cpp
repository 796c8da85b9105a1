#include <cstring>
#include <string>
#include <system_error>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "document/codepage.h"
#include "document/textconv.h"
#include "support/default_codeset.h"
#include "support/recording_text.h"

namespace {

using tk::test::DefaultCodeset;

// Characters above U+FFFF come out as two 3-byte halves, in one append;
// the text ends at its first NUL; empty text leaves the output alone.
TEST(Ucs2ToUtf8, EncodesAsUcs2AndAppendsOnce) {
  // An empty result: refused with -1.
  const struct { std::string_view dom; std::string bytes; } cases[] = {
      {"\xF0\x9F\x98\x80", "\xED\xA0\xBD\xED\xB8\x80"},
      {"x\xF4\x8F\xBF\xBFy", "x\xED\xAF\xBF\xED\xBF\xBFy"},  // U+10FFFF
      {std::string_view("ab\0cd", 5), "ab"}, {std::string_view("xyz", 2), "xy"},
      {std::string_view("\0de", 3), ""},
  };
  for (const auto& c : cases) {
    tk::test::RecordingText out("<");
    EXPECT_EQ(tk::Ucs2ToUtf8(c.dom, out), c.bytes.empty() ? -1 : 0);
    EXPECT_EQ(out.text(), "<" + c.bytes);
    EXPECT_EQ(out.calls.size(), c.bytes.empty() ? 0u : 1u);
  }
  // The std::string and pointer forms.
  outputstr out;
  EXPECT_EQ(tk::Ucs2ToUtf8(std::string(300, 'a') + "\xF0\x9F\x98\x80", out), 0);
  EXPECT_EQ(out.text(), std::string(300, 'a') + "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(tk::Ucs2ToUtf8(static_cast<const char*>(nullptr), out), -1);
  EXPECT_EQ(tk::Ucs2ToUtf8(std::string("ab\0cd", 5), out), 0);
  EXPECT_EQ(out.length(), 308u);
}

TEST(Ucs2ToUtf8Bytes, MeasuresThenWritesOnlyWhatFits) {
  const std::string smile = "\xF0\x9F\x98\x80";  // two units
  const struct { std::string dom; int32_t count; int measure; } cases[] = {
      {"abc", 4, 4}, {"abc", -1, 4}, {"abc", 3, 3}, {"abc", 1, 3},  // never shorter
      {smile, 3, 7}, {smile, 2, 6},  {smile, 1, 6}, {"", -1, 1},    {"", 0, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(tk::Ucs2ToUtf8Bytes(c.dom, c.count, nullptr, 0), c.measure)
        << c.dom << " count " << c.count;
  }
  char buffer[8];
  std::memset(buffer, 'z', sizeof buffer);
  EXPECT_EQ(tk::Ucs2ToUtf8Bytes(smile, -1, buffer, 6), -1);
  EXPECT_EQ(buffer[0], 'z');
  EXPECT_EQ(tk::Ucs2ToUtf8Bytes(smile, -1, buffer, 7), 7);
  EXPECT_EQ(std::string(buffer, 7), std::string("\xED\xA0\xBD\xED\xB8\x80\0", 7));
  std::memset(buffer, 'z', sizeof buffer);
  EXPECT_EQ(tk::Ucs2ToUtf8Bytes("abc", 3, buffer, 8), 3);  // no terminator taken
  EXPECT_EQ(buffer[3], 'z');
}

// The code of the conversion fault f raises; 0 when it raises none.
template <typename F>
uint32_t FaultCode(F f) {
  try {
    f();
  } catch (const std::system_error& fault) {
    EXPECT_EQ(&fault.code().category(), &tk::ConversionFaultCategory());
    return static_cast<uint32_t>(fault.code().value());
  }
  return 0;
}

// Code page 0 is the thread's codeset, which need not be UTF-8; a codeset
// that can't be opened gives -1, or a fault from the faulting forms.
TEST(NarrowToWide, DefaultCodePageAndFaults) {
  std::string out = "old";
  EXPECT_EQ(tk::AnsiToWide("a\xC3", out), 0);  // the C locale counts as UTF-8
  EXPECT_EQ(out, "a\xEF\xBF\xBD");
  {
    DefaultCodeset codeset("CP1252");
    EXPECT_EQ(tk::AnsiToWide("\xC3\xA9", out), 0);
    EXPECT_EQ(out, "\xC3\x83\xC2\xA9");  // two characters, U+00C3 U+00A9
    EXPECT_EQ(tk::Utf8ToWide("\xC3\xA9", out), 0);
    EXPECT_EQ(out, "\xC3\xA9");
  }
  DefaultCodeset codeset("NO-SUCH-CODESET");
  out = "kept";
  EXPECT_EQ(tk::AnsiToWide("abc", out), -1);
  EXPECT_EQ(FaultCode([&] { tk::AnsiToWideOrFault("abc", out); }), 0x80070057u);
  EXPECT_EQ(out, "kept");
  EXPECT_FALSE(tk::AnsiToWideOrFault(nullptr, out));  // null stays null, no fault
  EXPECT_EQ(out, "");

  const uint32_t codes[][2] = {
      {87, 0x80070057u}, {0x12345, 0x80072345u}, {0x80004005u, 0x80004005u}};
  for (const auto& c : codes) EXPECT_EQ(FaultCode([&] { tk::RaiseConversionFault(c[0]); }), c[1]);
  EXPECT_THROW(tk::RaiseConversionFault(tk::cp::kErrorNotEnoughMemory), std::bad_alloc);
}

TEST(DomToAnsi, SameBytesWhenDefaultIsUtf8ElseBestFitOrFault) {
  const std::string dom = "n\xC3\xA4me\xC4\x80\xE4\xB8\xAD";
  std::string scratch;
  EXPECT_EQ(tk::DomToAnsi(dom, scratch).data(), dom.data());  // no copy
  {
    DefaultCodeset codeset("CP1252");
    EXPECT_EQ(tk::DomToAnsi(dom, scratch), "n\xE4me" "A?");
    EXPECT_EQ(tk::DomToAnsi(std::string_view(), scratch).data(), nullptr);
  }
  DefaultCodeset codeset("NO-SUCH-CODESET");
  EXPECT_THROW(tk::DomToAnsi("abc", scratch), std::system_error);
}

// Null text counts as empty; the rest is read through the value calls.
TEST(ValueText, NullIsEmpty) {
  unsigned char dst[1] = {0xEE};
  EXPECT_EQ(tk::IsDecimalText(nullptr), 1);
  EXPECT_EQ(tk::HexTextToBytes(dst, nullptr), 1);
  EXPECT_EQ(dst[0], 0xEE);
}

}  // namespace
