#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace tw {

// The preferences: how many connections a deployment opens
// ("maxConnections"), debug lines in the log ("debugEnabled"), full paths in
// the file list ("showFullPath") and the PATH given to scripts
// ("environmentPaths"). Every change is stored at once, as desktop
// preferences are; the version is shown below (updates come from the
// system's package manager).
class PreferencesDialog : public QDialog {
    Q_OBJECT

public:
    explicit PreferencesDialog(QWidget* parent = nullptr);

    QSpinBox* maxConnectionsField() const { return m_maxConnections; }
    QCheckBox* debugField() const { return m_debug; }
    QCheckBox* showFullPathField() const { return m_showFullPath; }
    QLineEdit* environmentPathsField() const { return m_environmentPaths; }
    QLabel* versionLabel() const { return m_version; }

    // Reads the stored values into the fields.
    void load();

    static constexpr int maximumConnections = 10;

private:
    void storeEnvironmentPaths();

    QSpinBox* m_maxConnections;
    QCheckBox* m_debug;
    QCheckBox* m_showFullPath;
    QLineEdit* m_environmentPaths;
    QLabel* m_version;
    bool m_loading = false;
};

} // namespace tw
