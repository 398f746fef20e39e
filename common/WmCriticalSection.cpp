#include "common/WmCriticalSection.h"

CWmCriticalSection::CWmCriticalSection()
{
    pthread_mutex_init(&m_mutex, nullptr);
}

CWmCriticalSection::~CWmCriticalSection()
{
    pthread_mutex_destroy(&m_mutex);
}

int CWmCriticalSection::Enter()
{
    return pthread_mutex_lock(&m_mutex);
}

int CWmCriticalSection::Leave()
{
    return pthread_mutex_unlock(&m_mutex);
}
