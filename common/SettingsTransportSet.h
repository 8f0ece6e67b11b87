// SettingsTransportSet: the tree of named values in which settings are stored and transferred.
#pragma once

#include "common/BinaryStore.h"
#include "common/FilePath.h"
#include "common/String.h"
#include "common/TimePos.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

namespace kqlib {

class SettingsTransferable;

/// Two ordered sequences: typed data items and sub-sets, each under a key; keys may repeat.
///
/// Get… finds the first item of that key and type; when there is none it answers false and leaves the variable
/// untouched (a value of another type counts as absent). The file form is JSON,
/// {"data":[[key,type,value],…],"sets":[[key,{…}],…]}, which keeps order, repeats, types, empty sub-sets and every byte
/// value of a String.
///
/// Ownership: owns its sub-sets; copied deeply. Threads: one at a time. Errors: by result; a damaged file or text is
/// refused whole and changes nothing.
class KQCOMMON_API SettingsTransportSet
{
public:
    /// The key of list items: "".
    static const char* const UNNAMED;

    /// Empty, or a copy of items and sub-sets; a set moved from is empty.
    ///@{
    SettingsTransportSet();
    SettingsTransportSet(const SettingsTransportSet& other);
    SettingsTransportSet(SettingsTransportSet&& other) noexcept;
    SettingsTransportSet& operator=(const SettingsTransportSet& other);
    SettingsTransportSet& operator=(SettingsTransportSet&& other) noexcept;
    ///@}
    /// Destroys the sub-sets: pointers to them end here.
    ~SettingsTransportSet();

    /// Removes all items and sub-sets.
    void Reset();

    /// Append an item; always true. AddULONG stores 32 bits on every system, its higher bits are cut off.
    ///@{
    bool AddUSHORT(const String& key, USHORT value);
    bool AddULONG(const String& key, ULONG value);
    bool AddBool(const String& key, bool value);
    bool AddString(const String& key, const String& value);
    bool AddTimePos(const String& key, const TimePos& value);
    bool AddBinaryStore(const String& key, const BinaryStore& value);
    ///@}

    /// Give the first item of that key and type. False: none, out is untouched.
    ///@{
    bool GetUSHORT(const String& key, USHORT& out) const;
    bool GetULONG(const String& key, ULONG& out) const;
    bool GetBool(const String& key, bool& out) const;
    bool GetString(const String& key, String& out) const;
    bool GetTimePos(const String& key, TimePos& out) const;
    bool GetBinaryStore(const String& key, BinaryStore& out) const;
    ///@}

    /// Appends an empty sub-set, owned by this set and valid until it changes or ends; never null.
    SettingsTransportSet* AddSet(const String& key);
    /// Number of sub-sets, named or not, in order.
    ULONG GetSetCount() const;
    /// A sub-set, and its key. An index at or past the count: std::out_of_range.
    ///@{
    const SettingsTransportSet& GetSet(ULONG index) const;
    const String& GetSetKey(ULONG index) const;
    ///@}
    /// The first sub-set of that key, null when there is none.
    const SettingsTransportSet* FindSet(const String& key) const;
    /// Appends a sub-set and lets the object write itself into it.
    bool AddSettings(const String& key, const SettingsTransferable& object);
    /// Lets the object read itself from this set.
    bool GetSettings(SettingsTransferable& object) const;

    /// Number of data items, in order.
    ULONG GetDataCount() const;
    /// The key of an item. An index at or past the count: std::out_of_range.
    const String& GetDataKey(ULONG index) const;
    /// The item at index as text: numbers decimal, Bool 1 or 0, TimePos as its milliseconds, BinaryStore in
    /// hexadecimal. False past the end.
    bool GetDataAsString(ULONG index, String& out) const;

    /// The form above, in ASCII.
    String ToJson() const;
    /// Replaces the content. False: not of the form above, a value that does not fit its type, or sub-sets nested more
    /// than 100 deep; nothing changed then.
    bool FromJson(const String& json);
    /// Writes a new file of its own name ("<file>.<number>.tmp") in the same folder, flushes it and puts it in the
    /// place of the old one; where path is a link, of the file that it leads to. The file keeps the rights of the old
    /// one; one that was not there can be read and written by its owner only, for settings may hold secrets. Any number
    /// of savers, also of other processes, may work at once. True: the file held this content when the call returned,
    /// unless somebody has saved another since. False: the old file is as it was; also for sub-sets nested more than
    /// 100 deep, which no file may hold, and for something at path that is no file.
    bool SaveToFile(const FilePath& path) const;
    /// Replaces the content. False: the file cannot be read or is damaged, nothing changed.
    bool LoadFromFile(const FilePath& path);

    /// The same keys, types, values and sub-sets in the same order.
    friend KQCOMMON_API bool operator==(const SettingsTransportSet& left, const SettingsTransportSet& right);

private:
    struct ULONG_VALUE
    {
        std::uint32_t value;
        friend bool operator==(const ULONG_VALUE&, const ULONG_VALUE&) = default;
    };
    using VALUE = std::variant<USHORT, ULONG_VALUE, bool, String, TimePos, BinaryStore>;
    struct JSON;

    template <class T> const T* xFind(const String& key) const;

    std::vector<std::pair<String, VALUE>> m_data;
    std::vector<std::pair<String, std::unique_ptr<SettingsTransportSet>>> m_sets;
};

} // namespace kqlib
