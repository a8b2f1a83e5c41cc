#pragma once

#include "editor/SiteForm.h"

#include <QHash>
#include <QList>
#include <QString>

class QLabel;
class QTabWidget;
class QWidget;

namespace tw {

// The site editor's problem lines: under each field the line that says what
// is wrong with it, and on each tab the warning sign while a field on it has
// a problem.
class FieldProblems {
public:
    void setTabs(QTabWidget* tabs) { m_tabs = tabs; }

    // The field with its (hidden) problem line under it, on the tab given;
    // the widget to put into the form.
    QWidget* wrap(SiteField field, QWidget* fieldWidget, int tab);
    // The widget that takes the focus for the field, when wrap was given a
    // row of several.
    void setFocusWidget(SiteField field, QWidget* widget);
    // The widget wrap made for the field (to hide the form's row).
    QWidget* rowOf(SiteField field) const;

    // Adds a line to the field's problem.
    void show(SiteField field, const QString& text);
    void clear(SiteField field);
    void clearAll();
    // Shows every problem, marks the tabs and brings the first problem's tab
    // to the front with its field focused.
    void showAll(const QList<FieldProblem>& problems);
    QString text(SiteField field) const;
    bool isTabMarked(int tab) const;

private:
    struct Row {
        QWidget* field = nullptr;
        QLabel* problem = nullptr;
        int tab = 0;
    };
    void markTabs();

    QTabWidget* m_tabs = nullptr;
    QHash<int, Row> m_rows; // by SiteField
};

} // namespace tw
