#include "file_encoding.h"

#include <iconv.h>

#include <cerrno>
#include <cstdio>

#include "errors.h"

namespace tkcli {
namespace {

bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The encoding named by an XML declaration at the start of bytes, or "".
std::string DeclaredEncoding(std::string_view bytes) {
  if (bytes.substr(0, 5) != "<?xml") return {};
  const std::string_view declaration = bytes.substr(0, bytes.find("?>"));
  size_t at = declaration.find("encoding");
  if (at == std::string_view::npos) return {};
  at = declaration.find_first_of("\"'", at);
  if (at == std::string_view::npos) return {};
  const size_t end = declaration.find(declaration[at], at + 1);
  if (end == std::string_view::npos) return {};
  return std::string(declaration.substr(at + 1, end - at - 1));
}

class Converter {
 public:
  Converter(const std::string& to, const std::string& from)
      : m_cd(iconv_open(to.c_str(), from.c_str())) {}
  ~Converter() {
    if (ok()) iconv_close(m_cd);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  bool ok() const { return m_cd != reinterpret_cast<iconv_t>(-1); }

  // Converts as much of in as converts; in is left at the first byte that
  // doesn't. False on anything but the end of the input.
  bool Convert(std::string_view& in, std::string& out) {
    char buffer[8192];
    char* from = const_cast<char*>(in.data());
    size_t left = in.size();
    bool done = false;
    while (!done) {
      char* to = buffer;
      size_t room = sizeof buffer;
      const size_t result = iconv(m_cd, left == 0 ? nullptr : &from, &left, &to, &room);
      out.append(buffer, static_cast<size_t>(to - buffer));
      if (result != static_cast<size_t>(-1)) {
        done = left == 0;
        if (done) {
          // Flush whatever state the conversion holds.
          to = buffer;
          room = sizeof buffer;
          iconv(m_cd, nullptr, nullptr, &to, &room);
          out.append(buffer, static_cast<size_t>(to - buffer));
        }
      } else if (errno != E2BIG) {
        in = std::string_view(from, left);
        return false;
      }
    }
    in = {};
    return true;
  }

 private:
  iconv_t m_cd;
};

// The length of the UTF-8 sequence a lead byte begins, and its character.
size_t Sequence(std::string_view text, unsigned long& character) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length > text.size()) length = text.size();
  character = length == 1 ? lead : lead & (0xFF >> (length + 1));
  for (size_t i = 1; i < length; ++i) character = (character << 6) | (byte(i) & 0x3F);
  return length;
}

[[noreturn]] void CannotKeep(const std::string& fileName, const std::string& why) {
  throw CliError(kFailed, fileName + ": " + why +
                              ", so an edit can't keep its other bytes (--rewrite writes the "
                              "whole document)");
}

}  // namespace

FileEncoding::FileEncoding(std::string_view bytes) {
  const auto starts = [&](std::string_view prefix) {
    return bytes.substr(0, prefix.size()) == prefix;
  };
  if (starts("\xEF\xBB\xBF")) {
    m_mark = "\xEF\xBB\xBF";
  } else if (starts("\xFF\xFE")) {
    m_mark = "\xFF\xFE";
    m_name = "UTF-16LE";
  } else if (starts("\xFE\xFF")) {
    m_mark = "\xFE\xFF";
    m_name = "UTF-16BE";
  } else if (starts(std::string_view("<\0?\0", 4))) {
    m_name = "UTF-16LE";
  } else if (starts(std::string_view("\0<\0?", 4))) {
    m_name = "UTF-16BE";
  } else {
    m_name = DeclaredEncoding(bytes);
    if (EqualIgnoringAsciiCase(m_name, "UTF-8") || EqualIgnoringAsciiCase(m_name, "UTF8")) {
      m_name.clear();
    }
  }
}

std::string FileEncoding::Decode(std::string_view bytes, const std::string& fileName) const {
  bytes.remove_prefix(m_mark.size());
  if (m_name.empty()) return std::string(bytes);
  Converter decoder("UTF-8", m_name);
  if (!decoder.ok()) CannotKeep(fileName, "the encoding '" + m_name + "' is unknown to the tool");
  std::string text;
  std::string_view in = bytes;
  if (!decoder.Convert(in, text)) {
    CannotKeep(fileName, "the bytes are not all valid " + m_name);
  }
  if (Encode(text).compare(m_mark.size(), std::string::npos, bytes) != 0) {
    CannotKeep(fileName, "the " + m_name + " text doesn't convert back to the same bytes");
  }
  return text;
}

std::string FileEncoding::Encode(std::string_view text) const {
  std::string bytes = m_mark;
  if (m_name.empty()) return bytes.append(text);
  Converter encoder(m_name, "UTF-8");
  if (!encoder.ok()) {
    throw CliError(kFailed, "the encoding '" + m_name + "' is unknown to the tool");
  }
  while (!encoder.Convert(text, bytes)) {
    // A character the encoding can't hold is written as a reference,
    // itself in the encoding.
    unsigned long character = 0;
    const size_t length = Sequence(text, character);
    char reference[16];
    std::snprintf(reference, sizeof reference, "&#x%lX;", character);
    std::string_view spelled = reference;
    if (!encoder.Convert(spelled, bytes)) {
      throw CliError(kFailed, "a character reference can't be written in " + m_name);
    }
    text.remove_prefix(length);
  }
  return bytes;
}

}  // namespace tkcli
