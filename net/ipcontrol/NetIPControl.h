// NetIPControl: an ordered list of allow and deny rules.
#pragma once

#include "common/SettingsTransferable.h"
#include "common/Vector.h"
#include "net/ipcontrol/NetIPControlEntry.h"

#include <memory>

namespace kqlib {

class NetIPControlIndex;
class NetIPControlIndexShare;

/// The rules of one purpose, in the order in which they are evaluated (NetIPControlQuery). Fill it with Add or from
/// settings, let the user move rules, hand it to a query.
///
/// Settings form: one unnamed String per rule, its text form, in order. Reading appends; items that are no rules are
/// dropped without a message.
///
/// Long lists are fine: a list that has been evaluated some dozens of times keeps an index over its rules, which its
/// copies share until they change.
///
/// Ownership: a plain value. Threads: one at a time; any number may evaluate a list while nobody changes it. Errors: a
/// list never reports its rules' errors. An index at or past the count is the caller's error: every operation that
/// takes one asserts in a debug build, and otherwise throws std::out_of_range and changes nothing.
class KQNET_API NetIPControl : public SettingsTransferable
{
public:
    /// No rules: everything is allowed.
    NetIPControl() = default;
    NetIPControl(const NetIPControl&) = default;
    /// Without memory for all rules: std::bad_alloc, and this list is as it was.
    NetIPControl& operator=(const NetIPControl& other);

    /// Removes every rule.
    void Reset() override;
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override;

    /// Appends a copy of the rule, which is evaluated last.
    void Add(const NetIPControlEntry& entry);
    /// Appends copies of all rules of other, in their order.
    void Append(const NetIPControl& other);
    /// Removes the rule; later ones move up by one.
    void Remove(ULONG index);
    /// Puts a copy of entry in the place of the rule.
    void Update(ULONG index, const NetIPControlEntry& entry);
    /// The rule at index, valid until the list changes.
    const NetIPControlEntry& Get(ULONG index) const;
    /// How many rules there are.
    ULONG GetCount() const;

    /// Moves return the rule's new index. At the end already: nothing happens.
    ///@{
    ULONG MoveUp(ULONG index);
    ULONG MoveDown(ULONG index);
    ULONG MoveTop(ULONG index);
    ULONG MoveBottom(ULONG index);
    ///@}

    bool IsSame(const SettingsTransferable& other) const override;
    /// The same rules in the same order.
    ///@{
    bool IsSame(const NetIPControl& other) const;
    friend bool operator==(const NetIPControl& left, const NetIPControl& right) { return left.IsSame(right); }
    ///@}

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;

private:
    friend class NetIPControlQuery;

    const NetIPControlIndex* xGetIndex() const;
    void xForgetIndex();
    ULONG xMove(ULONG from, ULONG to);
    void xCheckIndex(ULONG index) const;

    Vector<NetIPControlEntry> m_rules;
    std::shared_ptr<NetIPControlIndexShare> m_index; ///< of these rules; null: walk them
};

} // namespace kqlib
