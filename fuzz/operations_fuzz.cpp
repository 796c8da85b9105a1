// The input as a script of calls on one instance. Handles and paths come from
// the input, so stale handles, closed slots, detached subtrees and replaced
// documents all meet every operation; ASan watches the memory, and the
// two-call buffer protocol is checked wherever a call asks for a size.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_common.h"

namespace {

using tk::fuzz::Fail;

void Quiet(const char*) {}

constexpr const char* kIdentity =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
    "<xsl:template match='@*|node()'><xsl:copy><xsl:apply-templates select='@*|node()'/>"
    "</xsl:copy></xsl:template></xsl:stylesheet>";

constexpr unsigned kCodePages[] = {0, 65001, 1252, 932, 936, 28591, 12345, 1200};
constexpr const char* kPaths[] = {"",    "a",     "b",   "a/b", "a/b/c", "/",  "a//b",
                                  "c/",  "A",     "r/a", "x:y", "1",     "a/", "b/a/b"};
constexpr const char* kNames[] = {"a", "b", "c", "id", "x:y", "xmlns", "xmlns:p", "1", ""};

class Script {
 public:
  Script(const uint8_t* data, size_t size)
      : m_in(data, size), m_tk(TkCreateTreeKeeper(nullptr)) {
    if (m_tk == nullptr) Fail("TkCreateTreeKeeper gave null");
  }
  ~Script() { TkDeleteTreeKeeper(m_tk); }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  void Run() {
    int steps = 0;
    while (m_in.remaining_bytes() > 0 && steps++ < 200) Step();
  }

 private:
  unsigned Handle() {
    switch (m_in.ConsumeIntegralInRange<int>(0, 5)) {
      case 0:
        return 100;
      case 1:
        return m_in.ConsumeIntegral<uint32_t>();
      case 2:
        return 100 + m_in.ConsumeIntegralInRange<unsigned>(0, 12);
      default:
        if (m_handles.empty()) return 100;
        return m_handles[m_in.ConsumeIntegralInRange<size_t>(0, m_handles.size() - 1)];
    }
  }
  void Keep(unsigned handle) {
    if (handle != 0 && m_handles.size() < 64) m_handles.push_back(handle);
  }

  // A path: null, one of a few shapes, or bytes of the input.
  std::unique_ptr<std::string> Path() {
    const int pick = m_in.ConsumeIntegralInRange<int>(0, 9);
    if (pick == 0) return nullptr;
    if (pick == 1) return std::make_unique<std::string>(m_in.ConsumeRandomLengthString(80));
    return std::make_unique<std::string>(kPaths[m_in.ConsumeIntegralInRange<size_t>(
        0, std::size(kPaths) - 1)]);
  }
  std::unique_ptr<std::string> Name() {
    const int pick = m_in.ConsumeIntegralInRange<int>(0, 7);
    if (pick == 0) return nullptr;
    if (pick == 1) return std::make_unique<std::string>(m_in.ConsumeRandomLengthString(16));
    return std::make_unique<std::string>(kNames[m_in.ConsumeIntegralInRange<size_t>(
        0, std::size(kNames) - 1)]);
  }
  static const char* C(const std::unique_ptr<std::string>& s) {
    return s ? s->c_str() : nullptr;
  }
  int Type() {
    constexpr int kTypes[] = {TK_VALUE_NUMBER, TK_VALUE_BINARY, TK_VALUE_TEXT, 7, -1};
    return kTypes[m_in.ConsumeIntegralInRange<size_t>(0, std::size(kTypes) - 1)];
  }

  // The two-call protocol: a null buffer gives -105 and the size; a buffer of
  // exactly that size (on the heap, so ASan sees any overrun) then succeeds.
  // Element and CDATA values need not settle in two calls: with several text
  // children each is judged by the size the one before it stored.
  template <typename Call>
  void SizedRead(Call call, bool settles) {
    unsigned size = m_in.ConsumeIntegralInRange<unsigned>(0, 8);
    const bool asks = m_in.ConsumeBool();
    if (!asks) {
      // Exactly the room claimed, zero bytes included.
      std::unique_ptr<char[]> small(new char[size]);
      call(&size, small.get());
      return;
    }
    size = 0;
    if (call(&size, nullptr) != -105) return;
    if (size > (64u << 20)) Fail("size asked for is out of proportion");
    const unsigned needed = size;
    std::unique_ptr<char[]> buffer(new char[needed]);
    const int second = call(&size, buffer.get());
    if (needed > 0 && second == -105 && settles) Fail("the size stored was not enough");
  }

