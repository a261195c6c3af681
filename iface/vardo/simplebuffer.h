// SSimpleBuffer: a growable block of bytes.
#ifndef VARDO_SIMPLEBUFFER_H
#define VARDO_SIMPLEBUFFER_H

#include "vardodefs.h"

namespace Vardo400 {

// Owns one heap block of bytes: size() bytes in use out of capacity(). Appends grow the
// block geometrically (at least doubling), so filling byte by byte costs amortised
// constant time. data() is null while nothing has been allocated. Copies are deep.
//
// Errors: growing beyond memory (or beyond the size_t range) throws std::bad_alloc and
// leaves the buffer as it was. The static alloc() never throws.
// Thread-safety: one object is not safe for concurrent use.
class VARDO_API SSimpleBuffer {
public:
    SSimpleBuffer();
    // Empty, with room for capacity bytes.
    explicit SSimpleBuffer(size_t capacity);
    // A copy of size bytes at data (data may be null when size is 0).
    SSimpleBuffer(const void* data, size_t size);
    SSimpleBuffer(const SSimpleBuffer& other);
    SSimpleBuffer(SSimpleBuffer&& other) noexcept;
    SSimpleBuffer& operator=(const SSimpleBuffer& other);
    SSimpleBuffer& operator=(SSimpleBuffer&& other) noexcept;
    ~SSimpleBuffer();

    unsigned char* data() { return m_pData; }
    const unsigned char* data() const { return m_pData; }
    size_t size() const { return m_nSize; }
    size_t capacity() const { return m_nCapacity; }
    bool isEmpty() const { return m_nSize == 0; }

    // Appends size bytes (data may be null when size is 0).
    void append(const void* data, size_t size);
    void append(unsigned char byte);
    void append(const SSimpleBuffer& other) { append(other.m_pData, other.m_nSize); }
    // Makes room for n more bytes, adds them to the size and returns where they start,
    // for the caller to fill (their content is undefined until then). Null when n is 0.
    unsigned char* grow(size_t n);
    // Sets the size; new bytes are zero.
    void resize(size_t size);
    // As resize() for callers that must not throw: bytes beyond the old size are left
    // unwritten for the caller to fill; false, with the buffer unchanged, when memory
    // is exhausted.
    bool setSize(size_t size);
    // Same as data().
    unsigned char* getBuffer() { return m_pData; }
    const unsigned char* getBuffer() const { return m_pData; }
    // Ensures room for capacity bytes in all.
    void reserve(size_t capacity);
    // Size 0; keeps the block.
    void clear() { m_nSize = 0; }
    // Size 0 and the block freed.
    void release();
    void swap(SSimpleBuffer& other) noexcept;

    // Byte-wise equality of the used parts.
    bool operator==(const SSimpleBuffer& other) const;
    bool operator!=(const SSimpleBuffer& other) const { return !(*this == other); }

    // The buffer's memory function: a block of size bytes (at least one), or null when
    // memory is exhausted. Such a block may be handed to attach() or freed with dealloc().
    static unsigned char* alloc(size_t size);
    static void dealloc(unsigned char* block);
    // Takes ownership of a block from alloc() holding capacity bytes of which the first
    // size are in use; the previous block is freed. A null block empties the buffer.
    void attach(unsigned char* block, size_t size, size_t capacity);
    // Gives up the block (to be freed with dealloc()); the buffer is empty afterwards.
    unsigned char* detach();

private:
    void ensure(size_t needed);

    unsigned char* m_pData;
    size_t m_nSize;
    size_t m_nCapacity;
};

} // namespace Vardo400

#endif
