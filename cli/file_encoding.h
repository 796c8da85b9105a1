// The character encoding a document file is written in, so that an edit can
// be written back in it: the file's bytes become UTF-8 text to work on, and
// the text becomes bytes of the same encoding again.
#pragma once

#include <string>
#include <string_view>

namespace tkcli {

class FileEncoding {
 public:
  // The encoding of a file's bytes: a byte order mark, the byte pattern of
  // UTF-16 without one, the declaration's encoding="...", else UTF-8.
  explicit FileEncoding(std::string_view bytes);

  const std::string& name() const { return m_name; }

  // The file's bytes as UTF-8 text, without a byte order mark. Status 5 if
  // the encoding is unknown here, or if the text would not give back the
  // same bytes (nothing could then be written without changing others).
  std::string Decode(std::string_view bytes, const std::string& fileName) const;

  // UTF-8 text as the file's bytes, its byte order mark first. A character
  // the encoding can't hold is written as a character reference (&#xE9;).
  std::string Encode(std::string_view text) const;

 private:
  std::string m_name;  // as iconv names it; empty for UTF-8
  std::string m_mark;  // the byte order mark the file begins with
};

}  // namespace tkcli
