#pragma once

#include <pthread.h>

// A plain (non-recursive) mutex: locking it twice from one thread deadlocks.
class CWmCriticalSection {
public:
    CWmCriticalSection();
    virtual ~CWmCriticalSection();
    CWmCriticalSection(const CWmCriticalSection&) = delete;
    CWmCriticalSection& operator=(const CWmCriticalSection&) = delete;

    int Enter();
    int Leave();

private:
    pthread_mutex_t m_mutex;
};
