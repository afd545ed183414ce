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
class DoubleCopyDetector {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds threshold{400};

    /// Whether the key-down is the copy shortcut with no other modifier.
    static bool isLoneCopy(quint32 keyCode, quint32 modifiers);

    /// True when this key-down completes a double copy; the pair is then used up, so a
    /// third press starts a new pair.
    bool keyDown(quint32 keyCode, quint32 modifiers, Clock::time_point at);
    void reset();
    bool isPending() const { return m_lastCopy.has_value(); }

private:
    std::optional<Clock::time_point> m_lastCopy;
};