  void Step() {
    ITreeKeeper* tk = m_tk;
    switch (m_in.ConsumeIntegralInRange<int>(0, 31)) {
      case 0: {
        auto name = Name();
        tk->CreateEmpty(C(name));
        break;
      }
      case 1: {
        unsigned out = 0;
        auto path = Path();
        const unsigned handle = m_in.ConsumeBool() ? Handle() : 0xFFFFFFFFu;
        if (tk->CreateElement(handle, C(path), m_in.ConsumeBool() ? &out : nullptr) == 0) Keep(out);
        break;
      }
      case 2: {
        auto path = Path();
        Keep(tk->OpenElement(C(path)));
        break;
      }
      case 3:
        Keep(tk->OpenElement(Handle(), m_in.ConsumeIntegralInRange<unsigned>(0, 6)));
        break;
      case 4: {
        unsigned out = 0, type = 0;
        const bool withOut = m_in.ConsumeBool();
        if (tk->OpenElement(Handle(), m_in.ConsumeIntegralInRange<unsigned>(0, 6),
                            withOut ? &out : nullptr, m_in.ConsumeBool() ? &type : nullptr) == 0) {
          Keep(out);
        }
        break;
      }
      case 5:
        if (m_in.ConsumeBool()) tk->CloseElement(Handle());
        else tk->CloseElementHandle(Handle());
        break;
      case 6:
        tk->CloseAllElements();
        m_handles.clear();
        break;
      case 7:
      case 8: {
        auto path = Path();
        const int type = Type();
        const std::string bytes = m_in.ConsumeRandomLengthString(64);
        const unsigned size = m_in.ConsumeBool() ? static_cast<unsigned>(bytes.size())
                                                 : m_in.ConsumeIntegralInRange<unsigned>(0, 64);
        // Number writes read four bytes: give them at least that much.
        std::string padded = bytes;
        padded.resize(std::max<size_t>({padded.size(), size, 4}) + 1, '\0');
        const void* data = m_in.ConsumeIntegralInRange<int>(0, 15) == 0 ? nullptr : padded.data();
        const unsigned handle = Handle();
        if (m_in.ConsumeBool()) tk->SetElementValue(handle, C(path), type, size, data);
        else tk->SetElementCDATAValue(handle, C(path), type, size, data);
        break;
      }
      case 9:
      case 10: {
        auto path = Path();
        const int type = Type();
        const unsigned handle = Handle();
        const unsigned codePage = kCodePages[m_in.ConsumeIntegralInRange<size_t>(0, 7)];
        const bool cdata = m_in.ConsumeBool();
        SizedRead(
            [&](unsigned* size, void* buffer) {
              return cdata ? tk->GetElementCDATAValue(handle, C(path), type, size, buffer)
                           : tk->GetElementValue(handle, C(path), type, size, buffer, codePage);
            },
            false);
        break;
      }
      case 11:
      case 12: {
        auto path = Path();
        auto name = Name();
        const int type = Type();
        std::string value = m_in.ConsumeRandomLengthString(48);
        value.resize(std::max<size_t>(value.size(), 4) + 1, '\0');
        const unsigned size = m_in.ConsumeIntegralInRange<unsigned>(0, 48);
        const bool nullData = m_in.ConsumeIntegralInRange<int>(0, 15) == 0;
        // Binary writes read size bytes.
        if (size >= value.size()) value.resize(size + 1, '\0');
        tk->setAttributeValue(Handle(), C(path), C(name), type, size,
                              nullData ? nullptr : value.data());
        break;
      }
      case 13: {
        auto path = Path();
        auto name = Name();
        const int type = Type();
        const unsigned handle = Handle();
        SizedRead(
            [&](unsigned* size, void* buffer) {
              return tk->GetAttributeValue(handle, C(path), C(name), type, size, buffer);
            },
            true);
        break;
      }
      case 14: {
        auto path = Path();
        auto name = Name();
        outputstr out;
        tk->GetAttributeText(Handle(), C(path), C(name), out);
        break;
      }
      case 15: {
        auto path = Path();
        auto name = Name();
        tk->DeleteAttribute(Handle(), C(path), C(name));
        break;
      }
      case 16: {
        auto path = Path();
        tk->DeleteElement(Handle(), C(path));
        break;
      }
      case 17: {
        unsigned count = 0;
        tk->EnumElement(Handle(), m_in.ConsumeBool() ? &count : nullptr);
        break;
      }
      case 18: {
        auto path = Path();
        unsigned index = m_in.ConsumeIntegralInRange<unsigned>(0, 6), out = 0;
        const bool withOut = m_in.ConsumeBool();
        if (tk->EnumElement(Handle(), C(path), &index, withOut ? &out : nullptr) == 0) Keep(out);
        break;
      }
      case 19: {
        auto path = Path();
        auto name = Name();
        unsigned index = m_in.ConsumeIntegralInRange<unsigned>(0, 6), out = 0;
        const bool withOut = m_in.ConsumeBool();
        if (tk->EnumElement(Handle(), C(path), C(name), &index, withOut ? &out : nullptr) == 0) {
          Keep(out);
        }
        break;
      }
      case 20: {
        auto path = Path();
        const unsigned handle = Handle();
        const unsigned start = m_in.ConsumeIntegralInRange<unsigned>(0, 4);
        SizedRead(
            [&](unsigned* size, void* buffer) {
              unsigned index = start;
              return tk->EnumAttribute(handle, C(path), &index, static_cast<char*>(buffer), size);
            },
            false);
        break;
      }
      case 21: {
        auto path = Path();
        unsigned index = m_in.ConsumeIntegralInRange<unsigned>(0, 4);
        outputstr name, value;
        if (m_in.ConsumeBool()) {
          tk->EnumAttribute(Handle(), C(path), &index, name, value);
        } else {
          const unsigned codePage = kCodePages[m_in.ConsumeIntegralInRange<size_t>(0, 7)];
          tk->EnumAttribute(Handle(), C(path), &index, name, value, codePage);
        }
        break;
      }
      case 22: {
        const unsigned handle = Handle();
        SizedRead(
            [&](unsigned* size, void* buffer) {
              return tk->GetElementName(handle, static_cast<char*>(buffer), size);
            },
            false);
        break;
      }
      case 23: {
        outputstr out;
        tk->ExportToStream(out);
        break;
      }
      case 24: {
        outputstr out;
        tk->ExportSubTreeToStream(Handle(), out);
        break;
      }
      case 25: {
        // The document through text and back into the same instance.
        outputstr out;
        if (tk->ExportToStream(out) != 0) break;
        const std::string text(out.text(), out.length());
        tk->CloseAllElements();
        m_handles.clear();
        if (tk->ImportFromStream(text.c_str(), static_cast<int>(text.size()) + 1, "again") != 0) {
          Fail("exported document refused on import", text);
        }
        break;
      }
      case 26: {
        const std::string text = m_in.ConsumeRandomLengthString(128);
        tk->ImportFromStream(text.c_str(), m_in.ConsumeIntegralInRange<int>(-1, 200),
                             m_in.ConsumeBool() ? "name" : nullptr);
        break;
      }
      case 27:
        TkXslt(tk)->ApplyXSLT(kIdentity, 0);
        m_handles.clear();
        break;
      case 28:
        tk->GetHandleCount();
        break;
      case 29: {
        // A fresh instance: the old one goes with whatever it still holds.
        TkDeleteTreeKeeper(m_tk);
        m_tk = TkCreateTreeKeeper(nullptr);
        if (m_tk == nullptr) Fail("TkCreateTreeKeeper gave null");
        m_handles.clear();
        break;
      }
      case 30: {
        unsigned count = 0;
        auto path = Path();
        unsigned index = m_in.ConsumeIntegral<uint32_t>();
        tk->EnumElement(Handle(), C(path), &index, nullptr);
        tk->EnumElement(Handle(), &count);
        break;
      }
      default: {
        static const char* const kDocuments[] = {
            "<r><a><b>1</b><b>2</b></a><c x='1' y='2'>t<![CDATA[c]]><!--n--><?p q?></c></r>",
            "<r xmlns:p='urn:p' p:a='v'><p:x/>text<a>\xC3\xA9\xF0\x9F\x98\x80</a></r>",
            "<a><a><a><a/></a></a></a>"};
        const char* text = kDocuments[m_in.ConsumeIntegralInRange<size_t>(0, 2)];
        tk->ImportFromStream(text, 1, nullptr);
        break;
      }
    }
  }

  FuzzedDataProvider m_in;
  ITreeKeeper* m_tk;
  std::vector<unsigned> m_handles;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TkSetDebugOutput(Quiet);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Script(data, size).Run();
  return 0;
}
