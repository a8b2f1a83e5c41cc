#pragma once

#include <QByteArray>
#include <QString>

class QMainWindow;
class QSplitter;

namespace tw {

// The main window's size, position and splitter between sessions, kept in
// the preferences under "windowGeometry", "windowState" and "splitterState".
// The sidebar's own state is "sitesCollapsed" (SitesSidebar).
class WindowState {
public:
    static void save(const QMainWindow& window, const QSplitter& splitter);
    // Answers whether a stored geometry was applied.
    static bool restore(QMainWindow& window, QSplitter& splitter);

    static const QString geometryKey;
    static const QString stateKey;
    static const QString splitterKey;
};

} // namespace tw
