#include "document/textconv.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <treekeeper/treekeeper.h>

#include "document/codepage.h"
#include "document/utf8.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

// The text of src: its bytes up to the first NUL.
std::string_view UpToNul(std::string_view src) {
  const void* nul = src.empty() ? nullptr : std::memchr(src.data(), '\0', src.size());
  if (nul == nullptr) return src;
  return src.substr(0, static_cast<size_t>(static_cast<const char*>(nul) - src.data()));
}

// Offset of the first byte from 0xF0 up (the lead of a 4-byte sequence), or n.
// Exports run through here whole, so it looks at 16 bytes a step.
size_t FindHighLead(const unsigned char* p, size_t n) {
#if defined(__SSE2__)
  const __m128i leads = _mm_set1_epi8(static_cast<char>(0xF0));
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    // A byte is from 0xF0 up when its top four bits are all set.
    const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(bytes, leads), leads));
    if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(mask)));
  }
  while (i < n && p[i] < 0xF0) ++i;
  return i;
#else
  constexpr uint64_t kOnes = 0x0101010101010101ull;
  constexpr uint64_t kHighBits = 0x8080808080808080ull;
  constexpr uint64_t kLeads = 0xF0F0F0F0F0F0F0F0ull;
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t word;
    std::memcpy(&word, p + i, 8);
    const uint64_t diff = (word & kLeads) ^ kLeads;  // a zero byte where a lead is
    if (((diff - kOnes) & ~diff & kHighBits) != 0) break;
  }
  while (i < n && p[i] < 0xF0) ++i;
  return i;
#endif
}

// True if the bytes at p (n left) are a well-formed 4-byte sequence.
bool IsFourByte(const unsigned char* p, size_t n) {
  const utf8::Step step = utf8::Next(p, n);
  return step.valid && step.length == 4;
}

// Number of well-formed 4-byte sequences in the text.
size_t CountFourByte(std::string_view text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  size_t count = 0;
  for (size_t i = FindHighLead(p, text.size()); i < text.size();
       i += FindHighLead(p + i, text.size() - i)) {
    if (IsFourByte(p + i, text.size() - i)) {
      ++count;
      i += 4;
    } else {
      ++i;
    }
  }
  return count;
}

// Units of the text as UTF-16 counts them.
size_t UnitCount(std::string_view text) {
  size_t units = 0;
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++units;
  }
  return units + CountFourByte(text);
}

char* PutUnit(char* out, unsigned unit) {
  *out++ = static_cast<char>(0xE0 | (unit >> 12));
  *out++ = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
  *out++ = static_cast<char>(0x80 | (unit & 0x3F));
  return out;
}

// Writes the text form of text to dst, which has room for it.
char* Encode(std::string_view text, char* dst) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const size_t run = FindHighLead(p + i, n - i);
    std::memcpy(dst, p + i, run);
    dst += run;
    i += run;
    if (i == n) break;
    if (!IsFourByte(p + i, n - i)) {
      *dst++ = static_cast<char>(p[i++]);
      continue;
    }
    const unsigned code = ((p[i] & 0x07u) << 18) | ((p[i + 1] & 0x3Fu) << 12) |
                          ((p[i + 2] & 0x3Fu) << 6) | (p[i + 3] & 0x3Fu);
    const unsigned offset = code - 0x10000;
    dst = PutUnit(dst, 0xD800 + (offset >> 10));
    dst = PutUnit(dst, 0xDC00 + (offset & 0x3FF));
    i += 4;
  }
  return dst;
}

// Appends the text form at text (size bytes, then a NUL) in one append.
int AppendChecked(const char* text, size_t size, outputstr& out) {
  if (size + 1 > static_cast<size_t>(INT32_MAX)) {
    Report("Ucs2ToUtf8 error, errcode :");
    return -1;
  }
  out.append(text);
  return 0;
}

// The shared body of the Ucs2ToUtf8 forms. `terminated`: text.data() is
// followed by a NUL, so it can be appended as it stands.
int AppendTextForm(std::string_view text, bool terminated, outputstr& out) {
  if (text.empty()) return -1;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const size_t plain = FindHighLead(bytes, text.size());
  std::unique_ptr<char[]> form;
  size_t size = text.size();
  if (plain < text.size()) {
    // A 4-byte sequence becomes 6 bytes, so half as much again always has
    // room, and what isn't written is never touched: the text is converted
    // in one pass and measured afterwards instead of counted first.
    form.reset(new char[text.size() + text.size() / 2 + 1]);
    std::memcpy(form.get(), text.data(), plain);
    char* end = Encode(text.substr(plain), form.get() + plain);
    *end = '\0';
    size = static_cast<size_t>(end - form.get());
  }
  if (form) return AppendChecked(form.get(), size, out);
  if (terminated) return AppendChecked(text.data(), size, out);
  const std::string copy(text);
  return AppendChecked(copy.c_str(), size, out);
}

