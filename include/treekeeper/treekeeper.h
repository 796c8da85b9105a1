// TreeKeeper: a handle-based XML document library.
//
// One instance holds one XML document. A client never touches a DOM node: it
// names elements by small integer handles (the root is always 100) and by
// "/"-separated paths below them, and moves values through plain buffers.
//
// Result codes of ITreeKeeper operations (0 is success):
//   -1   general failure: a DOM call failed, the node or attribute isn't there,
//        a conversion was refused, an import met open handles, ApplyXSLT failed
//   -6   handle out of range or closed
//   -101 file name null or empty; export produced nothing (no file touched);
//        the file to import can't be opened
//   -102 the path names no element (or is null where one is needed)
//   -103 attribute name null (DeleteAttribute)
//   -104 attribute value not in the asked form (GetAttributeValue)
//   -105 buffer null or too small: the size needed has been stored
//   -106 the parse gave no document element
//   -107 the element has no children (value reads); empty text read as number
//   -108 empty attribute value read as a number
//   -109 the element has no child nodes (EnumElement forms)
//   -110 index past the count: the count has been stored
//   -111 a file can't be opened for writing, or the write fell short
//   -112 a root exists already
//   -113 CreateElement could not append the new element
//   >0   platform error number (EnumAttribute with a code page it can't use)
//
// Depth: a tree holds at most 257 levels of elements, the root and 256 below
// it, so that whatever the library writes it also reads back. The imports
// refuse a deeper document (-1), CreateElement refuses an element deeper down
// (-113), and ApplyXSLT fails (-1) on a result that would be deeper.
//
// Diagnostic messages go to the callback installed with TkSetDebugOutput, one
// call per message, each ending in a single "\n".
//
// Text encodings differ by argument: paths, element names and the names given
// to GetAttributeValue/DeleteAttribute are in the default code page (the
// process's LC_CTYPE codeset; the C locale counts as UTF-8); values written
// with SetElementValue, SetElementCDATAValue and setAttributeValue (name and
// value) are UTF-8; GetElementValue delivers text in the code page it is given
// (65001 = UTF-8), attribute and CDATA reads deliver UTF-8.
//
// Threads: any thread may call an instance; each call holds the instance's
// re-entrant lock (ApplyXSLT and GetHandleCount excepted). Delete an instance
// on the thread that created it, with no other thread inside.

#ifndef TREEKEEPER_TREEKEEPER_H
#define TREEKEEPER_TREEKEEPER_H

#include <cstdint>

#if defined(TREEKEEPER_BUILDING)
#define TK_API __attribute__((visibility("default")))
#else
#define TK_API
#endif

// The library's version number. Only ever compared as a number.
#define TK_VERSION 0x010003E9u

// Value types of the value operations. Every value other than 0 and 1 means text.
#define TK_VALUE_NUMBER 0  // unsigned 32-bit number, stored as decimal digits
#define TK_VALUE_BINARY 1  // byte string, stored as hexadecimal digits
#define TK_VALUE_TEXT 2    // text

// Text of open length that the library hands back (exports, attribute text).
// Short texts (up to 127 bytes) live in the inline buffer; longer ones move to
// a heap block that grows in steps of 256 bytes. The library fills an
// outputstr only through the virtual clear() and append(), so a subclass of a
// client's own is filled correctly. Layout: vptr, 128-byte inline buffer, text
// pointer, 64-bit capacity, 64-bit length (160 bytes).
class TK_API outputstr {
 public:
  outputstr();
  outputstr(const char* text);  // null is an empty text
  outputstr(const outputstr& other);
  virtual ~outputstr();

  // Adds a copy of text at the end; null or "" change nothing.
  virtual outputstr& append(const char* text);
  // Back to the state of a new object (empty, inline, capacity 128).
  virtual void clear();

  const char* text() const;  // never null, always NUL-terminated
  uint64_t length() const;   // bytes, terminating NUL not counted
  bool isEmpty() const;

  // clear(), then append() of the right-hand side, both as virtual calls.
  outputstr& operator=(const char* text);
  outputstr& operator=(const outputstr& other);

 private:
  char m_inline[128];
  char* m_text;
  uint64_t m_capacity;
  uint64_t m_length;
};
static_assert(sizeof(outputstr) == 160, "outputstr layout is part of the binary interface");

// Each operator+ returns a new outputstr: the left text followed by the right.
TK_API outputstr operator+(const outputstr& left, const char* right);
TK_API outputstr operator+(const outputstr& left, const outputstr& right);
TK_API outputstr operator+(const outputstr& left, int right);       // "%d"
TK_API outputstr operator+(const outputstr& left, uint32_t right);  // unsigned decimal
TK_API outputstr operator+(const outputstr& left, char right);
TK_API outputstr operator+(const outputstr& left, unsigned char right);

