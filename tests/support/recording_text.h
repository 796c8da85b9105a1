// An outputstr subclass of a client's own: it records every virtual clear()
// and append() made on it, so tests see that the library writes through them.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <treekeeper/treekeeper.h>

namespace tk::test {

class RecordingText : public outputstr {
 public:
  using outputstr::outputstr;
  using outputstr::operator=;
  outputstr& append(const char* text) override {
    calls.push_back(std::string("append:") + (text != nullptr ? text : "(null)"));
    written += text != nullptr ? text : "";
    return outputstr::append(text);
  }
  void clear() override {
    calls.push_back("clear");
    written.clear();
    outputstr::clear();
  }
  long count(const std::string& prefix) const {
    return std::count_if(calls.begin(), calls.end(),
                         [&](const std::string& call) { return call.rfind(prefix, 0) == 0; });
  }
  std::vector<std::string> calls;
  std::string written;  // the text as the virtuals saw it
};

}  // namespace tk::test
