// SIArray, SIMap, SISet: the library's container names. Each is the matching standard
// container under the library's name, with all of its members and constructors; they
// are distinct class templates (not aliases) so that interfaces can name them and
// callers can forward-declare them.
//
// Thread-safety: as the standard containers (concurrent reads are safe; a change needs
// exclusive access). Errors: as the standard containers (std::bad_alloc, and
// std::out_of_range from at()).
// These classes add no data and no virtual destructor: do not delete one through a
// pointer to its standard base.
#ifndef VARDO_CONTAINERS_H
#define VARDO_CONTAINERS_H

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace Vardo400 {

// A growable array in insertion order (std::vector).
template <class T, class Alloc = std::allocator<T>>
class SIArray : public std::vector<T, Alloc> {
public:
    typedef std::vector<T, Alloc> Base;
    using Base::Base;
    SIArray() {}
    SIArray(const Base& v) : Base(v) {}
    SIArray(Base&& v) : Base(std::move(v)) {}
};

// A map ordered by key (std::map). Note that SWCharString's own operator< orders by
// length first; pass another Compare for a different order.
template <class K, class V, class Compare = std::less<K>,
          class Alloc = std::allocator<std::pair<const K, V>>>
class SIMap : public std::map<K, V, Compare, Alloc> {
public:
    typedef std::map<K, V, Compare, Alloc> Base;
    using Base::Base;
    SIMap() {}
    SIMap(const Base& m) : Base(m) {}
    SIMap(Base&& m) : Base(std::move(m)) {}
};

// An ordered set of unique values (std::set).
template <class T, class Compare = std::less<T>, class Alloc = std::allocator<T>>
class SISet : public std::set<T, Compare, Alloc> {
public:
    typedef std::set<T, Compare, Alloc> Base;
    using Base::Base;
    SISet() {}
    SISet(const Base& s) : Base(s) {}
    SISet(Base&& s) : Base(std::move(s)) {}
};

} // namespace Vardo400

#endif