// The record passed to an event callback. The library copies it whole and
// never looks inside; its fields are the client's to declare.
struct ARB_EVENT_LOG {
  unsigned char data[120];
};
static_assert(sizeof(ARB_EVENT_LOG) == 120, "ARB_EVENT_LOG is a 120-byte record");

// One XML document. Obtain with TkCreateTreeKeeper, give back with
// TkDeleteTreeKeeper. The order of these operations is the binary interface.
class TK_API ITreeKeeper {
 public:
  virtual ~ITreeKeeper();

  // Gives up every handle (100 included) and the stored import name. A
  // created document ends here; a loaded one stays exportable.
  virtual void CloseAllElements() = 0;
  // Starts a document whose root element (handle 100) is named rootName.
  // 0; -1 (null or invalid name); -112 (a document is open).
  virtual int CreateEmpty(const char* rootName) = 0;
  // Writes the document to a file, with CR LF line ends. An existing file is
  // left alone when the export produces nothing, and as it was when the
  // write fails: the text goes to a new file beside it that takes its place
  // (keeping its mode, and owner where allowed; a symbolic link stays and
  // the file it names is written). Where no file can be made beside it, it
  // is written in place. 0; -101; -111.
  virtual int ExportToFile(const char* fileName) = 0;
  // Writes the document as UTF-8 XML text with the declaration
  // "<?xml version='1.0' encoding='UTF-8' ?>\n". 0; -1 (no root).
  virtual int ExportToStream(outputstr& out) = 0;
  // Writes the element of handle, with its subtree, to a file, as
  // ExportToFile does. 0; -101; -111.
  virtual int ExportSubTreeToFile(unsigned handle, const char* fileName) = 0;
  // Writes the element of handle as XML text. 0; -1; -102 (handle not live).
  virtual int ExportSubTreeToStream(unsigned handle, outputstr& out) = 0;
  // Loads a document from a file. Parse errors are printed on stderr.
  // The file is opened once, without blocking; only a regular file is read,
  // and one over 2 GiB - 1 byte is refused (-1) without being read.
  // 0; -1; -101 (name invalid or file can't be opened); -106.
  virtual int ImportFromFile(const char* fileName) = 0;
  // Loads a document from NUL-terminated XML text; size below 1 is refused,
  // any other value lets the call pass. name is an optional label.
  // 0; -1 (open handles, parse error); -105; -106.
  //
  // Both imports refuse, as a parse error (-1) whose reason says what was too
  // many, a document that would cost more than its size: a start tag with
  // more than 1000 attributes and namespace declarations together (declared
  // attribute defaults count apart, at most 1000 an element); more than 128
  // namespace declarations in scope at one element; more than 100,000
  // distinct names (elements, attributes, prefixes, namespace names and
  // entities together); entity references and attribute defaults that add
  // more than 10 characters per byte of input plus 1 MiB; and a reference in
  // element text to an external entity, whose text is never read. Loading or
  // refusing takes time proportional to the input's size.
  virtual int ImportFromStream(const char* text, int size, const char* name) = 0;
  // Opens the child element at index (counting every child node). New handle,
  // or 0 (bad handle, no such child, child not an element).
  virtual unsigned OpenElement(unsigned handle, unsigned index) = 0;
  // Opens the element at path below the root; a first component equal to the
  // root's name (ASCII case ignored) is dropped. Null path: 100. 0 if none.
  virtual unsigned OpenElement(const char* path) = 0;
  // Opens the child node at index, of any node type (1 element, 3 text,
  // 4 CDATA, 7 processing instruction, 8 comment). 0; -1.
  virtual int OpenElement(unsigned handle, unsigned index, unsigned* outHandle,
                          unsigned* outNodeType) = 0;
  // Same as CloseElement.
  virtual int CloseElementHandle(unsigned handle) = 0;
  // Counts the child nodes of every type. 0; -1; -6; -107; -109 (none).
  virtual int EnumElement(unsigned handle, unsigned* outCount) = 0;
  // Gives up one handle (not the root). 0; -1.
  virtual int CloseElement(unsigned handle) = 0;
  // Creates the element at path below handle, and the missing ones on the
  // way; the last component is always made new. handle 0xFFFFFFFF creates the
  // root named path. 0 with *outHandle set; -1; -6; -102; -112; -113 (also
  // for an element past the depth limit; the elements above it stay made).
  virtual int CreateElement(unsigned handle, const char* path, unsigned* outHandle) = 0;
  // Copies the element's name (default code page). *ioSize: capacity in, size
  // with terminator out. 0; -1; -6; -105.
  virtual int GetElementName(unsigned handle, char* buffer, unsigned* ioSize) = 0;
  // Removes the element at path (never the handle's own) from the tree.
  // Handles on it keep working on the detached element. 0; -1; -6; -102.
  virtual int DeleteElement(unsigned handle, const char* path) = 0;
  // Removes an attribute. 0; -1 (not there); -6; -102; -103 (name null).
  virtual int DeleteAttribute(unsigned handle, const char* path, const char* name) = 0;
  // Reads the element's text value (its last text child decides). Two-call
  // protocol: a null buffer gives -105 and the size needed in *size. A code
  // page the library can't use measures 0 and reads as an empty text into a
  // buffer of at least one byte. 0; -1; -6; -102; -105; -107.
  virtual int GetElementValue(unsigned handle, const char* path, int type, unsigned* size,
                              void* buffer, unsigned codePage) = 0;
  // As above, in UTF-8 (code page 65001).
  virtual int GetElementValue(unsigned handle, const char* path, int type, unsigned* size,
                              void* buffer) = 0;
  // Writes the element's text value: size bytes of UTF-8 text, a number at
  // data, or size bytes stored as hexadecimal. 0; -1; -6; -102; -107.
  virtual int SetElementValue(unsigned handle, const char* path, int type, unsigned size,
                              const void* data) = 0;
  // Reads the element's CDATA value (UTF-8 text). Codes as GetElementValue.
  virtual int GetElementCDATAValue(unsigned handle, const char* path, int type, unsigned* size,
                                   void* buffer) = 0;
  // Writes the element's CDATA value. Codes as SetElementValue.
  virtual int SetElementCDATAValue(unsigned handle, const char* path, int type, unsigned size,
                                   const void* data) = 0;
  // Reads an attribute's value (text in UTF-8). 0; -1 (no such attribute);
  // -6; -102; -104 (not a number / not hex); -105; -108 (empty number).
  virtual int GetAttributeValue(unsigned handle, const char* path, const char* name, int type,
                                unsigned* size, void* buffer) = 0;
  // Writes an attribute's value, creating it if needed. name and text are
  // UTF-8; text is read up to its NUL whatever size says. 0; -1; -6; -102.
  virtual int setAttributeValue(unsigned handle, const char* path, const char* name, int type,
                                unsigned size, const void* data) = 0;
  // Opens the child at position *ioIndex if it is an element; *ioIndex
  // becomes the child count. Null outHandle asks for the count (-110).
  virtual int EnumElement(unsigned handle, const char* path, unsigned* ioIndex,
                          unsigned* outHandle) = 0;
  // Counts the child elements named name and opens the *ioIndex-th of them;
  // *ioIndex becomes the count. 0; -1; -6; -102; -107; -109; -110.
  virtual int EnumElement(unsigned handle, const char* path, const char* name, unsigned* ioIndex,
                          unsigned* outHandle) = 0;
  // OpenElement by index with the handle stored in *outHandle (0 on failure).
  // 0; -102.
  virtual int OpenElement(unsigned handle, unsigned index, unsigned* outHandle) = 0;
  // Reads the value of the *ioIndex-th attribute (default code page);
  // *ioIndex becomes the attribute count. 0; -1; -6; -102; -105; -110.
  virtual int EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, char* buffer,
                            unsigned* ioSize) = 0;
  // Reads name (default code page) and value (codePage) of the *ioIndex-th
  // attribute. 0; -1; -6; -102; -110; or a positive platform error number.
  virtual int EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, outputstr& name,
                            outputstr& value, unsigned codePage) = 0;
  // As above, with the value in UTF-8.
  virtual int EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, outputstr& name,
                            outputstr& value) = 0;
  // Reads an attribute's value of any length into out (UTF-8).
  // Codes as GetAttributeValue.
  virtual int GetAttributeText(unsigned handle, const char* path, const char* name,
                               outputstr& out) = 0;
  // Length of the element table: 0 with no document, 1 with the root alone;
  // closed slots count.
  virtual uint64_t GetHandleCount() = 0;
};

