#include "triggers/DoubleCopyDetector.h"

#include "platform/KeyMap.h"

bool DoubleCopyDetector::isLoneCopy(quint32 keyCode, quint32 modifiers)
{
    constexpr quint32 others = KeyMap::shiftMask | KeyMap::optionMask | KeyMap::controlMask;
    return keyCode == KeyMap::copyKeyCode && (modifiers & KeyMap::commandMask) &&
           !(modifiers & others);
}

bool DoubleCopyDetector::keyDown(quint32 keyCode, quint32 modifiers, Clock::time_point at)
{
    if (!isLoneCopy(keyCode, modifiers)) {
        m_lastCopy.reset();
        return false;
    }
    if (m_lastCopy && at - *m_lastCopy < threshold) {
        m_lastCopy.reset();
        return true;
    }
    m_lastCopy = at;
    return false;
}

bool DoubleCopyDetector::ownerChanged(quint64 owner, Clock::time_point at)
{
    if (owner == 0) {
        return false;
    }
    const bool settling = m_lastOwnerChange && at - *m_lastOwnerChange < settleTime;
    m_lastOwnerChange = at;
    if (settling) {
        return false;
    }
    if (m_lastCopy && at - *m_lastCopy < threshold && owner == m_lastOwner) {
        m_lastCopy.reset();
        return true;
    }
    m_lastCopy = at;
    m_lastOwner = owner;
    return false;
}

void DoubleCopyDetector::reset()
{
    m_lastCopy.reset();
    m_lastOwnerChange.reset();
    m_lastOwner = 0;
}
