// VectorTransferable: a Vector that stores itself as settings.
#pragma once

#include "common/SettingsTransferable.h"
#include "common/SettingsTransportSet.h"
#include "common/Vector.h"

namespace kqlib {

/// A Vector of settings values: one unnamed sub-set per element, in order.
///
/// Reading appends and does not empty the array first. It uses one working element for the whole walk, so a sub-set
/// that lacks a key inherits the previous element's value; kept on purpose.
/// Ownership, threads, errors: as Vector and SettingsTransferable.
template <class T> class VectorTransferable : public Vector<T>, public SettingsTransferable
{
public:
    using Vector<T>::Vector;
    /// Empty.
    VectorTransferable() = default;
    VectorTransferable(const VectorTransferable&) = default;
    VectorTransferable& operator=(const VectorTransferable&) = default;

    /// Empties the array (both bases' Reset).
    void Reset() override { Vector<T>::Reset(); }
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override
    {
        return copy ? new VectorTransferable(*this) : new VectorTransferable();
    }
    /// Same count and each element IsSame its partner.
    ///@{
    bool IsSame(const SettingsTransferable& other) const override
    {
        const auto* list = dynamic_cast<const VectorTransferable*>(&other);
        return list != nullptr && IsSame(*list);
    }
    bool IsSame(const VectorTransferable& other) const
    {
        if (this->GetCount() != other.GetCount())
            return false;
        for (ULONG index = 0; index < this->GetCount(); ++index)
            if (!this->Get(index).IsSame(other.Get(index)))
                return false;
        return true;
    }
    friend bool operator==(const VectorTransferable& left, const VectorTransferable& right)
    {
        return left.IsSame(right);
    }
    ///@}

protected:
    bool xWriteTo(SettingsTransportSet& set) const override
    {
        for (const T& item : this->m_items)
            if (SettingsTransportSet* sub = set.AddSet(SettingsTransportSet::UNNAMED))
                item.WriteTo(*sub);
        return true;
    }
    bool xReadFrom(const SettingsTransportSet& set) override
    {
        T working;
        for (ULONG index = 0; index < set.GetSetCount(); ++index) {
            working.ReadFrom(set.GetSet(index));
            this->Add(working);
        }
        return true;
    }
    void xCheckErrors(Messages& messages) const override
    {
        for (const T& item : this->m_items)
            item.CheckErrors(messages);
    }
    void xCheckWarnings(Messages& messages) const override
    {
        for (const T& item : this->m_items)
            item.CheckWarnings(messages);
    }
};

} // namespace kqlib
