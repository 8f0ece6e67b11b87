#include "net/ipcontrol/NetIPControl.h"

#include "common/SettingsTransportSet.h"
#include "net/ipcontrol/NetIPControlIndexShare.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <utility>

namespace kqlib {

NetIPControl& NetIPControl::operator=(const NetIPControl& other)
{
    // Copied aside first: half a list could lack the rule at its end that denies the rest.
    Vector<NetIPControlEntry> rules(other.m_rules);
    m_rules = std::move(rules);
    m_index = other.m_index;
    return *this;
}

void NetIPControl::Reset()
{
    m_rules.Reset();
    m_index.reset();
}

SettingsTransferable* NetIPControl::Spawn(bool copy) const
{
    return copy ? new NetIPControl(*this) : new NetIPControl();
}

void NetIPControl::Add(const NetIPControlEntry& entry)
{
    xForgetIndex();
    m_rules.Add(entry);
}

void NetIPControl::Append(const NetIPControl& other)
{
    // The count is taken first, so that a list can be appended to itself; each rule is copied before the array grows.
    const ULONG count = other.GetCount();
    for (ULONG index = 0; index < count; ++index)
        Add(NetIPControlEntry(other.Get(index)));
}

void NetIPControl::Remove(ULONG index)
{
    xCheckIndex(index);
    xForgetIndex();
    m_rules.Delete(index);
}

void NetIPControl::Update(ULONG index, const NetIPControlEntry& entry)
{
    xCheckIndex(index);
    xForgetIndex();
    m_rules.Get(index) = entry;
}

const NetIPControlEntry& NetIPControl::Get(ULONG index) const
{
    xCheckIndex(index);
    return m_rules.Get(index);
}

ULONG NetIPControl::GetCount() const
{
    return m_rules.GetCount();
}

ULONG NetIPControl::MoveUp(ULONG index)
{
    return xMove(index, index == 0 ? 0 : index - 1);
}

ULONG NetIPControl::MoveDown(ULONG index)
{
    return xMove(index, index + 1 == GetCount() ? index : index + 1);
}

ULONG NetIPControl::MoveTop(ULONG index)
{
    return xMove(index, 0);
}

ULONG NetIPControl::MoveBottom(ULONG index)
{
    return xMove(index, GetCount() - 1);
}

ULONG NetIPControl::xMove(ULONG from, ULONG to)
{
    xCheckIndex(from);
    xForgetIndex();
    const auto first = m_rules.begin();
    const auto source = first + static_cast<std::ptrdiff_t>(from);
    const auto target = first + static_cast<std::ptrdiff_t>(to);
    if (from < to)
        std::rotate(source, source + 1, target + 1);
    else
        std::rotate(target, source, source + 1);
    return to;
}

/// Null: the rules are to be walked.
const NetIPControlIndex* NetIPControl::xGetIndex() const
{
    return m_index ? m_index->Get(*this) : nullptr;
}

/// Comes before every change, so that one that fails half-way is not decided about by what was before it. It fails
/// never: without memory the rules are walked until the next change.
void NetIPControl::xForgetIndex()
{
    m_index.reset();
    try {
        m_index = std::make_shared<NetIPControlIndexShare>();
    } catch (const std::bad_alloc&) {
    }
}

void NetIPControl::xCheckIndex(ULONG index) const
{
    assert(index < GetCount());
    if (index >= GetCount())
        throw std::out_of_range("NetIPControl: no rule at this index");
}

bool NetIPControl::IsSame(const SettingsTransferable& other) const
{
    const auto* list = dynamic_cast<const NetIPControl*>(&other);
    return list != nullptr && IsSame(*list);
}

bool NetIPControl::IsSame(const NetIPControl& other) const
{
    return std::equal(m_rules.begin(), m_rules.end(), other.m_rules.begin(), other.m_rules.end());
}

bool NetIPControl::xWriteTo(SettingsTransportSet& set) const
{
    bool written = true;
    for (const NetIPControlEntry& rule : m_rules)
        written = set.AddString(SettingsTransportSet::UNNAMED, rule.GetAsString()) && written;
    return written;
}

bool NetIPControl::xReadFrom(const SettingsTransportSet& set)
{
    NetIPControlEntry rule;
    String text;
    for (ULONG index = 0; index < set.GetDataCount(); ++index)
        if (set.GetDataAsString(index, text) && rule.SetByString(text))
            Add(rule);
    return true;
}

} // namespace kqlib
