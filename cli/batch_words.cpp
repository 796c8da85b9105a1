#include "batch_words.h"

#include "errors.h"

namespace tkcli {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

[[noreturn]] void Unclosed(char quote) {
  throw CliError(kUsage, std::string("the ") + quote + " quote is not closed");
}

}  // namespace

std::vector<std::string> SplitWords(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (IsBlank(c)) {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
      continue;
    }
    if (!inWord && c == '#') break;
    inWord = true;
    if (c == '\\') {
      if (i + 1 < line.size()) ++i;
      word += line[i];
    } else if (c == '\'') {
      const size_t close = line.find('\'', i + 1);
      if (close == std::string::npos) Unclosed(c);
      word.append(line, i + 1, close - i - 1);
      i = close;
    } else if (c == '"') {
      size_t j = i + 1;
      for (; j < line.size() && line[j] != '"'; ++j) {
        if (line[j] == '\\' && j + 1 < line.size() &&
            std::string_view("\"\\$`").find(line[j + 1]) != std::string_view::npos) {
          ++j;
        }
        word += line[j];
      }
      if (j >= line.size()) Unclosed(c);
      i = j;
    } else {
      word += c;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

}  // namespace tkcli
