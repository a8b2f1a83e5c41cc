#pragma once

namespace tw {

class MainWindow;

// The main window's menus and tool bar: Site (with Quit, Ctrl+Q), Edit
// (Preferences), Deploy, View and Help (documentation, About). Every action
// is named (objectName) and added to the window, so its shortcut works
// wherever the focus is; MainWindow::action finds it by name.
class MainMenus {
public:
    static void build(MainWindow& window);
    // Draws the application's own icons (Deploy) in the window's palette;
    // again whenever the palette changes.
    static void applyIcons(MainWindow& window);
};

} // namespace tw
