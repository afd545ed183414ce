#include "settings/PromptListEditor.h"

#include "model/PreferenceStore.h"
#include "model/PromptStore.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "settings/HotkeyConflict.h"
#include "settings/SettingsLogging.h"

#include <algorithm>

Q_LOGGING_CATEGORY(lcSettings, "ravelo.settings", QtInfoMsg)

PromptListEditor::PromptListEditor(QObject* parent)
    : QAbstractListModel(parent)
{}

void PromptListEditor::setPreferences(PreferenceStore* preferences)
{
    if (m_preferences == preferences) {
        return;
    }
    m_preferences = preferences;
    reloadHotkeys();
    emit preferencesChanged();
}

int PromptListEditor::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant PromptListEditor::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const Prompt& prompt = m_prompts.at(index.row());
    switch (role) {
    case IdRole:
        return prompt.idText();
    case NumberRole:
        return prompt.number;
    case Qt::DisplayRole:
    case TitleRole:
        return prompt.title;
    case SystemPromptRole:
        return prompt.systemPrompt;
    case HotkeyRole: {
        const auto hotkey = m_hotkeys.constFind(prompt.id);
        return hotkey == m_hotkeys.cend() ? QString()
                                          : KeyMap::displayText(hotkey->keyCode, hotkey->modifiers);
    }
    default:
        return {};
    }
}

QHash<int, QByteArray> PromptListEditor::roleNames() const
{
    return {{IdRole, "promptId"},
            {NumberRole, "number"},
            {TitleRole, "title"},
            {SystemPromptRole, "systemPrompt"},
            {HotkeyRole, "hotkey"}};
}

void PromptListEditor::load(const QList<Prompt>& prompts)
{
    const int before = count();
    beginResetModel();
    m_prompts = prompts;
    if (m_preferences) {
        m_hotkeys = PromptHotkeys::load(*m_preferences);
    }
    endResetModel();
    if (before != count()) {
        emit countChanged();
    }
}

void PromptListEditor::editPrompt(int row)
{
    if (row < 0 || row >= count()) {
        return;
    }
    setEditing(m_prompts.at(row), false);
}

void PromptListEditor::addPrompt()
{
    qint64 highest = 0;
    for (const Prompt& prompt : std::as_const(m_prompts)) {
        highest = std::max(highest, prompt.number);
    }
    setEditing(Prompt::create(highest + 1, QString(), QString()), true);
}

void PromptListEditor::savePrompt(const Prompt& prompt)
{
    const auto found = std::find_if(m_prompts.begin(), m_prompts.end(),
                                    [&](const Prompt& p) { return p.id == prompt.id; });
    if (found != m_prompts.end()) {
        *found = prompt;
        const QModelIndex changed = index(int(found - m_prompts.begin()));
        emit dataChanged(changed, changed);
    } else {
        beginInsertRows({}, count(), count());
        m_prompts.append(prompt);
        endInsertRows();
        emit countChanged();
    }
    renumber();
    commit();
    setEditing(std::nullopt, false);
}

void PromptListEditor::saveEditing(const QString& title, const QString& systemPrompt)
{
    if (!m_editingPrompt) {
        return;
    }
    Prompt edited = *m_editingPrompt;
    edited.title = title;
    edited.systemPrompt = systemPrompt;
    const std::optional<StoredHotkey> hotkey = m_editingHotkey;
    savePrompt(edited);
    if (!m_preferences) {
        return;
    }
    PromptHotkeys::Map hotkeys = PromptHotkeys::load(*m_preferences);
    const auto stored = hotkeys.constFind(edited.id);
    const std::optional<StoredHotkey> before =
        stored == hotkeys.cend() ? std::nullopt : std::optional(*stored);
    if (before == hotkey) {
        return;
    }
    if (hotkey) {
        hotkeys.insert(edited.id, *hotkey);
    } else {
        hotkeys.remove(edited.id);
    }
    PromptHotkeys::save(*m_preferences, hotkeys);
    reloadHotkeys();
}

QString PromptListEditor::editingHotkey() const
{
    return m_editingHotkey
               ? KeyMap::displayText(m_editingHotkey->keyCode, m_editingHotkey->modifiers)
               : QString();
}

bool PromptListEditor::hotkeysAvailable()
{
    return PlatformServices::hotkeyPath() != PlatformServices::HotkeyPath::DesktopShortcut;
}

bool PromptListEditor::recordHotkey(quint32 keyCode, quint32 modifiers)
{
    if (!m_editingPrompt) {
        return false;
    }
    const StoredHotkey hotkey{keyCode, modifiers};
    const QString conflict =
        m_preferences ? HotkeyConflict::forPrompt(*m_preferences, hotkey, m_editingPrompt->id)
                      : QString();
    setHotkeyConflict(conflict);
    if (!conflict.isEmpty()) {
        return false;
    }
    setEditingHotkey(hotkey);
    return true;
}

