#include "PreferencesDialog.h"

#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "deploy/ScriptRunner.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>

namespace tw {

namespace {

const QString maxConnectionsKey = QStringLiteral("maxConnections");
const QString debugKey = QStringLiteral("debugEnabled");
const QString showFullPathKey = QStringLiteral("showFullPath");
const QString environmentPathsKey = QStringLiteral("environmentPaths");

void store(const QString& key, const QVariant& value) {
    Preferences::instance().setValue(key, value);
    Preferences::instance().synchronize();
}

} // namespace

PreferencesDialog::PreferencesDialog(QWidget* parent)
    : QDialog(parent)
    , m_maxConnections(new QSpinBox(this))
    , m_debug(new QCheckBox(tr("Write debug lines to the log"), this))
    , m_showFullPath(new QCheckBox(tr("Show the full path of each file"), this))
    , m_environmentPaths(new QLineEdit(this))
    , m_version(new QLabel(this)) {
    setWindowTitle(tr("Preferences"));
    setMinimumWidth(480);

    m_maxConnections->setRange(1, maximumConnections);
    m_maxConnections->setMaximumWidth(
        m_maxConnections->fontMetrics().horizontalAdvance(QStringLiteral("0000")) + 48);
    m_maxConnections->setToolTip(tr("How many transfers run at the same time during a deployment"));
    m_environmentPaths->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_environmentPaths->setPlaceholderText(ScriptRunner().defaultPaths());
    m_environmentPaths->setToolTip(tr("The PATH of deployment scripts, folders separated by colons. "
                                      "Empty: the usual system folders."));
    m_version->setObjectName(QStringLiteral("versionLabel"));
    m_version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_version->setText(tr("%1 %2. Updates come with your system's software updates.")
                           .arg(AppInfo::productName(), AppInfo::version()));
    m_version->setWordWrap(true);

    auto* form = new QFormLayout;
    m_maxConnections->setAccessibleName(tr("Simultaneous connections"));
    m_environmentPaths->setAccessibleName(tr("Script PATH"));
    form->addRow(tr("Simultaneous connections:"), m_maxConnections);
    form->addRow(tr("File list:"), m_showFullPath);
    form->addRow(tr("Script PATH:"), m_environmentPaths);
    form->addRow(tr("Log:"), m_debug);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &PreferencesDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addSpacing(10);
    layout->addWidget(m_version);
    layout->addWidget(buttons);

    load();
    connect(m_maxConnections, &QSpinBox::valueChanged, this, [this](int value) {
        if (!m_loading)
            store(maxConnectionsKey, value);
    });
    connect(m_debug, &QCheckBox::toggled, this, [this](bool on) {
        if (!m_loading)
            store(debugKey, on);
    });
    connect(m_showFullPath, &QCheckBox::toggled, this, [this](bool on) {
        if (!m_loading)
            store(showFullPathKey, on);
    });
    connect(m_environmentPaths, &QLineEdit::editingFinished, this, &PreferencesDialog::storeEnvironmentPaths);
    connect(this, &QDialog::finished, this, &PreferencesDialog::storeEnvironmentPaths);
}

void PreferencesDialog::load() {
    m_loading = true;
    Preferences& preferences = Preferences::instance();
    const qint64 connections = preferences.integerValue(maxConnectionsKey);
    m_maxConnections->setValue(static_cast<int>(std::clamp<qint64>(connections, 1, maximumConnections)));
    m_debug->setChecked(preferences.boolValue(debugKey));
    m_showFullPath->setChecked(preferences.boolValue(showFullPathKey));
    m_environmentPaths->setText(preferences.stringValue(environmentPathsKey).value_or(QString()));
    m_loading = false;
}

void PreferencesDialog::storeEnvironmentPaths() {
    if (m_loading)
        return;
    const QString paths = m_environmentPaths->text().trimmed();
    Preferences& preferences = Preferences::instance();
    if (paths.isEmpty()) {
        // No value: scripts get the usual system folders.
        if (preferences.contains(environmentPathsKey)) {
            preferences.remove(environmentPathsKey);
            preferences.synchronize();
        }
        return;
    }
    if (preferences.stringValue(environmentPathsKey) != paths)
        store(environmentPathsKey, paths);
}

} // namespace tw
