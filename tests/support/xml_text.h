// Small helpers that load a document from XML text and give an instance's
// tree back as XML text, for tests that check the shape a call left.
#pragma once

#include <string>

#include <treekeeper/treekeeper.h>

#include "support/test_support.h"

namespace tk::test {

// Loads xml into a fresh instance; the result of ImportFromStream.
inline int LoadText(ITreeKeeper* tk, const std::string& xml) {
  return tk->ImportFromStream(xml.c_str(), 1, nullptr);
}

// Drops the instance's document and handles, then loads xml in its place.
inline int ReloadText(ITreeKeeper* tk, const std::string& xml) {
  tk->CloseAllElements();
  return LoadText(tk, xml);
}

// "<result N>" for a call that failed, for tables that mix texts and results.
inline std::string ResultText(int result) { return "<result " + std::to_string(result) + ">"; }

// The whole document as exported, without the declaration; "<error N>" when
// the export fails.
inline std::string DocumentText(ITreeKeeper* tk) {
  outputstr out;
  const int result = tk->ExportToStream(out);
  if (result != 0) return "<error " + std::to_string(result) + ">";
  const std::string text = out.text();
  const std::string declaration = kDeclaration;
  return text.compare(0, declaration.size(), declaration) == 0 ? text.substr(declaration.size())
                                                               : text;
}

// The element of handle as exported, without the declaration.
inline std::string SubTreeText(ITreeKeeper* tk, unsigned handle) {
  outputstr out;
  const int result = tk->ExportSubTreeToStream(handle, out);
  if (result != 0) return "<error " + std::to_string(result) + ">";
  const std::string text = out.text();
  const std::string declaration = kDeclaration;
  return text.compare(0, declaration.size(), declaration) == 0 ? text.substr(declaration.size())
                                                               : text;
}

}  // namespace tk::test