// The XSLT extension. Every instance from TkCreateTreeKeeper implements it:
//   ITreeKeeperXslt* x = static_cast<ITreeKeeperXslt*>(treeKeeper);
class TK_API ITreeKeeperXslt : public ITreeKeeper {
 public:
  ~ITreeKeeperXslt() override;
  // Runs the document through an XSLT 1.0 stylesheet (NUL-terminated text;
  // size has no effect) and puts the result in its place, all or nothing.
  // Only the root (handle 100) may be open; afterwards every handle has ended
  // and the result's root is 100. The stylesheet cannot read or write files,
  // reach the network or load code (one that declares extension namespaces
  // is refused, and only the XSLT processor's built-in extension functions
  // exist), and runs within the instance's budget (see
  // ITreeKeeperXsltBudget). 0; -1. Takes no lock of its own: keep other
  // threads off the instance for the whole call.
  virtual int ApplyXSLT(const char* stylesheet, int size) = 0;
};

inline ITreeKeeperXslt* TkXslt(ITreeKeeper* treeKeeper) {
  return static_cast<ITreeKeeperXslt*>(treeKeeper);
}

// Bounds on what one ApplyXSLT may spend. Every instance from
// TkCreateTreeKeeper implements this extension as well:
//   ITreeKeeperXsltBudget* x = static_cast<ITreeKeeperXsltBudget*>(treeKeeper);
class TK_API ITreeKeeperXsltBudget : public ITreeKeeperXslt {
 public:
  ~ITreeKeeperXsltBudget() override;
  // Sets what each later ApplyXSLT of the instance may spend: milliseconds of
  // wall-clock time from its start, and bytes of memory that the XSLT engine
  // holds for the transformation, its result included; 0 lifts a bound. A new
  // instance has 3000 ms and 256 MiB. A transformation that runs out is
  // stopped at its next step and fails: -1, the document unchanged, and the
  // message "ApplyXSLT: time budget exceeded" or "ApplyXSLT: memory budget
  // exceeded". (Memory is counted where the engine allocates from the C
  // library's heap, as it does unless the program gave it an allocator of its
  // own.) Always 0.
  virtual int SetXsltBudget(uint32_t milliseconds, uint64_t bytes) = 0;
};

