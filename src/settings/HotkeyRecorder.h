#pragma once

#include <QQuickItem>
#include <QtQml/qqmlregistration.h>

/// An invisible item that takes the keyboard while `recording` is true and reports the
/// first key pressed with at least one of Ctrl, Shift, Alt and Super, as the stored key
/// code and modifier mask. Keys without a modifier, Esc included, are swallowed and
/// recording goes on; keys the stored encoding has no code for are ignored the same way.
class HotkeyRecorder : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool recording READ recording WRITE setRecording NOTIFY recordingChanged)

public:
    explicit HotkeyRecorder(QQuickItem* parent = nullptr);
    ~HotkeyRecorder() override;

    bool recording() const { return m_recording; }
    void setRecording(bool recording);

signals:
    void recordingChanged();
    void recorded(quint32 keyCode, quint32 modifiers);

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void itemChange(ItemChange change, const ItemChangeData& value) override;

private:
    void updateRecordingFlag();

    bool m_recording = false;
};
