// VectorPtr: the growable array that owns heap objects.
#pragma once

#include "common/Types.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace kqlib {

/// A growable array of owned pointers; deletes its elements on Reset, Delete and destruction. Moved, never copied.
///
/// Ownership: owns its elements (virtual destructors where T has them). Threads: one at a time. Errors: an index at or
/// past the count is the caller's error (std::out_of_range from Get).
template <class T> class VectorPtr
{
public:
    /// Empty.
    VectorPtr() = default;
    VectorPtr(VectorPtr&&) noexcept = default;
    VectorPtr& operator=(VectorPtr&&) noexcept = default;
    VectorPtr(const VectorPtr&) = delete;
    VectorPtr& operator=(const VectorPtr&) = delete;
    virtual ~VectorPtr() = default;

    /// Deletes every element.
    void Reset() { m_items.clear(); }
    /// How many elements there are.
    ULONG GetCount() const { return static_cast<ULONG>(m_items.size()); }
    /// The element at index, which stays owned by the array; valid until it is deleted or given away.
    ///@{
    const T& Get(ULONG index) const { return *m_items.at(index); }
    T& Get(ULONG index) { return *m_items.at(index); }
    ///@}
    /// Makes sure that the next Give needs no memory.
    void ReserveOne()
    {
        if (m_items.size() == m_items.capacity())
            m_items.reserve(2 * m_items.size() + 4);
    }
    /// Takes ownership of item and appends it; null is ignored.
    void Give(T* item)
    {
        std::unique_ptr<T> owned(item);
        if (owned)
            m_items.push_back(std::move(owned));
    }
    /// Takes ownership of item and puts it before the element at index; index is at most the count. Null is ignored.
    void GiveAt(ULONG index, T* item)
    {
        std::unique_ptr<T> owned(item);
        if (owned)
            m_items.insert(m_items.begin() + static_cast<std::ptrdiff_t>(index), std::move(owned));
    }
    /// Takes the element out of the array; the caller owns it. Later ones move down.
    [[nodiscard]] T* Remove(ULONG index)
    {
        T* item = m_items.at(index).release();
        m_items.erase(m_items.begin() + static_cast<std::ptrdiff_t>(index));
        return item;
    }
    /// Deletes the element; later ones move down.
    void Delete(ULONG index) { delete Remove(index); }
    /// Deletes every element that the predicate is true for, in one pass; the others keep their order.
    template <class Predicate> void DeleteIf(Predicate unwanted)
    {
        std::erase_if(m_items, [&unwanted](const std::unique_ptr<T>& item) { return unwanted(*item); });
    }
    /// Takes over all elements of other, in order, behind those here; other is left empty.
    void TakeAll(VectorPtr& other)
    {
        m_items.insert(m_items.end(), std::make_move_iterator(other.m_items.begin()),
                       std::make_move_iterator(other.m_items.end()));
        other.m_items.clear();
    }

protected:
    /// The elements, never null; for derived classes.
    std::vector<std::unique_ptr<T>> m_items;
};

} // namespace kqlib
