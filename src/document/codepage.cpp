#include "document/codepage.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "document/utf8.h"

namespace tk::cp {
namespace {

thread_local uint32_t t_lastError = 0;

int Fail(uint32_t error) {
  t_lastError = error;
  return 0;
}

// Windows code page numbers and the iconv encodings that stand for them.
struct NamedCodePage {
  unsigned number;
  const char* codeset;
};
constexpr NamedCodePage kCodePages[] = {
    {437, "CP437"},         {737, "CP737"},         {775, "CP775"},
    {850, "CP850"},         {852, "CP852"},         {855, "CP855"},
    {857, "CP857"},         {858, "CP858"},         {860, "CP860"},
    {861, "CP861"},         {862, "CP862"},         {863, "CP863"},
    {864, "CP864"},         {865, "CP865"},         {866, "CP866"},
    {869, "CP869"},         {874, "CP874"},         {932, "CP932"},
    {936, "CP936"},         {949, "CP949"},         {950, "CP950"},
    {1250, "CP1250"},       {1251, "CP1251"},       {1252, "CP1252"},
    {1253, "CP1253"},       {1254, "CP1254"},       {1255, "CP1255"},
    {1256, "CP1256"},       {1257, "CP1257"},       {1258, "CP1258"},
    {10000, "MACINTOSH"},   {20127, "ASCII"},       {20866, "KOI8-R"},
    {20932, "EUC-JP"},      {21866, "KOI8-U"},      {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},  {28593, "ISO-8859-3"},  {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"},  {28596, "ISO-8859-6"},  {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},  {28599, "ISO-8859-9"},  {28603, "ISO-8859-13"},
    {28605, "ISO-8859-15"}, {51932, "EUC-JP"},      {51949, "EUC-KR"},
    {54936, "GB18030"},
};

const char* CodesetOf(unsigned codePage) {
  for (const NamedCodePage& entry : kCodePages) {
    if (entry.number == codePage) return entry.codeset;
  }
  return nullptr;
}

// ---- Code page 0: the calling thread's LC_CTYPE codeset -----------------

struct DefaultCodeset {
  const char* seen = nullptr;  // the pointer nl_langinfo gave last time
  std::string name;            // what it said
  bool utf8 = true;
};

thread_local DefaultCodeset t_locale;
thread_local DefaultCodeset t_override;
thread_local bool t_overridden = false;

// UTF-8 under any spelling; the C/POSIX locale's ASCII counts as UTF-8 too.
bool CountsAsUtf8(const char* codeset) {
  char folded[24];
  size_t length = 0;
  for (const char* p = codeset; *p != '\0'; ++p) {
    if (*p == '-' || *p == '_' || *p == '.') continue;
    if (length + 1 == sizeof folded) return false;
    folded[length++] = (*p >= 'a' && *p <= 'z') ? static_cast<char>(*p - 'a' + 'A') : *p;
  }
  folded[length] = '\0';
  for (const char* name : {"", "UTF8", "ANSIX341968", "ASCII", "USASCII"}) {
    if (std::strcmp(folded, name) == 0) return true;
  }
  return false;
}

// Looked up on every call, since a client may change its locale at any time;
// the answer is reused while the locale reports the same codeset.
const DefaultCodeset& CurrentDefault() {
  if (t_overridden) return t_override;
  const char* codeset = nl_langinfo(CODESET);
  if (codeset == nullptr) codeset = "";
  DefaultCodeset& cached = t_locale;
  if (codeset != cached.seen || cached.name != codeset) {
    cached.name = codeset;
    cached.seen = codeset;
    cached.utf8 = CountsAsUtf8(codeset);
  }
  return cached;
}

// What a code page number stands for. False for a refused number.
struct Target {
  bool utf8 = false;
  const char* codeset = nullptr;
};

bool Resolve(unsigned codePage, Target& target) {
  if (codePage == kUtf8) {
    target.utf8 = true;
    return true;
  }
  if (codePage == kDefault) {
    const DefaultCodeset& current = CurrentDefault();
    target.utf8 = current.utf8;
    target.codeset = current.name.c_str();
    return true;
  }
  target.codeset = CodesetOf(codePage);
  return target.codeset != nullptr;
}

// ---- iconv -------------------------------------------------------------

const iconv_t kNoIconv = reinterpret_cast<iconv_t>(-1);

enum class Direction { kDecode, kEncode, kEncodeBestFit };

// Opening a descriptor is costly, so each thread keeps the ones it used (a
// failed open too, so a missing encoding isn't retried on every call).
class IconvCache {
 public:
  IconvCache() = default;
  IconvCache(const IconvCache&) = delete;
  IconvCache& operator=(const IconvCache&) = delete;
  ~IconvCache() {
    for (Entry& entry : m_entries) Close(entry.descriptor);
  }

  // A descriptor in its initial state, or kNoIconv.
  iconv_t get(const char* codeset, Direction direction) {
    for (Entry& entry : m_entries) {
      if (entry.direction == direction && entry.codeset == codeset) {
        if (entry.descriptor != kNoIconv) iconv(entry.descriptor, nullptr, nullptr, nullptr, nullptr);
        return entry.descriptor;
      }
    }
    iconv_t descriptor = kNoIconv;
    if (direction == Direction::kDecode) {
      descriptor = iconv_open("UTF-8", codeset);
    } else {
      std::string to = codeset;
      if (direction == Direction::kEncodeBestFit) to += "//TRANSLIT";
      descriptor = iconv_open(to.c_str(), "UTF-8");
    }
    if (m_entries.size() == kCapacity) {
      Close(m_entries.front().descriptor);
      m_entries.erase(m_entries.begin());
    }
    m_entries.push_back({codeset, direction, descriptor});
    return descriptor;
  }

 private:
  static constexpr size_t kCapacity = 16;
  struct Entry {
    std::string codeset;
    Direction direction;
    iconv_t descriptor;
  };
  static void Close(iconv_t descriptor) {
    if (descriptor != kNoIconv) iconv_close(descriptor);
  }
  std::vector<Entry> m_entries;
};

thread_local IconvCache t_iconv;

// Best-fit mapping uses the transliterations of the C.UTF-8 locale, so that
// it doesn't depend on what locale the client runs under (the plain C locale
// has almost none). Without that locale the thread's own applies.
locale_t BestFitLocale() {
  static const locale_t locale = [] {
    locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    if (made == static_cast<locale_t>(0)) {
      made = newlocale(LC_CTYPE_MASK, "C.utf8", static_cast<locale_t>(0));
    }
    return made;
  }();
  return locale;
}

class BestFitScope {
 public:
  explicit BestFitScope(bool on) {
    if (on && BestFitLocale() != static_cast<locale_t>(0)) m_previous = uselocale(BestFitLocale());
  }
  ~BestFitScope() {
    if (m_previous != static_cast<locale_t>(0)) uselocale(m_previous);
  }
  BestFitScope(const BestFitScope&) = delete;
  BestFitScope& operator=(const BestFitScope&) = delete;

 private:
  locale_t m_previous = static_cast<locale_t>(0);
};

// Output of a conversion that grows as it is written.
class Sink {
 public:
  explicit Sink(size_t expected) { m_buffer.resize(expected + 16); }
  char* position() { return m_buffer.data() + m_used; }
  size_t room() const { return m_buffer.size() - m_used; }
  void advanceTo(const char* end) { m_used = static_cast<size_t>(end - m_buffer.data()); }
  void grow() { m_buffer.resize(m_buffer.size() * 2); }
  void put(const char* bytes, size_t count) {
    while (room() < count) grow();
    std::memcpy(position(), bytes, count);
    m_used += count;
  }
  std::string take() {
    m_buffer.resize(m_used);
    return std::move(m_buffer);
  }

 private:
  std::string m_buffer;
  size_t m_used = 0;
};

// Writes out what descriptor still holds (a character kept back for a
// combining mark that might follow, the closing shift sequence of a stateful
// encoding) and puts it back in its initial state.
void FlushIconv(iconv_t descriptor, Sink& sink) {
  for (;;) {
    char* out = sink.position();
    size_t outLeft = sink.room();
    const size_t done = iconv(descriptor, nullptr, nullptr, &out, &outLeft);
    const int error = errno;
    sink.advanceTo(out);
    if (done != static_cast<size_t>(-1) || error != E2BIG) break;
    sink.grow();
  }
}

// Runs src through descriptor. Whatever it can't take is handed to skip,
// which writes the stand-in and says how many input bytes to pass over.
template <typename Skip>
std::string RunIconv(iconv_t descriptor, std::string_view src, Skip skip) {
  Sink sink(src.size());
  char* in = const_cast<char*>(src.data());
  size_t inLeft = src.size();
  while (inLeft > 0) {
    char* out = sink.position();
    size_t outLeft = sink.room();
    const size_t done = iconv(descriptor, &in, &inLeft, &out, &outLeft);
    const int error = errno;
    sink.advanceTo(out);
    if (done != static_cast<size_t>(-1)) break;
    if (error == E2BIG) {
      sink.grow();
      continue;
    }
    // What was taken before the bad bytes comes out ahead of their stand-in.
    FlushIconv(descriptor, sink);
    const size_t passed = skip(reinterpret_cast<const unsigned char*>(in), inLeft, sink);
    in += passed;
    inLeft -= passed;
  }
  FlushIconv(descriptor, sink);
  return sink.take();
}

// Narrow text in codeset -> UTF-8; each byte that doesn't decode becomes
// U+FFFD. False when iconv has no such encoding.
bool IconvDecode(const char* codeset, std::string_view src, std::string& out) {
  iconv_t descriptor = t_iconv.get(codeset, Direction::kDecode);
  if (descriptor == kNoIconv) return false;
  out = RunIconv(descriptor, src, [](const unsigned char*, size_t, Sink& sink) -> size_t {
    sink.put(utf8::kReplacement, utf8::kReplacementSize);
    return 1;
  });
  return true;
}

// UTF-8 -> codeset; a character the codeset can't show becomes '?', after a
// best-fit attempt if asked for.
bool IconvEncode(const char* codeset, bool bestFit, std::string_view src, std::string& out) {
  iconv_t descriptor =
      t_iconv.get(codeset, bestFit ? Direction::kEncodeBestFit : Direction::kEncode);
  if (descriptor == kNoIconv) return false;
  BestFitScope scope(bestFit);
  out = RunIconv(descriptor, src, [](const unsigned char* at, size_t left, Sink& sink) {
    sink.put("?", 1);
    return utf8::Next(at, left).length;
  });
  return true;
}

// UTF-8 -> UTF-8 with each malformed subpart replaced by U+FFFD. `valid` is
// the length of the well-formed start, already known to the caller.
std::string RepairUtf8(std::string_view src, size_t valid) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(src.data());
  Sink sink(src.size() + 8);
  sink.put(src.data(), valid);
  size_t i = valid;
  while (i < src.size()) {
    const utf8::Step step = utf8::Next(bytes + i, src.size() - i);
    if (step.valid) {
      const size_t run = step.length + utf8::ValidPrefix(bytes + i + step.length,
                                                         src.size() - i - step.length);
      sink.put(src.data() + i, run);
      i += run;
    } else {
      sink.put(utf8::kReplacement, utf8::kReplacementSize);
      i += step.length;
    }
  }
  return sink.take();
}

// The measure of a converted text: its bytes and the terminator, if that
// fits the count type.
bool Measure(size_t bytes, int& measure) {
  if (bytes >= static_cast<size_t>(INT_MAX)) return false;
  measure = static_cast<int>(bytes) + 1;
  return true;
}

// DOM text -> the target's bytes. Sets `converted` to the result unless the
// DOM text can be used as it stands (then `same` is set). False when the
// target's encoding isn't there.
bool Encode(const Target& target, unsigned flags, std::string_view src, std::string& converted,
            bool& same) {
  same = false;
  if (target.utf8) {
    const size_t valid = utf8::ValidPrefix(reinterpret_cast<const unsigned char*>(src.data()),
                                           src.size());
    if (valid == src.size()) {
      same = true;
    } else {
      converted = RepairUtf8(src, valid);
    }
    return true;
  }
  return IconvEncode(target.codeset, (flags & kNoBestFitChars) == 0, src, converted);
}

}  // namespace

uint32_t GetLastError() { return t_lastError; }
void SetLastError(uint32_t error) { t_lastError = error; }

bool DefaultIsUtf8() { return CurrentDefault().utf8; }

bool IsKnownCodePage(unsigned codePage) {
  return codePage == kDefault || codePage == kUtf8 || CodesetOf(codePage) != nullptr;
}

int NarrowToDom(unsigned codePage, std::string_view src, std::string& out) {
  Target target;
  if (!Resolve(codePage, target)) return Fail(kErrorInvalidParameter);
  int measure = 0;
  if (target.utf8) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(src.data());
    const size_t valid = utf8::ValidPrefix(bytes, src.size());
    if (valid == src.size()) {
      if (!Measure(src.size(), measure)) return Fail(kErrorNotEnoughMemory);
      out.assign(src);
      return measure;
    }
    std::string repaired = RepairUtf8(src, valid);
    if (!Measure(repaired.size(), measure)) return Fail(kErrorNotEnoughMemory);
    out = std::move(repaired);
    return measure;
  }
  std::string decoded;
  if (!IconvDecode(target.codeset, src, decoded)) return Fail(kErrorInvalidParameter);
  if (!Measure(decoded.size(), measure)) return Fail(kErrorNotEnoughMemory);
  out = std::move(decoded);
  return measure;
}

