#pragma once

#include <QDateTime>
#include <QObject>
#include <QRecursiveMutex>
#include <QTimer>
#include <QVariantMap>

#include <chrono>
#include <memory>
#include <optional>

class QSettings;

namespace tw {

// The user's preferences: the one place through which the program reads and
// writes them. Values live in an INI file in the XDG config folder
// ($XDG_CONFIG_HOME/tarnwell/tarnwell.conf, mode 0600 since it holds the
// archived site list). Reads fall back to the registered defaults, which come
// from the resource "DefaultPreferences". Every write that changes a value
// emits valueChanged with its key.
//
// Writes reach the file on their own a moment later (at most one save a
// second, and when the application ends), or at once with synchronize(): a
// deployment counts every file it uploads, and saving the whole file for
// each of them cost more than the uploads.
class Preferences : public QObject {
    Q_OBJECT

public:
    static Preferences& instance();

    // Where the values are stored. Tests and the command line may point the
    // preferences elsewhere before first use.
    QString fileName() const;
    void setFileName(const QString& path);

    void registerDefaults(const QVariantMap& defaults);
    // Registers the defaults shipped in the resource "DefaultPreferences".
    void registerDefaultsFromResource();
    QVariantMap registeredDefaults() const;

    // Stored value, else the registered default, else an invalid QVariant.
    QVariant value(const QString& key) const;
    // True when a value is stored (defaults do not count).
    bool contains(const QString& key) const;

    bool boolValue(const QString& key) const;
    qint64 integerValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<QByteArray> dataValue(const QString& key) const;
    std::optional<QDateTime> dateValue(const QString& key) const;

    void setValue(const QString& key, const QVariant& value);
    void setBool(const QString& key, bool value) { setValue(key, value); }
    void setInteger(const QString& key, qint64 value) { setValue(key, value); }
    void remove(const QString& key);

    // Forces the values to disk.
    bool synchronize();
    // Reads the file again when another process (the command line beside the
    // window) has written it since this one last read or wrote it. Changes
    // of our own that wait for the delayed save are kept: they are saved over
    // what was read. Call before every read that a change will be built on.
    void reload();

    // How long a write may wait before it is saved without synchronize().
    static constexpr std::chrono::milliseconds saveDelay{1000};

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    void valueChanged(const QString& key);

private:
    Preferences();
    ~Preferences() override;
    QSettings& settings() const;
    void savePending();
    // Syncs and notes the file as it is then.
    void syncSettings() const;
    // What tells one version of the file from another: a save replaces the
    // file, so its inode changes even when size and time stay.
    struct FileStamp {
        qint64 inode = -1;
        qint64 size = -1;
        qint64 modifiedNanoseconds = -1;
        bool operator==(const FileStamp&) const = default;
    };
    FileStamp fileStamp() const;

    mutable QRecursiveMutex m_mutex;
    mutable std::unique_ptr<QSettings> m_settings;
    QString m_fileName;
    mutable FileStamp m_lastSeen; // the file as this process last read or wrote it
    QVariantMap m_defaults;
    QTimer m_saveTimer;
};

} // namespace tw
