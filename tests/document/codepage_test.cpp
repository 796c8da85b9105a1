#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "document/codepage.h"
#include "support/default_codeset.h"

namespace {

using tk::cp::DomToNarrow;
using tk::cp::NarrowToDom;

std::string Decode(unsigned codePage, const std::string& bytes, int* measure = nullptr) {
  std::string out;
  const int result = NarrowToDom(codePage, bytes, out);
  if (measure != nullptr) *measure = result;
  return out;
}

std::string Encode(unsigned codePage, unsigned flags, const std::string& dom) {
  std::string out;
  EXPECT_NE(DomToNarrow(codePage, flags, dom, out), 0) << tk::cp::GetLastError();
  return out;
}

TEST(CodePage, Utf8DecodeReplacesEachMaximalSubpart) {
  const std::string fffd = "\xEF\xBF\xBD";
  const std::pair<std::string, std::string> cases[] = {
      {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"}, {"a\xFF" "b", "a" + fffd + "b"},
      {"\xC0\x80", fffd + fffd},                 // overlong
      {"\xED\xA0\x80", fffd + fffd + fffd},      // encoded surrogate
      {"\xE2\x82" "A", fffd + "A"}, {"\xE2\x82", fffd},  // cut short: one replacement
      {"\xF4\x90\x80\x80", fffd + fffd + fffd + fffd},  // above U+10FFFF
      {"\xF0\x9F\x98" "\xC3\xA9", fffd + "\xC3\xA9"},
      {"0123456789abcdef\x80", "0123456789abcdef" + fffd},
  };
  for (const auto& [in, out] : cases) {
    int measure = 0;
    EXPECT_EQ(Decode(tk::cp::kUtf8, in, &measure), out);
    EXPECT_EQ(measure, static_cast<int>(out.size()) + 1);
  }
}

// Every number the layer accepts must open on this system, both ways; any
// other is refused, leaving the output and setting the last error.
TEST(CodePage, KnownNumbersConvertOthersAreRefused) {
  unsigned known = 0;
  for (unsigned codePage = 0; codePage <= 0xFFFF; ++codePage) {
    std::string out = "kept";
    tk::cp::SetLastError(0);
    const int measure = NarrowToDom(codePage, "Az09", out);
    if (!tk::cp::IsKnownCodePage(codePage)) {
      EXPECT_EQ(measure, 0) << codePage;
      EXPECT_EQ(out, "kept") << codePage;
      EXPECT_EQ(tk::cp::GetLastError(), tk::cp::kErrorInvalidParameter) << codePage;
      continue;
    }
    ++known;
    EXPECT_EQ(out, "Az09") << codePage;
    EXPECT_EQ(measure, 5) << codePage;
    EXPECT_EQ(DomToNarrow(codePage, tk::cp::kNoBestFitChars, "Az09", nullptr, 0), 5) << codePage;
  }
  EXPECT_EQ(known, 51u);
  tk::cp::SetLastError(0);
  EXPECT_EQ(DomToNarrow(1200, 0, "abc", nullptr, 0), 0);
  EXPECT_EQ(tk::cp::GetLastError(), tk::cp::kErrorInvalidParameter);
}

TEST(CodePage, OtherCodePagesBothWays) {
  EXPECT_EQ(Decode(932, "\x82\xA0" "A"), "\xE3\x81\x82" "A");
  EXPECT_EQ(Encode(932, 0, "\xE3\x81\x82" "A"), "\x82\xA0" "A");
  EXPECT_EQ(Decode(1252, "caf\xE9 \x80"), "caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(Decode(1252, "a\x81" "b"), "a\xEF\xBF\xBD" "b");  // 0x81 has no character
  EXPECT_EQ(Encode(1252, tk::cp::kNoBestFitChars, "\xE2\x82\xAC"), "\x80");
  // U+0100: best fit gives A, without best fit the default character; with
  // neither, one default character per character.
  EXPECT_EQ(Encode(1252, tk::cp::kNoBestFitChars, "\xC4\x80"), "?");
  EXPECT_EQ(Encode(1252, 0, "\xC4\x80"), "A");
  EXPECT_EQ(Encode(1252, 0, "x\xE4\xB8\xAD\xF0\x9F\x98\x80y"), "x??y");
}

// 1255 and 1258 hold a character back in case a combining mark follows; a
// byte that doesn't decode must not take that character with it.
TEST(CodePage, HeldCharacterKeptBeforeABadByte) {
  const struct {
    unsigned codePage;
    const char* bytes;
    const char* dom;
  } cases[] = {
      {1255, "\xE0\xFF\xE1", "\xD7\x90\xEF\xBF\xBD\xD7\x91"},  // alef, bad, bet
      {1258, "ab\x81" "cd", "ab\xEF\xBF\xBD" "cd"},
  };
  for (const auto& c : cases) EXPECT_EQ(Decode(c.codePage, c.bytes), c.dom) << c.codePage;
}

TEST(CodePage, BufferProtocol) {
  char buffer[8] = "zzzzzzz";
  const char* dom = "\xC3\xA9t\xC3\xA9";
  EXPECT_EQ(DomToNarrow(1252, 0, dom, nullptr, 0), 4);
  tk::cp::SetLastError(0);
  EXPECT_EQ(DomToNarrow(1252, 0, dom, buffer, 3), 0);
  EXPECT_EQ(tk::cp::GetLastError(), tk::cp::kErrorInsufficientBuffer);
  EXPECT_STREQ(buffer, "zzzzzzz");
  EXPECT_EQ(DomToNarrow(1252, 0, dom, buffer, 4), 4);
  EXPECT_STREQ(buffer, "\xE9t\xE9");
  // UTF-8: the DOM text as it stands, terminator counted and written.
  EXPECT_EQ(DomToNarrow(tk::cp::kUtf8, 0, "", buffer, 1), 1);
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(DomToNarrow(tk::cp::kUtf8, 0, "ab\xF0\x9F\x98\x80", buffer, 8), 7);
  EXPECT_STREQ(buffer, "ab\xF0\x9F\x98\x80");
  EXPECT_EQ(DomToNarrow(tk::cp::kUtf8, 0, "a", nullptr, 5), 0);  // size without buffer
  EXPECT_EQ(tk::cp::GetLastError(), tk::cp::kErrorInvalidParameter);
}

TEST(CodePage, DefaultCodesetSpellings) {
  const std::pair<const char*, bool> spellings[] = {
      {"utf8", true}, {"ANSI_X3.4-1968", true}, {"CP1252", false}, {"UTF-16", false}};
  for (const auto& [name, utf8] : spellings) {
    tk::test::DefaultCodeset codeset(name);
    EXPECT_EQ(tk::cp::DefaultIsUtf8(), utf8) << name;
  }
}

}  // namespace