void PromptListEditor::clearHotkey()
{
    setHotkeyConflict(QString());
    setEditingHotkey(std::nullopt);
}

void PromptListEditor::cancelEdit()
{
    setEditing(std::nullopt, false);
}

void PromptListEditor::deletePrompt(const QString& id)
{
    bool removed = false;
    for (int row = count() - 1; row >= 0; --row) {
        if (m_prompts.at(row).idText().compare(id, Qt::CaseInsensitive) == 0) {
            beginRemoveRows({}, row, row);
            m_prompts.removeAt(row);
            endRemoveRows();
            removed = true;
        }
    }
    if (!removed) {
        return;
    }
    emit countChanged();
    renumber();
    commit();
    if (m_preferences) {
        PromptHotkeys::Map hotkeys = PromptHotkeys::load(*m_preferences);
        if (hotkeys.remove(QUuid(id)) > 0) {
            PromptHotkeys::save(*m_preferences, hotkeys);
            reloadHotkeys();
        }
    }
}

void PromptListEditor::movePrompts(const QList<int>& rows, int destination)
{
    QList<int> sources;
    for (int row : rows) {
        if (row >= 0 && row < count() && !sources.contains(row)) {
            sources.append(row);
        }
    }
    if (sources.isEmpty()) {
        return;
    }
    std::sort(sources.begin(), sources.end());
    destination = std::clamp(destination, 0, count());

    if (sources.size() == 1) {
        const int from = sources.front();
        // A row dropped onto its own place or just below it stays where it is.
        if (destination != from && destination != from + 1) {
            beginMoveRows({}, from, from, {}, destination);
            m_prompts.move(from, destination > from ? destination - 1 : destination);
            endMoveRows();
        }
    } else {
        beginResetModel();
        QList<Prompt> moved;
        int before = 0;
        for (auto it = sources.crbegin(); it != sources.crend(); ++it) {
            moved.prepend(m_prompts.takeAt(*it));
            if (*it < destination) {
                ++before;
            }
        }
        const int at = destination - before;
        for (qsizetype i = 0; i < moved.size(); ++i) {
            m_prompts.insert(at + i, moved.at(i));
        }
        endResetModel();
    }
    renumber();
    commit();
}

void PromptListEditor::movePrompt(int from, int to)
{
    if (from < 0 || from >= count() || to < 0 || to >= count() || from == to) {
        return;
    }
    movePrompts({from}, to > from ? to + 1 : to);
}

void PromptListEditor::resetToDefaults()
{
    const int before = count();
    beginResetModel();
    m_prompts = Prompt::defaults();
    endResetModel();
    if (before != count()) {
        emit countChanged();
    }
    commit();
    if (m_preferences && !PromptHotkeys::load(*m_preferences).isEmpty()) {
        PromptHotkeys::save(*m_preferences, {});
        reloadHotkeys();
    }
}

void PromptListEditor::renumber()
{
    for (qsizetype i = 0; i < m_prompts.size(); ++i) {
        if (m_prompts[i].number != i + 1) {
            m_prompts[i].number = i + 1;
            const QModelIndex changed = index(int(i));
            emit dataChanged(changed, changed, {NumberRole});
        }
    }
}

void PromptListEditor::commit()
{
    if (!m_preferences) {
        qCWarning(lcSettings) << "The prompt list has no preference store; the change is not saved";
        return;
    }
    PromptStore::save(*m_preferences, m_prompts);
    emit committed(PromptStore::load(*m_preferences));
}

void PromptListEditor::setEditing(std::optional<Prompt> prompt, bool isNew)
{
    if (!prompt && !m_editingPrompt) {
        return;
    }
    m_editingPrompt = std::move(prompt);
    m_isNewPrompt = isNew;
    setHotkeyConflict(QString());
    const auto hotkey =
        m_editingPrompt ? m_hotkeys.constFind(m_editingPrompt->id) : m_hotkeys.cend();
    setEditingHotkey(hotkey == m_hotkeys.cend() ? std::nullopt : std::optional(*hotkey));
    emit editingChanged();
}

void PromptListEditor::setEditingHotkey(std::optional<StoredHotkey> hotkey)
{
    if (m_editingHotkey == hotkey) {
        return;
    }
    m_editingHotkey = hotkey;
    emit editingHotkeyChanged();
}

void PromptListEditor::setHotkeyConflict(const QString& text)
{
    if (m_hotkeyConflict == text) {
        return;
    }
    m_hotkeyConflict = text;
    emit hotkeyConflictChanged();
}

void PromptListEditor::reloadHotkeys()
{
    PromptHotkeys::Map hotkeys =
        m_preferences ? PromptHotkeys::load(*m_preferences) : PromptHotkeys::Map();
    if (hotkeys == m_hotkeys) {
        return;
    }
    m_hotkeys = std::move(hotkeys);
    if (count() > 0) {
        emit dataChanged(index(0), index(count() - 1), {HotkeyRole});
    }
}
