#include "stderr_capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace tkcli {
namespace {
int g_debugFd = -1;
}  // namespace

void SetDebugDescriptor(int fd) { g_debugFd = fd; }
int DebugDescriptor() { return g_debugFd; }

std::string ReadDescriptor(int fd) {
  std::string text;
  char chunk[65536];
  off_t offset = 0;
  for (;;) {
    const ssize_t got = pread(fd, chunk, sizeof chunk, offset);
    if (got <= 0) break;
    text.append(chunk, static_cast<size_t>(got));
    offset += got;
  }
  return text;
}

StderrCapture::StderrCapture() {
  std::fflush(stderr);
  // An anonymous in-memory file: no directory needs to be writable.
  m_capture = memfd_create("treekeeper-stderr", MFD_CLOEXEC);
  if (m_capture < 0) return;
  m_saved = fcntl(2, F_DUPFD_CLOEXEC, 3);
  if (m_saved < 0 || dup2(m_capture, 2) < 0) {
    if (m_saved >= 0) close(m_saved);
    close(m_capture);
    m_saved = m_capture = -1;
  }
}

StderrCapture::~StderrCapture() { Finish(); }

std::string StderrCapture::Finish() {
  if (m_capture < 0) return {};
  std::fflush(stderr);
  dup2(m_saved, 2);
  close(m_saved);
  std::string text = ReadDescriptor(m_capture);
  close(m_capture);
  m_saved = m_capture = -1;
  return text;
}

}  // namespace tkcli