inline ITreeKeeperXsltBudget* TkXsltBudget(ITreeKeeper* treeKeeper) {
  return static_cast<ITreeKeeperXsltBudget*>(treeKeeper);
}

// Why the last ApplyXSLT failed, and what its stylesheet said. Every
// instance from TkCreateTreeKeeper implements this extension as well:
//   ITreeKeeperXsltReport* x = static_cast<ITreeKeeperXsltReport*>(treeKeeper);
class TK_API ITreeKeeperXsltReport : public ITreeKeeperXsltBudget {
 public:
  ~ITreeKeeperXsltReport() override;
  // Gives what the XSLT engine said during the instance's last ApplyXSLT
  // (empty before the first): its compilation and run-time errors, and the
  // text of each xsl:message, in the order said, as UTF-8 lines each ending
  // in "\n", at most 64 KiB. ApplyXSLT itself keeps sending no message of
  // its own for these. Always 0.
  virtual int GetXsltReport(outputstr& out) = 0;
};

inline ITreeKeeperXsltReport* TkXsltReport(ITreeKeeper* treeKeeper) {
  return static_cast<ITreeKeeperXsltReport*>(treeKeeper);
}

// Installer object. Its operations ignore their argument and give constant
// results: 0, 1, 0, 0, 0.
class TK_API ITreeKeeperInstaller {
 public:
  virtual ~ITreeKeeperInstaller();
  virtual int InstallerStep1(const char* argument = nullptr) = 0;
  virtual int InstallerStep2(const char* argument = nullptr) = 0;
  virtual int InstallerStep3(const char* argument = nullptr) = 0;
  virtual int InstallerStep4(const char* argument = nullptr) = 0;
  virtual int InstallerStep5(const char* argument = nullptr) = 0;
};

extern "C" {
// Always TK_VERSION.
TK_API uint32_t TkGetVersion(void);
// 1 if version is not greater than TK_VERSION, else 0.
TK_API int32_t TkIsGoodVersion(uint32_t version);
// Installs the debug callback (null is allowed and drops messages). The text
// is valid only during the call. Process-wide: install before using threads.
TK_API void TkSetDebugOutput(void (*callback)(const char* text));
// Installs the event callback. The library raises no events.
TK_API void TkSetEventOutput(void (*callback)(ARB_EVENT_LOG record, void* context));
// Creates an instance; null on failure (reported to the debug callback).
// The argument is neither read nor written and may be null.
TK_API ITreeKeeper* TkCreateTreeKeeper(uint32_t* reserved);
// Destroys an instance; null is ignored.
TK_API void TkDeleteTreeKeeper(ITreeKeeper* treeKeeper);
TK_API ITreeKeeperInstaller* TkCreateTreeKeeperInstaller(void);
// Destroys an installer object; null is ignored.
TK_API void TkDeleteTreeKeeperInstaller(ITreeKeeperInstaller* installer);
}

#endif  // TREEKEEPER_TREEKEEPER_H
