// CRefCount: the intrusive reference count, and CSmartRefCountPtr, its smart pointer.
#ifndef VARDO_REFCOUNT_H
#define VARDO_REFCOUNT_H

#include "vardodefs.h"
#include "interlocked.h"

namespace Vardo400 {

// Base of objects shared by reference. A new object starts with one reference, owned by
// whoever created it; release() of the last reference deletes the object through its
// virtual destructor, so shared objects live on the heap. An object on the stack (or a
// member) must call clearRefCount() before it dies, or its destructor asserts
// "SNonInterlockedRead(&m_lRefCount) == 0". addRef/release/getCount are safe from any
// thread; copying and assigning are not.
class VARDO_API CRefCount {
public:
    // Count 1.
    CRefCount();
    // The copy is a new object: count 1, whatever the source's count.
    CRefCount(const CRefCount& o);
    // Copies the source's current count into this object (plain copy).
    CRefCount& operator=(const CRefCount& o);

    // Adds a reference; returns the new count.
    virtual long addRef() const;
    // Drops a reference; returns the new count. At 0 the object has deleted itself.
    virtual long release() const;

    // The current count (interlocked read).
    long getCount() const;

protected:
    virtual ~CRefCount();
    // Sets the count to 0 (plain store), for objects whose life is not counted.
    void clearRefCount();

private:
    mutable SInterlockedInt32s m_lRefCount;
};

// Holds one reference to a T derived from CRefCount.
//  - From a raw pointer (constructor, reset, assignment) it takes over the reference the
//    caller owns, such as the one a new object starts with: CSmartRefCountPtr<X> p(new X);
//    use the (pointer, true) constructor to take an extra reference instead.
//  - Copying calls addRef(); dropping or overwriting calls release() on the old target.
// One pointer object is not safe for concurrent use; distinct ones may share a target.
template <class T>
class CSmartRefCountPtr {
public:
    CSmartRefCountPtr() : m_p(0) {}
    CSmartRefCountPtr(T* p) : m_p(p) {}
    CSmartRefCountPtr(T* p, bool bAddRef) : m_p(p) { if (m_p && bAddRef) m_p->addRef(); }
    CSmartRefCountPtr(const CSmartRefCountPtr& o) : m_p(o.m_p) { if (m_p) m_p->addRef(); }
    template <class U>
    CSmartRefCountPtr(const CSmartRefCountPtr<U>& o) : m_p(o.get()) { if (m_p) m_p->addRef(); }
    CSmartRefCountPtr(CSmartRefCountPtr&& o) noexcept : m_p(o.m_p) { o.m_p = 0; }
    ~CSmartRefCountPtr() { if (m_p) m_p->release(); }

    CSmartRefCountPtr& operator=(const CSmartRefCountPtr& o)
    {
        T* old = m_p;
        m_p = o.m_p;
        if (m_p)
            m_p->addRef();
        if (old)
            old->release();
        return *this;
    }
    CSmartRefCountPtr& operator=(CSmartRefCountPtr&& o) noexcept
    {
        if (this != &o) {
            T* old = m_p;
            m_p = o.m_p;
            o.m_p = 0;
            if (old)
                old->release();
        }
        return *this;
    }
    // Takes over the caller's reference to p, releasing the old target.
    CSmartRefCountPtr& operator=(T* p) { reset(p); return *this; }
    void reset(T* p = 0)
    {
        T* old = m_p;
        m_p = p;
        if (old && old != p)
            old->release();
    }
    // Gives up the reference without releasing it; the caller owns it now.
    T* detach() { T* p = m_p; m_p = 0; return p; }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    bool isNull() const { return m_p == 0; }
    explicit operator bool() const { return m_p != 0; }
    bool operator==(const CSmartRefCountPtr& o) const { return m_p == o.m_p; }
    bool operator!=(const CSmartRefCountPtr& o) const { return m_p != o.m_p; }
    bool operator==(const T* p) const { return m_p == p; }
    bool operator!=(const T* p) const { return m_p != p; }

private:
    T* m_p;
};

} // namespace Vardo400

#endif
