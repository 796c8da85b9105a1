// One document held by the library, as the commands see it: loaded from a
// file or standard input, or started empty, and rendered back as XML bytes.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <treekeeper/treekeeper.h>

#include "file_encoding.h"
#include "input_files.h"
#include "source_tree.h"

namespace tkcli {

constexpr unsigned kRootHandle = 100;

class Document {
 public:
  Document();
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  ITreeKeeper* operator->() const { return m_tk; }
  ITreeKeeper* tk() const { return m_tk; }
  // How messages name the document: the file name, or "<stdin>".
  const std::string& name() const { return m_name; }

  // Loads FILE, or standard input for "-". A file that can't be read, is
  // too large or is not well-formed XML ends the command with status 3.
  void Load(const std::string& file);
  // Loads FILE and keeps its bytes, so that edits can be written into them
  // (see Source and EditedBytes).
  void LoadKeepingBytes(const std::string& file);
  // Loads XML bytes that came from somewhere else; name is for messages.
  void LoadBytes(std::string_view bytes, const std::string& name);
  // Puts a document loaded from xml in the place of this one, under the
  // same name. Every handle of the old one ends.
  void Reload(std::string_view xml);
  // Starts a document under root; a name that is no element name is a
  // usage error.
  void CreateEmpty(const std::string& root);

  // The element of handle (the whole document for the root handle) as XML:
  // the library's text form, or with crlf its file form, in well-formed
  // UTF-8 (a character above U+FFFF as one 4-byte sequence).
  std::string Render(unsigned handle, bool crlf) const;

  // The document as its file spells it, for edits that each command makes
  // here as well as in the library; null if no bytes were kept. Made on the
  // first call: status 5 if the bytes can't be held as they are (an
  // encoding the tool doesn't know).
  SourceTree* Source();
  // The element of chain as the file spells it (the whole file for the
  // root), with the edits made so far, in the file's encoding.
  std::string SourceBytes(const ElementChain& chain);
  // The kept bytes with the edits made in Source(), once the library has
  // read them back as the same document as it holds after its own edits
  // (white space alone between tags aside). Status 5 if it doesn't. The
  // kept bytes and Source() end here.
  std::string EditedBytes();

 private:
  void ImportPath(const std::string& path);

  ITreeKeeper* m_tk;
  std::string m_name;
  std::string m_bytes;  // as the file held them, if kept
  std::unique_ptr<FileEncoding> m_encoding;
  std::unique_ptr<SourceTree> m_source;
};

}  // namespace tkcli
