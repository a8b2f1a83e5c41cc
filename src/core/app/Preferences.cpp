#include "Preferences.h"

#include "AppInfo.h"
#include "SystemLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QStandardPaths>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static void initCoreResources() {
    Q_INIT_RESOURCE(core_resources);
}

namespace tw {

namespace {

// What is still waiting goes to disk when the application ends.
void savePreferencesAtExit() {
    Preferences::instance().synchronize();
}

} // namespace

Preferences& Preferences::instance() {
    static Preferences* preferences = new Preferences;
    return *preferences;
}

Preferences::Preferences() {
    const QString configHome = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    m_fileName = configHome + QLatin1Char('/') + AppInfo::folderName() + QStringLiteral("/tarnwell.conf");
    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(saveDelay);
    connect(&m_saveTimer, &QTimer::timeout, this, &Preferences::savePending);
}

Preferences::~Preferences() = default;

QString Preferences::fileName() const {
    QMutexLocker lock(&m_mutex);
    return m_fileName;
}

void Preferences::setFileName(const QString& path) {
    QMutexLocker lock(&m_mutex);
    if (m_settings)
        m_settings->sync();
    m_settings.reset();
    m_lastSeen = FileStamp();
    m_fileName = path;
}

Preferences::FileStamp Preferences::fileStamp() const {
    struct stat info {};
    if (::stat(QFile::encodeName(m_fileName).constData(), &info) != 0)
        return FileStamp();
    return {static_cast<qint64>(info.st_ino), static_cast<qint64>(info.st_size),
            static_cast<qint64>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

void Preferences::syncSettings() const {
    m_settings->sync();
    m_lastSeen = fileStamp();
}

QSettings& Preferences::settings() const {
    if (!m_settings) {
        QDir().mkpath(QFileInfo(m_fileName).absolutePath());
        // Created owner-only before the first write; later saves keep the mode.
        const QByteArray path = QFile::encodeName(m_fileName);
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (fd >= 0)
            ::close(fd);
        m_settings = std::make_unique<QSettings>(m_fileName, QSettings::IniFormat);
        m_lastSeen = fileStamp();
        // QSettings saves the whole file (and waits for the disk) on the
        // next turn of the event loop after every change; its request for
        // that comes through here and is put off instead. A QSettings made
        // on another thread keeps its own way.
        if (m_settings->thread() == thread()) {
            m_settings->installEventFilter(const_cast<Preferences*>(this));
            static const bool atExit = [] {
                qAddPostRoutine(savePreferencesAtExit);
                return true;
            }();
            Q_UNUSED(atExit);
        }
    }
    return *m_settings;
}

bool Preferences::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::UpdateRequest || watched != m_settings.get())
        return QObject::eventFilter(watched, event);
    if (!m_saveTimer.isActive())
        m_saveTimer.start();
    return true;
}

void Preferences::savePending() {
    QMutexLocker lock(&m_mutex);
    if (m_settings)
        syncSettings();
}

void Preferences::reload() {
    QMutexLocker lock(&m_mutex);
    settings();
    if (fileStamp() == m_lastSeen)
        return;
    // QSettings reads the file anew when it changed and writes what waits
    // of ours over it.
    syncSettings();
    ::chmod(QFile::encodeName(m_fileName).constData(), S_IRUSR | S_IWUSR);
}

void Preferences::registerDefaults(const QVariantMap& defaults) {
    QMutexLocker lock(&m_mutex);
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        m_defaults.insert(it.key(), it.value());
}

void Preferences::registerDefaultsFromResource() {
    initCoreResources();
    QFile file(QStringLiteral(":/DefaultPreferences"));
    if (!file.open(QIODevice::ReadOnly)) {
        SystemLog::write(QStringLiteral("TARNWELL - the default preferences are missing"));
        return;
    }
    registerDefaults(QJsonDocument::fromJson(file.readAll()).object().toVariantMap());
}

QVariantMap Preferences::registeredDefaults() const {
    QMutexLocker lock(&m_mutex);
    return m_defaults;
}

QVariant Preferences::value(const QString& key) const {
    QMutexLocker lock(&m_mutex);
    QVariant stored = settings().value(key);
    if (stored.isValid())
        return stored;
    return m_defaults.value(key);
}

bool Preferences::contains(const QString& key) const {
    QMutexLocker lock(&m_mutex);
    return settings().contains(key);
}

bool Preferences::boolValue(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QString) {
        const QString text = v.toString().trimmed().toLower();
        return text == u"true" || text == u"yes" || text.toLongLong() != 0;
    }
    return v.toBool();
}

qint64 Preferences::integerValue(const QString& key) const {
    const QVariant v = value(key);
    bool ok = false;
    if (v.typeId() == QMetaType::QString) {
        const QString text = v.toString().trimmed();
        const qint64 n = text.toLongLong(&ok);
        if (ok)
            return n;
        const double d = text.toDouble(&ok);
        return ok ? static_cast<qint64>(d) : 0;
    }
    const qint64 n = v.toLongLong(&ok);
    return ok ? n : 0;
}

std::optional<QString> Preferences::stringValue(const QString& key) const {
    const QVariant v = value(key);
    switch (v.typeId()) {
    case QMetaType::QString:
        return v.toString();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Double:
    case QMetaType::Bool:
        return v.toString();
    default:
        return std::nullopt;
    }
}

std::optional<QByteArray> Preferences::dataValue(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QByteArray)
        return v.toByteArray();
    return std::nullopt;
}

std::optional<QDateTime> Preferences::dateValue(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QDateTime)
        return v.toDateTime();
    return std::nullopt;
}

void Preferences::setValue(const QString& key, const QVariant& value) {
    {
        QMutexLocker lock(&m_mutex);
        QSettings& s = settings();
        if (s.contains(key) && s.value(key) == value)
            return;
        s.setValue(key, value);
    }
    emit valueChanged(key);
}

void Preferences::remove(const QString& key) {
    {
        QMutexLocker lock(&m_mutex);
        if (!settings().contains(key))
            return;
        settings().remove(key);
    }
    emit valueChanged(key);
}

bool Preferences::synchronize() {
    QMutexLocker lock(&m_mutex);
    QSettings& s = settings();
    syncSettings();
    // The file holds the person's server settings: owner only.
    ::chmod(QFile::encodeName(m_fileName).constData(), S_IRUSR | S_IWUSR);
    return s.status() == QSettings::NoError;
}

} // namespace tw
