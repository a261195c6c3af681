// 32-bit interlocked counters and the primitive operations under them.
//
// Every operation whose name does not say otherwise is atomic and a full memory barrier.
// The "nonInterlocked" pair is deliberately plain: it is for code that already holds a
// lock or runs alone (constructors, destructors, initialisation) and must never race
// with other accesses.
#ifndef VARDO_INTERLOCKED_H
#define VARDO_INTERLOCKED_H

#include "vardodefs.h"

namespace Vardo400 {

// The primitive operations over a long cell. No data; only derived classes construct it.
class VARDO_API SInterlockedBase {
public:
    // Atomic fetch-and-add; returns the value before the addition.
    static long asmExchangeAdd(long* cell, long value) { return __atomic_fetch_add(cell, value, __ATOMIC_SEQ_CST); }
    // Atomic exchange; returns the old value.
    static long asmExchange(long* cell, long value) { return __atomic_exchange_n(cell, value, __ATOMIC_SEQ_CST); }
    // Atomic exchange with 1; returns the old value: 0 means the caller now holds the cell.
    static long asmAcquireLock(long* cell) { return __atomic_exchange_n(cell, 1L, __ATOMIC_SEQ_CST); }
    // Releases a cell taken with asmAcquireLock (atomic exchange with 0).
    static void asmUnlock(long* cell) { (void)__atomic_exchange_n(cell, 0L, __ATOMIC_SEQ_CST); }
    // Plain store of 0, for a cell nobody else can see yet.
    static void asmInitLock(long* cell) { *cell = 0; }

    // The same operations over a 32-bit cell, for counters whose size is fixed at 32 bits
    // whatever the width of long.
    static int32_t asmExchangeAdd(int32_t* cell, int32_t value) { return __atomic_fetch_add(cell, value, __ATOMIC_SEQ_CST); }
    static int32_t asmExchange(int32_t* cell, int32_t value) { return __atomic_exchange_n(cell, value, __ATOMIC_SEQ_CST); }
    static uint32_t asmExchangeAdd(uint32_t* cell, uint32_t value) { return __atomic_fetch_add(cell, value, __ATOMIC_SEQ_CST); }
    static uint32_t asmExchange(uint32_t* cell, uint32_t value) { return __atomic_exchange_n(cell, value, __ATOMIC_SEQ_CST); }

protected:
    SInterlockedBase() {}
};

class SInterlockedInt32s;
class SInterlockedInt32u;
inline long SNonInterlockedRead(const SInterlockedInt32s* p);
inline unsigned long SNonInterlockedRead(const SInterlockedInt32u* p);
inline long SNonInterlockedSet(SInterlockedInt32s* p, long value);
inline unsigned long SNonInterlockedSet(SInterlockedInt32u* p, unsigned long value);

// A signed 32-bit counter. Arguments wider than 32 bits are taken modulo 2^32.
class VARDO_API SInterlockedInt32s : public SInterlockedBase {
public:
    // Plain store of the initial value.
    SInterlockedInt32s(long value = 0) : m_value((int32_t)value) {}
    // The copy starts with an interlocked read() of the source.
    SInterlockedInt32s(const SInterlockedInt32s& o) : SInterlockedBase(), m_value((int32_t)o.read()) {}
    // Member-wise (plain) copy of the value.
    SInterlockedInt32s& operator=(const SInterlockedInt32s& o) { m_value = o.m_value; return *this; }

    // Plain store.
    void initialize(long value) { m_value = (int32_t)value; }
    // Atomic add; returns the previous value.
    long exchangeAdd(long value) { return asmExchangeAdd(&m_value, (int32_t)value); }
    // Atomic exchange; returns the previous value.
    long exchange(long value) { return asmExchange(&m_value, (int32_t)value); }
    // Full-barrier read (an atomic add of 0).
    long read() const { return asmExchangeAdd(&m_value, 0); }
    // Plain load, no barrier.
    long nonInterlockedRead() const { return m_value; }
    // Plain load of the old value and plain store of the new one; not atomic.
    long nonInterlockedSet(long value) { long old = m_value; m_value = (int32_t)value; return old; }

