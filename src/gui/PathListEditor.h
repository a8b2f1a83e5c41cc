#pragma once

#include <QStringList>
#include <QWidget>

#include <functional>

class QListWidget;

namespace tw {

// One list of repository paths in the site editor (the always-uploaded or
// the ignored files): a heading, a note, the list, and buttons to add a
// file or a folder and to remove the selected entries. Adding asks the
// dialog (which knows the repository and the rules) through the signals.
class PathListEditor : public QWidget {
    Q_OBJECT

public:
    // wrap: puts the list into the widget that shows its problem.
    PathListEditor(const QString& title, const QString& help, const QString& objectName,
                   const std::function<QWidget*(QWidget*)>& wrap, QWidget* parent = nullptr);

    QListWidget* list() const { return m_list; }
    QStringList entries() const;
    void setEntries(const QStringList& entries);
    // Adds the relative path once.
    void addEntry(const QString& relativePath);
    void removeSelected();

signals:
    void chooseRequested(bool folder);

private:
    QListWidget* m_list = nullptr;
};

} // namespace tw
