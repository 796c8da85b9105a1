// Diverts file descriptor 2 for the length of one library call, so that what
// the library prints there (a parse report, say) can be read back and turned
// into the tool's own one-line message.
#pragma once

#include <string>

namespace tkcli {

class StderrCapture {
 public:
  StderrCapture();
  ~StderrCapture();
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  // Puts standard error back and returns what was written meanwhile. Later
  // calls return an empty text.
  std::string Finish();

 private:
  int m_saved = -1;
  int m_capture = -1;
};

// Where debug messages go with --verbose: a copy of the real standard error
// that stays put while a capture is active. -1 (the default) means quiet.
void SetDebugDescriptor(int fd);
int DebugDescriptor();

// Reads a whole descriptor from its start.
std::string ReadDescriptor(int fd);

}  // namespace tkcli
