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
};

} // namespace tw
