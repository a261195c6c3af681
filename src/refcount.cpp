// CRefCount.
#include "vardo/refcount.h"

#include "vardo/strace.h"

namespace Vardo400 {

CRefCount::CRefCount() : m_lRefCount(1)
{
}

CRefCount::CRefCount(const CRefCount&) : m_lRefCount(1)
{
}

CRefCount& CRefCount::operator=(const CRefCount& o)
{
    m_lRefCount = o.m_lRefCount;
    return *this;
}

long CRefCount::addRef() const
{
    return ++m_lRefCount;
}

long CRefCount::release() const
{
    long n = --m_lRefCount;
    if (n == 0)
        delete this;
    return n;
}

long CRefCount::getCount() const
{
    return m_lRefCount.read();
}

CRefCount::~CRefCount()
{
    VARDO_ASSERT(SNonInterlockedRead(&m_lRefCount) == 0);
}

void CRefCount::clearRefCount()
{
    SNonInterlockedSet(&m_lRefCount, 0);
}

} // namespace Vardo400