    // Atomic increment/decrement returning the new value (prefix) or the old one (postfix).
    long operator++() { return (int32_t)((uint32_t)asmExchangeAdd(&m_value, 1) + 1u); }
    long operator--() { return (int32_t)((uint32_t)asmExchangeAdd(&m_value, -1) - 1u); }
    long operator++(int) { return asmExchangeAdd(&m_value, 1); }
    long operator--(int) { return asmExchangeAdd(&m_value, -1); }
    // Compares two read() results.
    bool operator==(const SInterlockedInt32s& o) const { return read() == o.read(); }
    bool operator!=(const SInterlockedInt32s& o) const { return !(*this == o); }

private:
    friend long SNonInterlockedRead(const SInterlockedInt32s* p);
    friend long SNonInterlockedSet(SInterlockedInt32s* p, long value);
    mutable int32_t m_value;
};

// An unsigned 32-bit counter; the same operations as SInterlockedInt32s. Results wrap
// modulo 2^32.
class VARDO_API SInterlockedInt32u : public SInterlockedBase {
public:
    SInterlockedInt32u(unsigned long value = 0) : m_value((uint32_t)value) {}
    SInterlockedInt32u(const SInterlockedInt32u& o) : SInterlockedBase(), m_value((uint32_t)o.read()) {}
    SInterlockedInt32u& operator=(const SInterlockedInt32u& o) { m_value = o.m_value; return *this; }

    void initialize(unsigned long value) { m_value = (uint32_t)value; }
    unsigned long exchangeAdd(long value) { return asmExchangeAdd(&m_value, (uint32_t)value); }
    unsigned long exchange(unsigned long value) { return asmExchange(&m_value, (uint32_t)value); }
    unsigned long read() const { return asmExchangeAdd(&m_value, 0u); }
    unsigned long nonInterlockedRead() const { return m_value; }
    unsigned long nonInterlockedSet(unsigned long value) { unsigned long old = m_value; m_value = (uint32_t)value; return old; }

    unsigned long operator++() { return asmExchangeAdd(&m_value, 1u) + 1u; }
    unsigned long operator--() { return (uint32_t)(asmExchangeAdd(&m_value, 0xFFFFFFFFu) - 1u); }
    unsigned long operator++(int) { return asmExchangeAdd(&m_value, 1u); }
    unsigned long operator--(int) { return asmExchangeAdd(&m_value, 0xFFFFFFFFu); }
    bool operator==(const SInterlockedInt32u& o) const { return read() == o.read(); }
    bool operator!=(const SInterlockedInt32u& o) const { return !(*this == o); }

private:
    friend unsigned long SNonInterlockedRead(const SInterlockedInt32u* p);
    friend unsigned long SNonInterlockedSet(SInterlockedInt32u* p, unsigned long value);
    mutable uint32_t m_value;
};

// Free forms of the same operations.
inline long SInterlockedExchangeAdd(SInterlockedInt32s* p, long value) { return p->exchangeAdd(value); }
inline long SInterlockedExchange(SInterlockedInt32s* p, long value) { return p->exchange(value); }
inline long SNonInterlockedRead(const SInterlockedInt32s* p) { return p->m_value; }
inline unsigned long SNonInterlockedRead(const SInterlockedInt32u* p) { return p->m_value; }
inline long SNonInterlockedSet(SInterlockedInt32s* p, long value)
{
    long old = p->m_value;
    p->m_value = (int32_t)value;
    return old;
}
inline unsigned long SNonInterlockedSet(SInterlockedInt32u* p, unsigned long value)
{
    unsigned long old = p->m_value;
    p->m_value = (uint32_t)value;
    return old;
}

} // namespace Vardo400

#endif
