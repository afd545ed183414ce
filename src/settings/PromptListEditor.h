#pragma once

#include "model/Prompt.h"
#include "model/PromptHotkeys.h"

#include <QAbstractListModel>
#include <QPointer>
#include <QtQml/qqmlregistration.h>

#include <optional>

class PreferenceStore;

/// The Prompts tab's working copy of the prompt list. Every change renumbers the copy
/// 1…n (a reset keeps the defaults' own numbers), stores it and announces the list as
/// read back from the store in `committed`, which the tab hands to the application state
/// so that the quick panel follows at once. The copy itself is not replaced by that list.
class PromptListEditor : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT
    Q_MOC_INCLUDE("model/PreferenceStore.h")
    Q_PROPERTY(PreferenceStore* preferences READ preferences WRITE setPreferences NOTIFY
                   preferencesChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    /// Whether a prompt is open in the editor.
    Q_PROPERTY(bool editing READ editing NOTIFY editingChanged)
    Q_PROPERTY(Prompt editingPrompt READ editingPrompt NOTIFY editingChanged)
    Q_PROPERTY(bool isNewPrompt READ isNewPrompt NOTIFY editingChanged)
    /// The open prompt's global hotkey as the editor shows it; empty when it has none.
    Q_PROPERTY(QString editingHotkey READ editingHotkey NOTIFY editingHotkeyChanged)
    /// Why the last combination recorded in the editor was refused; empty otherwise.
    Q_PROPERTY(QString hotkeyConflict READ hotkeyConflict NOTIFY hotkeyConflictChanged)
    /// Whether this session gives Ravelo global hotkeys of its own at all.
    Q_PROPERTY(bool hotkeysAvailable READ hotkeysAvailable CONSTANT)

public:
    enum Role { IdRole = Qt::UserRole + 1, NumberRole, TitleRole, SystemPromptRole, HotkeyRole };
    Q_ENUM(Role)

    explicit PromptListEditor(QObject* parent = nullptr);

    PreferenceStore* preferences() const { return m_preferences; }
    void setPreferences(PreferenceStore* preferences);

    int count() const { return int(m_prompts.size()); }
    QList<Prompt> prompts() const { return m_prompts; }

    bool editing() const { return m_editingPrompt.has_value(); }
    Prompt editingPrompt() const { return m_editingPrompt.value_or(Prompt{}); }
    bool isNewPrompt() const { return m_isNewPrompt; }
    QString editingHotkey() const;
    QString hotkeyConflict() const { return m_hotkeyConflict; }
    static bool hotkeysAvailable();

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Takes the list to work on; the tab passes the application's list each time it shows.
    Q_INVOKABLE void load(const QList<Prompt>& prompts);

    Q_INVOKABLE void editPrompt(int row);
    /// Opens the editor on a new, empty prompt numbered after the highest number; the
    /// list is unchanged until it is saved.
    Q_INVOKABLE void addPrompt();
    /// Puts the prompt in place of the one with its id, or at the end when none has it,
    /// then closes the editor.
    Q_INVOKABLE void savePrompt(const Prompt& prompt);
    /// Saves the prompt open in the editor with these texts and the hotkey chosen there.
    Q_INVOKABLE void saveEditing(const QString& title, const QString& systemPrompt);
    Q_INVOKABLE void cancelEdit();
    /// Gives the open prompt this combination (stored when the prompt is saved); one that
    /// opens the panel or runs another prompt is refused with `hotkeyConflict`.
    Q_INVOKABLE bool recordHotkey(quint32 keyCode, quint32 modifiers);
    Q_INVOKABLE void clearHotkey();

    /// Removes every prompt with this id, and its hotkey.
    Q_INVOKABLE void deletePrompt(const QString& id);
    /// Moves the rows to `destination`, an index into the list before the move; the moved
    /// rows keep their order.
    Q_INVOKABLE void movePrompts(const QList<int>& rows, int destination);
    /// Moves one row so that it ends up at position `to` (used by drags and the keyboard).
    Q_INVOKABLE void movePrompt(int from, int to);
    Q_INVOKABLE void resetToDefaults();

signals:
    void preferencesChanged();
    void countChanged();
    void editingChanged();
    void editingHotkeyChanged();
    void hotkeyConflictChanged();
    /// The list as stored after a change, sorted by number as the store reads it.
    void committed(const QList<Prompt>& stored);

private:
    void renumber();
    void commit();
    void setEditing(std::optional<Prompt> prompt, bool isNew);
    void setEditingHotkey(std::optional<StoredHotkey> hotkey);
    void setHotkeyConflict(const QString& text);
    void reloadHotkeys();

    QPointer<PreferenceStore> m_preferences;
    QList<Prompt> m_prompts;
    std::optional<Prompt> m_editingPrompt;
    bool m_isNewPrompt = false;
    PromptHotkeys::Map m_hotkeys;
    std::optional<StoredHotkey> m_editingHotkey;
    QString m_hotkeyConflict;
};
