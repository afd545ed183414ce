#include "platform/x11/X11GlobalKeyMonitor.h"

#include "platform/x11/X11Connection.h"

X11GlobalKeyMonitor::~X11GlobalKeyMonitor()
{
    stop();
}

bool X11GlobalKeyMonitor::start()
{
    if (m_active) {
        return true;
    }
    // The connection stays open once made: every preference change re-arms the triggers,
    // and reading the keymap again for each of them would be wasted work.
    if (!m_connection || m_connection->isBroken()) {
        m_connection = X11Connection::shared();
    }
    if (!m_connection || !m_connection->acquireRawKeyPresses()) {
        return false;
    }
    connect(m_connection.get(), &X11Connection::rawKeyPressed, this,
            &X11GlobalKeyMonitor::handleRawKeyPress);
    m_active = true;
    return true;
}

void X11GlobalKeyMonitor::stop()
{
    if (!m_active) {
        return;
    }
    m_active = false;
    disconnect(m_connection.get(), &X11Connection::rawKeyPressed, this,
               &X11GlobalKeyMonitor::handleRawKeyPress);
    m_connection->releaseRawKeyPresses();
}

void X11GlobalKeyMonitor::handleRawKeyPress(quint8 keycode)
{
    // Pressing or releasing a modifier alone is no key-down of its own.
    if (m_connection->isModifierKey(keycode)) {
        return;
    }
    emit keyPressed(m_connection->virtualKeyCode(keycode), m_connection->currentModifiers());
}
