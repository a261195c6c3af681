// SSimpleBuffer: one malloc'd block, grown by realloc.
#include "vardo/simplebuffer.h"

#include "vardo_internal.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace Vardo400 {

// No block can be larger than the address space's signed half; asking the allocator
// for more only draws complaints from memory checkers.
static inline bool beyondAddressSpace(size_t n) { return n > static_cast<size_t>(PTRDIFF_MAX); }

SSimpleBuffer::SSimpleBuffer() : m_pData(0), m_nSize(0), m_nCapacity(0) {}

SSimpleBuffer::SSimpleBuffer(size_t capacity) : m_pData(0), m_nSize(0), m_nCapacity(0)
{
    reserve(capacity);
}

SSimpleBuffer::SSimpleBuffer(const void* data, size_t size) : m_pData(0), m_nSize(0), m_nCapacity(0)
{
    append(data, size);
}

SSimpleBuffer::SSimpleBuffer(const SSimpleBuffer& other) : m_pData(0), m_nSize(0), m_nCapacity(0)
{
    append(other.m_pData, other.m_nSize);
}

SSimpleBuffer::SSimpleBuffer(SSimpleBuffer&& other) noexcept
    : m_pData(other.m_pData), m_nSize(other.m_nSize), m_nCapacity(other.m_nCapacity)
{
    other.m_pData = 0;
    other.m_nSize = other.m_nCapacity = 0;
}

SSimpleBuffer& SSimpleBuffer::operator=(const SSimpleBuffer& other)
{
    if (this != &other) {
        SSimpleBuffer copy(other);
        swap(copy);
    }
    return *this;
}

SSimpleBuffer& SSimpleBuffer::operator=(SSimpleBuffer&& other) noexcept
{
    if (this != &other) {
        release();
        swap(other);
    }
    return *this;
}

SSimpleBuffer::~SSimpleBuffer()
{
    std::free(m_pData);
}

void SSimpleBuffer::swap(SSimpleBuffer& other) noexcept
{
    std::swap(m_pData, other.m_pData);
    std::swap(m_nSize, other.m_nSize);
    std::swap(m_nCapacity, other.m_nCapacity);
}

void SSimpleBuffer::reserve(size_t capacity)
{
    if (capacity <= m_nCapacity)
        return;
    if (beyondAddressSpace(capacity))
        ThrowBadAllocation();
    void* p = std::realloc(m_pData, capacity);
    if (!p)
        ThrowBadAllocation();
    m_pData = static_cast<unsigned char*>(p);
    m_nCapacity = capacity;
}

void SSimpleBuffer::ensure(size_t needed)
{
    if (needed <= m_nCapacity)
        return;
    // At least double, at least 64 bytes; the doubling falls back to the exact need
    // when it would not fit in size_t.
    size_t target = m_nCapacity <= static_cast<size_t>(PTRDIFF_MAX) / 2 ? m_nCapacity * 2 : needed;
    if (target < needed)
        target = needed;
    if (target < 64)
        target = 64;
    reserve(target);
}

unsigned char* SSimpleBuffer::grow(size_t n)
{
    if (n == 0)
        return 0;
    if (n > static_cast<size_t>(-1) - m_nSize)
        ThrowBadAllocation();
    ensure(m_nSize + n);
    unsigned char* p = m_pData + m_nSize;
    m_nSize += n;
    return p;
}

void SSimpleBuffer::append(const void* data, size_t size)
{
    if (size == 0 || !data)
        return;
    // data may point into this buffer: keep its offset across the reallocation.
    const unsigned char* src = static_cast<const unsigned char*>(data);
    const uintptr_t at = reinterpret_cast<uintptr_t>(src);
    const uintptr_t base = reinterpret_cast<uintptr_t>(m_pData);
    if (m_pData && at >= base && at - base < m_nSize) {
        const size_t offset = static_cast<size_t>(at - base);
        unsigned char* dst = grow(size);
        std::memmove(dst, m_pData + offset, size);
        return;
    }
    std::memcpy(grow(size), src, size);
}

void SSimpleBuffer::append(unsigned char byte)
{
    if (m_nSize < m_nCapacity)
        m_pData[m_nSize++] = byte;
    else
        *grow(1) = byte;
}

void SSimpleBuffer::resize(size_t size)
{
    if (size > m_nSize) {
        size_t add = size - m_nSize;
        std::memset(grow(add), 0, add);
    } else {
        m_nSize = size;
    }
}

bool SSimpleBuffer::setSize(size_t size)
{
    if (size > m_nCapacity) {
        if (beyondAddressSpace(size))
            return false;
        void* p = std::realloc(m_pData, size);
        if (!p)
            return false;
        m_pData = static_cast<unsigned char*>(p);
        m_nCapacity = size;
    }
    m_nSize = size;
    return true;
}

void SSimpleBuffer::release()
{
    std::free(m_pData);
    m_pData = 0;
    m_nSize = m_nCapacity = 0;
}

bool SSimpleBuffer::operator==(const SSimpleBuffer& other) const
{
    return m_nSize == other.m_nSize && (m_nSize == 0 || std::memcmp(m_pData, other.m_pData, m_nSize) == 0);
}

unsigned char* SSimpleBuffer::alloc(size_t size)
{
    if (beyondAddressSpace(size))
        return 0;
    return static_cast<unsigned char*>(std::malloc(size ? size : 1));
}

void SSimpleBuffer::dealloc(unsigned char* block)
{
    std::free(block);
}

void SSimpleBuffer::attach(unsigned char* block, size_t size, size_t capacity)
{
    if (block == m_pData) {
        m_nSize = size <= capacity ? size : capacity;
        m_nCapacity = capacity;
        return;
    }
    std::free(m_pData);
    m_pData = block;
    m_nCapacity = block ? capacity : 0;
    m_nSize = block ? (size <= capacity ? size : capacity) : 0;
}

unsigned char* SSimpleBuffer::detach()
{
    unsigned char* p = m_pData;
    m_pData = 0;
    m_nSize = m_nCapacity = 0;
    return p;
}

} // namespace Vardo400
