#include <cstdio>
#include <cstring>
#include <functional>
#include <new>

#include <treekeeper/treekeeper.h>

namespace {

// True if text points into the block [begin, begin + size). A client may pass
// a pointer into the object's own text, as std::string allows.
bool PointsInto(const char* text, const char* begin, uint64_t size) {
  const std::less<const char*> before;
  return !before(text, begin) && before(text, begin + size);
}

}  // namespace

outputstr::outputstr() : m_text(m_inline), m_capacity(sizeof m_inline), m_length(0) {
  m_inline[0] = '\0';
}

outputstr::outputstr(const char* text) : outputstr() {
  if (text != nullptr) append(text);
}

outputstr::outputstr(const outputstr& other) : outputstr() { append(other.m_text); }

outputstr::~outputstr() {
  if (m_text != m_inline) delete[] m_text;
}

outputstr& outputstr::append(const char* text) {
  if (text == nullptr || text[0] == '\0') return *this;
  const uint64_t n = std::strlen(text);
  const uint64_t need = m_length + n + 1;
  if (need > m_capacity) {
    // The multiple of 256 strictly above the need. A heap that refuses the
    // block raises std::bad_alloc and leaves the text as it was.
    const uint64_t capacity = (need / 256 + 1) * 256;
    // text is copied before the old block goes: it may lie inside it.
    char* block = new char[capacity];
    std::memcpy(block, m_text, m_length);
    std::memcpy(block + m_length, text, n + 1);
    if (m_text != m_inline) delete[] m_text;
    m_text = block;
    m_capacity = capacity;
  } else {
    // A tail of the object's own text ends on the NUL that is overwritten first.
    std::memmove(m_text + m_length, text, n + 1);
  }
  m_length += n;
  return *this;
}

void outputstr::clear() {
  if (m_text != m_inline) delete[] m_text;
  m_capacity = sizeof m_inline;
  m_length = 0;
  m_inline[0] = '\0';
  m_text = m_inline;
}

const char* outputstr::text() const { return m_text; }
uint64_t outputstr::length() const { return m_length; }
bool outputstr::isEmpty() const { return m_text[0] == '\0'; }

outputstr& outputstr::operator=(const char* text) {
  if (text != nullptr && PointsInto(text, m_text, m_capacity)) {
    // clear() would free or overwrite the text before append() reads it.
    const outputstr copy(text);
    clear();
    append(copy.m_text);
    return *this;
  }
  clear();
  append(text);
  return *this;
}

outputstr& outputstr::operator=(const outputstr& other) {
  if (this == &other) return *this;
  clear();
  append(other.m_text);
  return *this;
}

outputstr operator+(const outputstr& left, const char* right) {
  outputstr result;
  result.append(left.text());
  result.append(right);
  return result;
}

outputstr operator+(const outputstr& left, const outputstr& right) {
  return left + right.text();
}

outputstr operator+(const outputstr& left, int right) {
  char scratch[64];
  std::snprintf(scratch, sizeof scratch, "%d", right);
  return left + scratch;
}

outputstr operator+(const outputstr& left, uint32_t right) {
  char scratch[64];
  std::snprintf(scratch, sizeof scratch, "%u", right);
  return left + scratch;
}

outputstr operator+(const outputstr& left, char right) {
  const char text[2] = {right, '\0'};
  return left + text;
}

outputstr operator+(const outputstr& left, unsigned char right) {
  return left + static_cast<char>(right);
}
