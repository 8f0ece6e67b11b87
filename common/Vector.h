// Vector: the growable array of values with a virtual interface.
#pragma once

#include "common/Types.h"

#include <cstddef>
#include <iterator>
#include <vector>

namespace kqlib {

/// A growable array of T held by value.
///
/// Ownership: owns its elements. Threads: one at a time. Errors: an index at or past the count is the caller's error
/// (std::out_of_range from Get).
/// The order of the virtual functions is part of the binary interface; new ones go last.
template <class T> class Vector
{
public:
    /// Empty.
    Vector() = default;
    Vector(const Vector&) = default;
    Vector(Vector&&) = default;
    /// count default elements.
    explicit Vector(ULONG count)
        : m_items(count)
    {
    }
    /// count copies of one element.
    Vector(ULONG count, const T& item)
        : m_items(count, item)
    {
    }
    Vector& operator=(const Vector&) = default;
    Vector& operator=(Vector&&) = default;

    /// Destroys every element.
    virtual void Reset() { m_items.clear(); }
    /// How many elements there are.
    virtual ULONG GetCount() const { return static_cast<ULONG>(m_items.size()); }
    /// The element at index; the reference is valid until an element is added or removed.
    ///@{
    virtual const T& Get(ULONG index) const { return m_items.at(index); }
    virtual T& Get(ULONG index) { return m_items.at(index); }
    ///@}
    /// Appends a copy.
    virtual void Add(const T& item) { m_items.push_back(item); }
    /// Erases one element; later ones move down.
    virtual void Delete(ULONG index) { m_items.erase(m_items.begin() + static_cast<std::ptrdiff_t>(index)); }
    /// Appends copies of count items; 0 does nothing.
    virtual void Append(const T* items, ULONG count)
    {
        std::vector<T> copies(items, items + count); // made aside first: the items may be this array's own
        m_items.insert(m_items.end(), std::make_move_iterator(copies.begin()), std::make_move_iterator(copies.end()));
    }
    virtual ~Vector() = default;

    /// For range loops; iterators are those of std::vector.
    ///@{
    auto begin() { return m_items.begin(); }
    auto end() { return m_items.end(); }
    auto begin() const { return m_items.begin(); }
    auto end() const { return m_items.end(); }
    ///@}

protected:
    /// The elements, for derived classes that walk them.
    std::vector<T> m_items;
};

} // namespace kqlib
