// VectorTransferablePtr: an owning pointer array that stores itself as settings.
#pragma once

#include "common/SettingsTransferable.h"
#include "common/SettingsTransportSet.h"
#include "common/VectorPtrCopyByValue.h"

namespace kqlib {

/// An array of owned settings objects: one unnamed sub-set per element, in order. Reading appends one new default
/// element per sub-set. Ownership, threads, errors: as VectorPtrCopyByValue and SettingsTransferable.
template <class T> class VectorTransferablePtr : public VectorPtrCopyByValue<T>, public SettingsTransferable
{
public:
    /// Empty.
    VectorTransferablePtr() = default;
    VectorTransferablePtr(const VectorTransferablePtr&) = default;
    VectorTransferablePtr& operator=(const VectorTransferablePtr&) = default;

    void Reset() override { VectorPtr<T>::Reset(); }
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override
    {
        return copy ? new VectorTransferablePtr(*this) : new VectorTransferablePtr();
    }
    bool IsSame(const SettingsTransferable& other) const override
    {
        const auto* list = dynamic_cast<const VectorTransferablePtr*>(&other);
        return list != nullptr && IsSame(*list);
    }
    /// Same count and each element IsSame its partner.
    ///@{
    bool IsSame(const VectorTransferablePtr& other) const
    {
        if (this->GetCount() != other.GetCount())
            return false;
        for (ULONG index = 0; index < this->GetCount(); ++index)
            if (!this->Get(index).IsSame(other.Get(index)))
                return false;
        return true;
    }
    friend bool operator==(const VectorTransferablePtr& left, const VectorTransferablePtr& right)
    {
        return left.IsSame(right);
    }
    ///@}

protected:
    bool xWriteTo(SettingsTransportSet& set) const override
    {
        for (ULONG index = 0; index < this->GetCount(); ++index)
            if (SettingsTransportSet* sub = set.AddSet(SettingsTransportSet::UNNAMED))
                this->Get(index).WriteTo(*sub);
        return true;
    }
    bool xReadFrom(const SettingsTransportSet& set) override
    {
        for (ULONG index = 0; index < set.GetSetCount(); ++index) {
            auto item = std::make_unique<T>();
            item->ReadFrom(set.GetSet(index));
            this->Give(item.release());
        }
        return true;
    }
    void xCheckErrors(Messages& messages) const override
    {
        for (ULONG index = 0; index < this->GetCount(); ++index)
            this->Get(index).CheckErrors(messages);
    }
    void xCheckWarnings(Messages& messages) const override
    {
        for (ULONG index = 0; index < this->GetCount(); ++index)
            this->Get(index).CheckWarnings(messages);
    }
};

} // namespace kqlib
