// The instance lock: an abstract lock, its re-entrant implementation and the
// guard that every locking operation holds.
#pragma once

#include <mutex>

namespace tk {

class CCoreRtLock {
 public:
  virtual ~CCoreRtLock();
  virtual void Enter() = 0;
  virtual void Leave() = 0;
};

class CCoreRtCriticalSectionEx final : public CCoreRtLock {
 public:
  CCoreRtCriticalSectionEx() = default;
  ~CCoreRtCriticalSectionEx() override = default;
  void Enter() override { m_mutex.lock(); }
  void Leave() override { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;
};

// Enters on construction and leaves on destruction, so every way out of an
// operation, a fault included, leaves the lock exactly once.
class LockGuard {
 public:
  explicit LockGuard(CCoreRtLock& lock) : m_lock(lock) { m_lock.Enter(); }
  ~LockGuard() { m_lock.Leave(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  CCoreRtLock& m_lock;
};

}  // namespace tk
