// A lock that holds no handle: std::mutex makes an event when two threads first meet at it, and the long runs count
// handles.
#pragma once

#include <windows.h>

#include <mutex>

namespace ravlo::test {

/// Goes with std::lock_guard.
class Lock {
public:
    void lock() { AcquireSRWLockExclusive(&m_lock); }
    void unlock() { ReleaseSRWLockExclusive(&m_lock); }
    /// Lets the lock go until NotifyAll or a time-out. Call with the lock held; it is held again afterwards.
    void Wait(DWORD timeoutMs) { SleepConditionVariableSRW(&m_changed, &m_lock, timeoutMs, 0); }
    void NotifyAll() { WakeAllConditionVariable(&m_changed); }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_changed = CONDITION_VARIABLE_INIT;
};

using LockGuard = std::lock_guard<Lock>;

}  // namespace ravlo::test
