#include "document_io.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <regex>
#include <utility>

#include "errors.h"
#include "file_output.h"
#include "input_files.h"
#include "stderr_capture.h"
#include "utf8_text.h"

namespace tkcli {
namespace {

// Documents still held when the tool ends. The process exits right after a
// command, and freeing a large tree node by node would cost a good part of
// the time its import took; the system takes the memory back at once. A
// plain array keeps them reachable, so leak checkers don't count them.
ITreeKeeper* g_heldAtExit[4];
size_t g_heldCount = 0;

std::string FirstLine(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return {};
  size_t end = text.find_first_of("\r\n", begin);
  std::string line = text.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
  while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
  return line;
}

// The library reports a failed parse on standard error as the engine's
// reason followed by "Error on line L, position P in "NAME"." One line is
// made of it that names the document, line and column.
std::string ParseFailureMessage(const std::string& name, const std::string& report) {
  static const std::regex kWhere("Error on line (-?[0-9]+), position (-?[0-9]+) in \"");
  std::smatch where;
  std::string reason = report;
  std::string location = name;
  if (std::regex_search(report, where, kWhere)) {
    reason = report.substr(0, static_cast<size_t>(where.position(0)));
    location += ":" + where.str(1) + ":" + where.str(2);
  }
  reason = FirstLine(reason);
  if (reason.empty()) reason = "the parser gave no reason";
  return location + ": not well-formed XML: " + reason;
}

}  // namespace

Document::Document() : m_tk(TkCreateTreeKeeper(nullptr)) {
  if (m_tk == nullptr) throw CliError(kFailed, "the library could not start a document");
}

Document::~Document() {
  if (g_heldCount < std::size(g_heldAtExit)) {
    g_heldAtExit[g_heldCount++] = m_tk;
  } else {
    TkDeleteTreeKeeper(m_tk);
  }
}

void Document::Load(const std::string& file) {
  const Descriptor input = OpenInput(file);
  m_name = InputName(file);
  ImportPath(DescriptorPath(input.fd()));
}

void Document::LoadKeepingBytes(const std::string& file) {
  m_bytes = ReadInput(file);
  LoadBytes(m_bytes, InputName(file));
}

SourceTree* Document::Source() {
  if (m_source == nullptr && !m_bytes.empty()) {
    m_encoding = std::make_unique<FileEncoding>(m_bytes);
    std::string text = m_encoding->Decode(m_bytes, m_name);
    try {
      m_source = std::make_unique<SourceTree>(std::move(text));
    } catch (const CliError& error) {
      throw CliError(error.status(), m_name + ": " + error.what() +
                                         " (--rewrite writes the whole document)");
    }
  }
  return m_source.get();
}

std::string Document::SourceBytes(const ElementChain& chain) {
  SourceTree* source = Source();
  if (source == nullptr) return {};
  return m_encoding->Encode(chain.empty() ? source->Write(SourceTree::Form::kAsHeld)
                                          : source->WriteElement(chain));
}

std::string Document::EditedBytes() {
  const std::string bytes = SourceBytes({});
  // The check below loads a second document: the memory of the first one's
  // text goes to it.
  m_source.reset();
  std::string().swap(m_bytes);
  const auto failed = [&](const std::string& why) {
    return CliError(kFailed, m_name + ": " + why +
                                 "; nothing was written (--rewrite writes the whole document)");
  };
  Document check;
  try {
    check.LoadBytes(bytes, m_name);
  } catch (const CliError& error) {
    throw failed("the edited file would not read back (" + std::string(error.what()) + ")");
  }
  const auto content = [](const Document& document) {
    return WithoutLayout(document.Render(kRootHandle, false));
  };
  if (content(check) != content(*this)) {
    throw failed("the edit can't be made in the file's own text without changing more");
  }
  return bytes;
}

void Document::LoadBytes(std::string_view bytes, const std::string& name) {
  m_name = name;
  // The bytes go through the same file import as a named file, so that a
  // parse error is reported with its line and column.
  const Descriptor copy = MemoryFile(bytes, name);
  ImportPath(DescriptorPath(copy.fd()));
}

void Document::Reload(std::string_view xml) {
  Document fresh;
  fresh.LoadBytes(xml, m_name);
  std::swap(m_tk, fresh.m_tk);
}

void Document::ImportPath(const std::string& path) {
  StderrCapture capture;
  const int result = m_tk->ImportFromFile(path.c_str());
  const std::string report = capture.Finish();
  if (!report.empty() && DebugDescriptor() >= 0) WriteAll(DebugDescriptor(), report);
  switch (result) {
    case 0:
      return;
    case -1:
      throw CliError(kBadInput, ParseFailureMessage(m_name, report));
    case -101:
      throw CliError(kBadInput, m_name + ": cannot read");
    case -106:
      throw CliError(kBadInput, m_name + ": not well-formed XML: no root element");
    default:
      throw CliError(kFailed, m_name + ": import failed (" + std::to_string(result) + ")");
  }
}

void Document::CreateEmpty(const std::string& root) {
  m_name = root;
  const int result = m_tk->CreateEmpty(root.c_str());
  if (result == -1) throw CliError(kUsage, "'" + root + "' is not a valid element name");
  if (result != 0) {
    throw CliError(kFailed, "cannot start a document (" + std::to_string(result) + ")");
  }
}

std::string Document::Render(unsigned handle, bool crlf) const {
  int result;
  std::string bytes;
  if (!crlf) {
    outputstr text;
    result = handle == kRootHandle ? m_tk->ExportToStream(text)
                                   : m_tk->ExportSubTreeToStream(handle, text);
    bytes.assign(text.text(), text.length());
  } else {
    // The file form is whatever the library's file export writes; it is
    // written to an in-memory file and read back.
    const Descriptor file(memfd_create("treekeeper-export", MFD_CLOEXEC));
    if (file.fd() < 0) {
      throw CliError(kFailed, m_name + ": cannot export: " + std::strerror(errno));
    }
    const std::string path = DescriptorPath(file.fd());
    result = handle == kRootHandle ? m_tk->ExportToFile(path.c_str())
                                   : m_tk->ExportSubTreeToFile(handle, path.c_str());
    bytes = ReadDescriptor(file.fd());
  }
  if (result != 0) {
    throw CliError(kFailed, m_name + ": the library could not write the document as XML (" +
                                std::to_string(result) + ")");
  }
  JoinSurrogatePairs(bytes);
  return bytes;
}

}  // namespace tkcli
