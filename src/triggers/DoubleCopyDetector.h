#pragma once

#include <QtGlobal>

#include <chrono>
#include <optional>

/// The double-copy rule: the copy shortcut (Ctrl+C, stored as Command with key code 8)
/// pressed twice, the second press strictly less than 0.4 s after the first.
///
/// Fed with every key-down that is not a modifier, its stored key code and modifier mask and
/// the moment it was handled on a steady clock. Any other key-down forgets a pending press,
/// and so does the copy key with Shift, Alt or Super held. Auto-repeated key-downs count like
/// presses.
///
/// Fed instead with every change of the clipboard's owner (`ownerChanged`), the same rule
/// counts copies however they were made: every copy takes the clipboard anew.
class DoubleCopyDetector {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds threshold{400};
    /// Owner changes closer together than this are one copy: toolkits that clear the
    /// clipboard and then set it, clipboard managers that take a copy over at once.
    static constexpr std::chrono::milliseconds settleTime{60};

    /// Whether the key-down is the copy shortcut with no other modifier.
    static bool isLoneCopy(quint32 keyCode, quint32 modifiers);

    /// True when this key-down completes a double copy; the pair is then used up, so a
    /// third press starts a new pair.
    bool keyDown(quint32 keyCode, quint32 modifiers, Clock::time_point at);
    /// True when this owner change completes a double copy. `owner` 0 (the clipboard was
    /// cleared) is no copy; a pair needs the same owner where owners can be told apart.
    bool ownerChanged(quint64 owner, Clock::time_point at);
    void reset();
    bool isPending() const { return m_lastCopy.has_value(); }

private:
    std::optional<Clock::time_point> m_lastCopy;
    std::optional<Clock::time_point> m_lastOwnerChange;
    quint64 m_lastOwner = 0;
};
