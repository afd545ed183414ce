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

void DoubleCopyDetector::reset()
{
    m_lastCopy.reset();
}