int DomToNarrow(unsigned codePage, unsigned flags, std::string_view src, char* dst, int dstSize) {
  if (dstSize < 0 || (dstSize > 0 && dst == nullptr)) return Fail(kErrorInvalidParameter);
  Target target;
  if (!Resolve(codePage, target)) return Fail(kErrorInvalidParameter);
  std::string converted;
  bool same = false;
  if (!Encode(target, flags, src, converted, same)) return Fail(kErrorInvalidParameter);
  const std::string_view text = same ? src : std::string_view(converted);
  int measure = 0;
  if (!Measure(text.size(), measure)) return Fail(kErrorNotEnoughMemory);
  if (dstSize == 0) return measure;
  if (dstSize < measure) return Fail(kErrorInsufficientBuffer);
  if (!text.empty()) std::memcpy(dst, text.data(), text.size());
  dst[text.size()] = '\0';
  return measure;
}

int DomToNarrow(unsigned codePage, unsigned flags, std::string_view src, std::string& out) {
  Target target;
  if (!Resolve(codePage, target)) return Fail(kErrorInvalidParameter);
  std::string converted;
  bool same = false;
  if (!Encode(target, flags, src, converted, same)) return Fail(kErrorInvalidParameter);
  int measure = 0;
  if (!Measure(same ? src.size() : converted.size(), measure)) {
    return Fail(kErrorNotEnoughMemory);
  }
  if (same) {
    out.assign(src);
  } else {
    out = std::move(converted);
  }
  return measure;
}

namespace testing {
void SetDefaultCodeset(const char* codeset) {
  t_overridden = codeset != nullptr;
  if (codeset == nullptr) return;
  t_override.name = codeset;
  t_override.seen = nullptr;
  t_override.utf8 = CountsAsUtf8(codeset);
}
}  // namespace testing

}  // namespace tk::cp