class ConversionFaults final : public std::error_category {
 public:
  const char* name() const noexcept override { return "treekeeper"; }
  std::string message(int code) const override {
    char text[64];
    std::snprintf(text, sizeof text, "text conversion refused (0x%08X)",
                  static_cast<unsigned>(code));
    return text;
  }
};

}  // namespace

int Ucs2ToUtf8Bytes(std::string_view src, int32_t count, char* dst, int32_t dstSize) {
  const std::string_view text = UpToNul(src);
  const bool terminator =
      count < 0 || static_cast<size_t>(count) > text.size() ||
      static_cast<size_t>(count) > UnitCount(text);
  const size_t size = text.size() + 2 * CountFourByte(text) + (terminator ? 1 : 0);
  if (size > static_cast<size_t>(INT32_MAX)) return dstSize == 0 ? 0 : -1;
  if (dstSize == 0) return static_cast<int>(size);
  if (dstSize < 0 || static_cast<size_t>(dstSize) < size || dst == nullptr) return -1;
  char* end = Encode(text, dst);
  if (terminator) *end = '\0';
  return static_cast<int>(size);
}

int Ucs2ToUtf8(std::string_view src, outputstr& out) {
  const std::string_view text = UpToNul(src);
  return AppendTextForm(text, text.size() < src.size(), out);
}

int Ucs2ToUtf8(const std::string& src, outputstr& out) {
  return AppendTextForm(UpToNul(src), true, out);
}

int AppendTextFormTerminated(std::string_view form, outputstr& out) {
  if (form.empty()) return -1;
  return AppendChecked(form.data(), form.size(), out);
}

int Ucs2ToUtf8(const char* src, outputstr& out) {
  if (src == nullptr) return -1;
  return AppendTextForm(src, true, out);
}

int AnsiToWide(const char* text, std::string& out) {
  if (text == nullptr) return -1;
  return cp::NarrowToDom(cp::kDefault, text, out) == 0 ? -1 : 0;
}

int Utf8ToWide(const char* text, std::string& out) {
  if (text == nullptr) return -1;
  return cp::NarrowToDom(cp::kUtf8, text, out) == 0 ? -1 : 0;
}

bool AnsiToWideOrFault(const char* text, std::string& out) {
  if (text == nullptr) {
    out.clear();
    return false;
  }
  if (cp::NarrowToDom(cp::kDefault, text, out) == 0) RaiseConversionFault(cp::GetLastError());
  return true;
}

std::string_view DomToAnsi(std::string_view dom, std::string& scratch) {
  if (dom.data() == nullptr || cp::DefaultIsUtf8()) return dom;
  if (cp::DomToNarrow(cp::kDefault, 0, dom, scratch) == 0) {
    RaiseConversionFault(cp::GetLastError());
  }
  return scratch;
}

const std::error_category& ConversionFaultCategory() {
  static const ConversionFaults category;
  return category;
}

void RaiseConversionFault(uint32_t lastError) {
  if (lastError == cp::kErrorNotEnoughMemory || lastError == 14) throw std::bad_alloc();
  const uint32_t code =
      static_cast<int32_t>(lastError) > 0 ? 0x80070000u | (lastError & 0xFFFFu) : lastError;
  throw std::system_error(static_cast<int>(code), ConversionFaultCategory());
}

int IsDecimalText(const char* text) {
  if (text == nullptr) return 1;
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') return 0;
  }
  return 1;
}

unsigned char HexPairToByte(const char* text, uint32_t* flag) {
  *flag = 1;
  if (text == nullptr) return 0;
  unsigned value = 0;
  for (int i = 0; i < 2 && text[i] != '\0'; ++i) {
    const char c = text[i];
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      digit = static_cast<unsigned>(c - 'A' + 10);
    } else {
      *flag = 0;
      return 0;
    }
    value += i == 0 ? digit << 4 : digit;
  }
  return static_cast<unsigned char>(value);
}

int HexTextToBytes(unsigned char* dst, const char* text) {
  if (text == nullptr) return 1;
  const size_t length = std::strlen(text);
  for (size_t i = 0; i < length; i += 2) {
    uint32_t flag = 0;
    *dst++ = HexPairToByte(text + i, &flag);
    if (flag == 0) return 0;
  }
  return 1;
}

void BytesToHexText(char* dst, const unsigned char* src, uint32_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (uint32_t i = 0; i < count; ++i) {
    *dst++ = kDigits[src[i] >> 4];
    *dst++ = kDigits[src[i] & 0x0F];
  }
}

}  // namespace tk
