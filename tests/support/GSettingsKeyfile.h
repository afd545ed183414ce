#pragma once

#include <QString>
#include <QStringList>

/// The real GSettings with its keyfile backend in the test's own XDG_CONFIG_HOME: what the
/// `gsettings` program writes there never reaches the developer's desktop.
class GSettingsKeyfile {
public:
    /// Selects the keyfile backend for this process and those it starts, and empties it.
    static void reset();
    /// `gsettings get` of one key, as printed ("'<Super>c'", "@as []").
    static QString get(const QString& schema, const QString& key);
    static bool set(const QString& schema, const QString& key, const QString& value);

    /// The list of GNOME's custom shortcut paths, and a key of one entry.
    static QStringList customPaths();
    static QString entryValue(const QString& path, const QString& key);
    /// Adds a custom shortcut of someone else's at PATH, as GNOME's Settings would.
    static void addForeignShortcut(const QString& path, const QString& binding);
};
