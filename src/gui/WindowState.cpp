#include "WindowState.h"

#include "app/Preferences.h"

#include <QMainWindow>
#include <QSplitter>

namespace tw {

const QString WindowState::geometryKey = QStringLiteral("windowGeometry");
const QString WindowState::stateKey = QStringLiteral("windowState");
const QString WindowState::splitterKey = QStringLiteral("splitterState");

void WindowState::save(const QMainWindow& window, const QSplitter& splitter) {
    Preferences& preferences = Preferences::instance();
    preferences.setValue(geometryKey, window.saveGeometry());
    preferences.setValue(stateKey, window.saveState());
    preferences.setValue(splitterKey, splitter.saveState());
    preferences.synchronize();
}

bool WindowState::restore(QMainWindow& window, QSplitter& splitter) {
    Preferences& preferences = Preferences::instance();
    if (const auto state = preferences.dataValue(splitterKey))
        splitter.restoreState(*state);
    if (const auto state = preferences.dataValue(stateKey))
        window.restoreState(*state);
    const auto geometry = preferences.dataValue(geometryKey);
    return geometry && window.restoreGeometry(*geometry);
}

} // namespace tw
