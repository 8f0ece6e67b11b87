// VectorPtrCopyByValue: a VectorPtr whose copy makes new objects.
#pragma once

#include "common/VectorPtr.h"

#include <algorithm>

namespace kqlib {

/// As VectorPtr; copying makes new heap objects from the pointed-to values (by T's copy constructor).
template <class T> class VectorPtrCopyByValue : public VectorPtr<T>
{
public:
    /// Empty.
    VectorPtrCopyByValue() = default;
    /// New objects with the values of other's, in their order; an assignment deletes what was there.
    ///@{
    VectorPtrCopyByValue(const VectorPtrCopyByValue& other)
        : VectorPtr<T>()
    {
        xCopy(other);
    }
    VectorPtrCopyByValue(VectorPtrCopyByValue&&) noexcept = default;
    VectorPtrCopyByValue& operator=(const VectorPtrCopyByValue& other)
    {
        if (this != &other) {
            this->Reset();
            xCopy(other);
        }
        return *this;
    }
    ///@}
    VectorPtrCopyByValue& operator=(VectorPtrCopyByValue&&) noexcept = default;

    /// Appends a copy.
    void Add(const T& item) { this->Give(new T(item)); }
    /// Appends copies of count items; 0 does nothing.
    void Append(const T* items, ULONG count)
    {
        for (ULONG index = 0; index < count; ++index)
            Add(items[index]);
    }
    /// Reverses the order in place.
    void Reverse() { std::reverse(this->m_items.begin(), this->m_items.end()); }

private:
    void xCopy(const VectorPtrCopyByValue& other)
    {
        for (ULONG index = 0; index < other.GetCount(); ++index)
            Add(other.Get(index));
    }
};

} // namespace kqlib
