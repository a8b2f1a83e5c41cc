#pragma once

#include <QDateTime>
#include <QObject>
#include <QRecursiveMutex>
#include <QVariantMap>

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

signals:
    void valueChanged(const QString& key);

private:
    Preferences();
    ~Preferences() override;
    QSettings& settings() const;

    mutable QRecursiveMutex m_mutex;
    mutable std::unique_ptr<QSettings> m_settings;
    QString m_fileName;
    QVariantMap m_defaults;
};

} // namespace tw
