// TestItem: a small settings object for the tests of the lists and of the transport.
#pragma once

#include "common/SettingsTransferable.h"
#include "common/SettingsTransportSet.h"
#include "common/String.h"

#include <utility>

namespace kqlib {

/// A name and a number under the keys "name" and "number"; an empty name is an error (901), the number 0 a warning
/// (902). Counts how many objects live.
class TestItem : public SettingsTransferable
{
public:
    TestItem() { ++s_living; }
    TestItem(String name, USHORT number)
        : m_name(std::move(name))
        , m_number(number)
    {
        ++s_living;
    }
    TestItem(const TestItem& other)
        : SettingsTransferable(other)
        , m_name(other.m_name)
        , m_number(other.m_number)
    {
        ++s_living;
    }
    TestItem& operator=(const TestItem&) = default;
    ~TestItem() override { --s_living; }

    void Reset() override { *this = TestItem(); }
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override
    {
        return copy ? new TestItem(*this) : new TestItem();
    }
    bool IsSame(const SettingsTransferable& other) const override
    {
        const auto* item = dynamic_cast<const TestItem*>(&other);
        return item != nullptr && item->m_name == m_name && item->m_number == m_number;
    }

    const String& GetName() const { return m_name; }
    USHORT GetNumber() const { return m_number; }
    void SetName(const String& name) { m_name = name; }

    static int sGetLiving() { return s_living; }

protected:
    bool xWriteTo(SettingsTransportSet& set) const override
    {
        return set.AddString("name", m_name) && set.AddUSHORT("number", m_number);
    }
    bool xReadFrom(const SettingsTransportSet& set) override
    {
        set.GetString("name", m_name);
        set.GetUSHORT("number", m_number);
        return true;
    }
    void xCheckErrors(Messages& messages) const override
    {
        if (m_name.empty())
            messages.AddMessage(901);
    }
    void xCheckWarnings(Messages& messages) const override
    {
        if (m_number == 0)
            messages.AddMessage(902);
    }

private:
    String m_name;
    USHORT m_number = 0;
    static inline int s_living = 0;
};

} // namespace kqlib
