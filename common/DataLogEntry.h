// DataLogEntry: the base of binary log records.
#pragma once

#include "common/BinaryStore.h"
#include "common/SettingsTransferable.h"

namespace kqlib {

/// One fixed-size buffer: the base class's own bytes, then the block of the derived class.
///
/// Ownership: owns its buffer. Threads: plain values, one thread at a time. Errors: by result; no message codes are
/// added. Settings form: one BinaryStore "entrydata" of the whole buffer; only the exact size is read back.
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQCOMMON_API DataLogEntry : public SettingsTransferable
{
public:
    /// All bytes zero (as ResetKeepMemory).
    void Reset() override;

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;

public:
    /// Same class and the same bytes.
    ///@{
    bool IsSame(const SettingsTransferable& other) const override;
    bool IsSame(const DataLogEntry& other) const;
    ///@}

    /// All bytes zero, in place.
    virtual void ResetKeepMemory();
    /// Frees the buffer; a zero one is made on the next access.
    virtual void ResetDestroySelf();

protected:
    /// Folds this entry into the buffer of another entry of the same class, at target, own bytes first. Called by
    /// MergeInto, which has compared classes and sizes; an override folds its block and calls the base for the own
    /// bytes.
    virtual void xMergeInto(unsigned char* target) const = 0;
    /// The same for SimpleCombineInto.
    virtual void xSimpleCombineInto(unsigned char* target) const = 0;
    /// Size of the whole buffer in bytes, own bytes included.
    virtual ULONG xGetSizeReq() const = 0;
    /// Terminates and cleans the text fields of the block. Called by SetRawData, and so by CopyDataFrom and ReadFrom,
    /// but not by the constructor over stored bytes. Base version: nothing.
    virtual void xMakeStringsSafe();

public:
    /// A new entry of the same class, a copy or an empty one; the caller deletes it. The first argument is not used.
    [[nodiscard]] virtual DataLogEntry* SpawnEntry(unsigned long unused, bool copy) const = 0;

    /// Folds this entry into target: counters add, the two current-connection counters take the larger value. False
    /// when class or size differ.
    bool MergeInto(DataLogEntry& target, Messages& messages) const;
    /// The same with every counter added.
    bool SimpleCombineInto(DataLogEntry& target, Messages& messages) const;
    /// Takes over the bytes of source, text fields made safe. False when class or size differ.
    bool CopyDataFrom(const DataLogEntry& source, Messages& messages);

    /// The whole buffer, GetRawSize() bytes; the form in which the data logs store it.
    const unsigned char* GetRawData() const;
    /// Size of the whole buffer in bytes; the same for all entries of a class.
    ULONG GetRawSize() const { return m_size; }
    /// Replaces the buffer by stored bytes of exactly GetRawSize(); text fields are made safe. False: another size.
    bool SetRawData(const unsigned char* bytes, ULONG size);

protected:
    /// ownSize: the base's own bytes; blockSize: the derived class's.
    DataLogEntry(ULONG ownSize, ULONG blockSize);
    /// The same over stored bytes: copied, short ones padded with zeros, long ones cut. store may be null.
    DataLogEntry(ULONG ownSize, ULONG blockSize, const BinaryStore* store);
    DataLogEntry(const DataLogEntry&) = default;
    DataLogEntry& operator=(const DataLogEntry&) = default;

    /// The whole buffer, made of zeros when there is none.
    ///@{
    unsigned char* xGetRaw()
    {
        xNeedBuffer();
        return m_store.GetData();
    }
    const unsigned char* xGetRaw() const
    {
        xNeedBuffer();
        return m_store.GetData();
    }
    ///@}
    /// As GetRawSize.
    ULONG xGetRawFullSize() const { return m_size; }

private:
    bool xIsLike(const DataLogEntry& other) const;
    void xNeedBuffer() const
    {
        if (m_store.GetSize() != m_size)
            xMakeBuffer();
    }
    void xMakeBuffer() const;

    ULONG m_size;                ///< own bytes and block; set once at construction
    mutable BinaryStore m_store; ///< empty, or m_size bytes
};

} // namespace kqlib
