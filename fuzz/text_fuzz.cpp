// Bytes and code pages through the value conversions: element text and
// attribute text through the interface, and the conversions underneath
// called directly. Round trips are checked wherever the code page can hold
// the text, and every measuring call must agree with the writing call.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "document/codepage.h"
#include "document/textconv.h"
#include "fuzz_common.h"

namespace {

using tk::fuzz::Fail;

constexpr unsigned kCodePages[] = {0, 65001, 1252, 932, 936, 28591, 12345};
constexpr const char* kDefaults[] = {nullptr, "CP1252", "CP932", "ISO-8859-1"};

void Quiet(const char*) {}

// Strict UTF-8: no overlong forms, no surrogate halves, nothing past U+10FFFF.
// Calls each(code point) for every character while it is valid.
template <typename Each>
bool WalkUtf8(std::string_view s, Each each) {
  size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    unsigned cp, n;
    if (c < 0x80) { cp = c; n = 1; }
    else if (c >= 0xC2 && c <= 0xDF) { cp = c & 0x1F; n = 2; }
    else if (c >= 0xE0 && c <= 0xEF) { cp = c & 0x0F; n = 3; }
    else if (c >= 0xF0 && c <= 0xF4) { cp = c & 0x07; n = 4; }
    else return false;
    if (i + n > s.size()) return false;
    for (unsigned k = 1; k < n; ++k) {
      const auto t = static_cast<unsigned char>(s[i + k]);
      if ((t & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (t & 0x3F);
    }
    if ((n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10FFFF))) return false;
    if (cp >= 0xD800 && cp <= 0xDFFF) return false;
    each(cp);
    i += n;
  }
  return true;
}
bool IsUtf8(std::string_view s) { return WalkUtf8(s, [](unsigned) {}); }
bool XmlChars(std::string_view s) {
  bool ok = true;
  const bool valid = WalkUtf8(s, [&](unsigned cp) {
    if ((cp < 0x20 && cp != 0x09 && cp != 0x0A && cp != 0x0D) || cp == 0xFFFE || cp == 0xFFFF) {
      ok = false;
    }
  });
  return valid && ok;
}
unsigned MaxCodePoint(std::string_view s) {
  unsigned most = 0;
  WalkUtf8(s, [&](unsigned cp) { most = cp > most ? cp : most; });
  return most;
}

// The conversions underneath: measure and write agree, and the buffer of
// exactly the measured size is enough while one byte less is refused.
void Conversions(unsigned codePage, const std::string& text) {
  std::string dom;
  const int decoded = tk::cp::NarrowToDom(codePage, text, dom);
  if (decoded == 0) {
    if (tk::cp::IsKnownCodePage(codePage)) Fail("a known code page refused to decode");
    return;
  }
  if (static_cast<size_t>(decoded) != dom.size() + 1) Fail("decode measure is off");
  if (!IsUtf8(dom)) Fail("decode gave invalid UTF-8", dom);
  if (codePage == 65001 && IsUtf8(text) && dom != text) Fail("valid UTF-8 changed on decode");

  const int measured = tk::cp::DomToNarrow(codePage, 0, dom, nullptr, 0);
  if (measured <= 0) Fail("encode measure failed");
  std::unique_ptr<char[]> exact(new char[measured]);
  if (tk::cp::DomToNarrow(codePage, 0, dom, exact.get(), measured) != measured) {
    Fail("encode into the measured size failed");
  }
  if (exact[measured - 1] != '\0') Fail("encode wrote no terminator");
  std::string once;
  if (tk::cp::DomToNarrow(codePage, 0, dom, once) != measured) Fail("one-pass encode differs");
  if (once != std::string_view(exact.get(), measured - 1)) Fail("one-pass text differs");
  if (measured > 1) {
    std::unique_ptr<char[]> shorter(new char[measured - 1]);
    if (tk::cp::DomToNarrow(codePage, 0, dom, shorter.get(), measured - 1) != 0) {
      Fail("encode into too small a buffer succeeded");
    }
  }
  // Text that the code page holds comes back whole.
  std::string back;
  const bool latin1 = codePage == 28591 && MaxCodePoint(dom) <= 0xFF;
  if ((codePage == 65001 || latin1) && (tk::cp::NarrowToDom(codePage, once, back) == 0 ||
                                        back != dom)) {
    Fail("round trip through the code page lost text", dom);
  }

  // The export encoder: measure, write, and the terminator rule.
  const int size = tk::Ucs2ToUtf8Bytes(dom, -1, nullptr, 0);
  if (size <= 0) Fail("export encoder measure failed");
  std::unique_ptr<char[]> encoded(new char[size]);
  if (tk::Ucs2ToUtf8Bytes(dom, -1, encoded.get(), size) != size) Fail("export encoder write");
  if (encoded[size - 1] != '\0') Fail("export encoder terminator");
  if (size > 1 && tk::Ucs2ToUtf8Bytes(dom, -1, encoded.get(), size - 1) != -1) {
    Fail("export encoder accepted a short buffer");
  }
  outputstr out;
  const int appended = tk::Ucs2ToUtf8(dom, out);
  if (appended == 0 && std::string_view(out.text()) != std::string_view(encoded.get())) {
    Fail("the two export encoder forms differ");
  }
}

void HexForms(const std::string& bytes) {
  std::string hex(bytes.size() * 2, '\0');
  tk::BytesToHexText(hex.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                     static_cast<uint32_t>(bytes.size()));
  std::string back((hex.size() + 1) / 2, '\0');
  if (tk::HexTextToBytes(reinterpret_cast<unsigned char*>(back.data()), hex.c_str()) != 1 ||
      back != bytes) {
    Fail("hex round trip");
  }
  // Arbitrary text as hex: never writes past (length + 1) / 2 bytes.
  const std::string text = bytes.substr(0, bytes.find('\0'));
  std::unique_ptr<unsigned char[]> sink(new unsigned char[(text.size() + 1) / 2 + 1]);
  tk::HexTextToBytes(sink.get(), text.c_str());
  tk::IsDecimalText(text.c_str());
}

// Reads an element value by the two-call protocol; false when the read
// failed some other way.
bool ReadValue(ITreeKeeper* tk, unsigned codePage, std::string& out, int& result) {
  unsigned size = 0;
  result = tk->GetElementValue(100, "v", TK_VALUE_TEXT, &size, nullptr, codePage);
  if (result != -105) return false;
  // A code page the conversion refuses measures 0; a buffer of one byte then
  // reads as one NUL (a size of 0 leaves no room and is refused unwritten).
  const bool refused = size == 0;
  const unsigned needed = refused ? 1 : size;
  if (refused != !tk::cp::IsKnownCodePage(codePage)) Fail("measure 0 for a known code page");
  std::unique_ptr<char[]> buffer(new char[needed]);
  size = needed;
  result = tk->GetElementValue(100, "v", TK_VALUE_TEXT, &size, buffer.get(), codePage);
  if (result != 0) Fail("read with the size asked for failed");
  if (size != needed) Fail("size stored by the read differs from the measure");
  if (needed == 0 || buffer[needed - 1] != '\0') {
    Fail("value read is not terminated", "code page " + std::to_string(codePage) + ", size " +
                                             std::to_string(needed));
  }
  out.assign(buffer.get());
  if (out.size() + 1 != needed) Fail("value size does not match its text");
  return true;
}

void ThroughInterface(const std::string& text) {
  tk::fuzz::Scoped tk;
  unsigned handle = 0;
  if (tk->CreateEmpty("r") != 0 || tk->CreateElement(100, "v", &handle) != 0) {
    Fail("set-up refused");
  }
  std::string dom;
  tk::Utf8ToWide(text.c_str(), dom);
  const bool storable = XmlChars(dom);
  const int set = tk->SetElementValue(100, "v", TK_VALUE_TEXT,
                                      static_cast<unsigned>(text.size()), text.data());
  if (set != (storable ? 0 : -1)) Fail("element text accepted or refused wrongly", dom);
  if (storable) {
    for (const unsigned codePage : kCodePages) {
      std::string value;
      int result = 0;
      if (!ReadValue(tk.tk, codePage, value, result)) Fail("value read refused");
      if (codePage == 65001 && value != dom) Fail("UTF-8 text did not come back", dom);
      if (codePage == 28591 && MaxCodePoint(dom) <= 0xFF) {
        std::string back;
        tk::cp::NarrowToDom(28591, value, back);
        if (back != dom) Fail("Latin-1 text did not come back", dom);
      }
    }
  }
  // Attribute values: stored as given (after the UTF-8 repair), read back the same.
  const int attr = tk->setAttributeValue(100, nullptr, "a", TK_VALUE_TEXT, 0, text.c_str());
  if (attr == 0) {
    outputstr value;
    if (tk->GetAttributeText(100, nullptr, "a", value) != 0) Fail("attribute not readable");
    if (storable && dom != value.text()) Fail("attribute text did not come back", dom);
    // The sized read gives the same text by the two-call protocol.
    unsigned size = 0;
    if (tk->GetAttributeValue(100, nullptr, "a", TK_VALUE_TEXT, &size, nullptr) != -105) {
      Fail("attribute size not given");
    }
    std::unique_ptr<char[]> buffer(new char[size]);
    if (tk->GetAttributeValue(100, nullptr, "a", TK_VALUE_TEXT, &size, buffer.get()) != 0 ||
        std::string(buffer.get()) != value.text()) {
      Fail("sized attribute read differs", value.text());
    }
  }
  // The same bytes as an attribute name and an element name: any answer, no fault.
  tk->setAttributeValue(100, nullptr, text.c_str(), TK_VALUE_TEXT, 0, "x");
  unsigned made = 0;
  tk->CreateElement(100, text.c_str(), &made);
  outputstr out;
  tk->ExportToStream(out);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TkSetDebugOutput(Quiet);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const unsigned selector = data[0];
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string text = bytes.substr(0, bytes.find('\0'));
  tk::cp::testing::SetDefaultCodeset(kDefaults[(selector >> 4) % std::size(kDefaults)]);
  Conversions(kCodePages[selector % std::size(kCodePages)], text);
  HexForms(bytes);
  tk::cp::testing::SetDefaultCodeset(nullptr);
  ThroughInterface(text);
  return 0;
}
