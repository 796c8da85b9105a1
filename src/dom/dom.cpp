// Placeholder until the DOM layer over the XML engine lands: only thread
// set-up and document creation (with their failure seams) do anything.
#include "dom/dom.h"

#include <atomic>

namespace tk::dom {
namespace {
std::atomic<int> g_failInit{0};
std::atomic<int> g_failCreate{0};
thread_local int t_initCount = 0;

bool TakeFailure(std::atomic<int>& counter) {
  int n = counter.load();
  while (n > 0) {
    if (counter.compare_exchange_weak(n, n - 1)) return true;
  }
  return false;
}
}  // namespace

namespace testing {
void FailInitThread(int count) { g_failInit = count; }
void FailDocumentCreate(int count) { g_failCreate = count; }
}  // namespace testing

struct Document::Object {
  int refs = 1;
};

int InitThread() {
  if (TakeFailure(g_failInit)) return kFail;
  return t_initCount++ == 0 ? kOk : kFalse;
}
void UninitThread() {
  if (t_initCount > 0) --t_initCount;
}
uint64_t TreeStamp() { return 0; }

Node::Node(const Node&) noexcept {}
Node::Node(Node&&) noexcept {}
Node& Node::operator=(const Node&) noexcept { return *this; }
Node& Node::operator=(Node&&) noexcept { return *this; }
Node::~Node() = default;
void Node::reset() noexcept {}

Document::Document(const Document& other) noexcept : m_object(other.m_object) {
  if (m_object) ++m_object->refs;
}
Document::Document(Document&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }
Document& Document::operator=(const Document& other) noexcept {
  Document copy(other);
  std::swap(m_object, copy.m_object);
  return *this;
}
Document& Document::operator=(Document&& other) noexcept {
  std::swap(m_object, other.m_object);
  return *this;
}
Document::~Document() { reset(); }
void Document::reset() noexcept {
  if (m_object && --m_object->refs == 0) delete m_object;
  m_object = nullptr;
}
int Document::Create(Document& out) {
  if (TakeFailure(g_failCreate)) return kFail;
  out.reset();
  out.m_object = new Object();
  return kOk;
}

struct WeakNode::Cell {};
WeakNode::~WeakNode() = default;
void WeakNode::reset() noexcept {}

}  // namespace tk::dom
