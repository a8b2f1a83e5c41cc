#include "FieldProblems.h"

#include "ThemeColors.h"

#include <QCoreApplication>
#include <QLabel>
#include <QSet>
#include <QStyle>
#include <QTabWidget>
#include <QVBoxLayout>

namespace tw {

namespace {

int key(SiteField field) {
    return static_cast<int>(field);
}

} // namespace

QWidget* FieldProblems::wrap(SiteField field, QWidget* fieldWidget, int tab) {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(fieldWidget);
    auto* problem = new QLabel(box);
    problem->setWordWrap(true);
    problem->setTextFormat(Qt::PlainText);
    problem->setStyleSheet(ThemeColors::styleSheetColor(ThemeColors::errorText(box->palette())));
    problem->hide();
    problem->setObjectName(QStringLiteral("problem-") + SiteForm::fieldName(field));
    layout->addWidget(problem);
    m_rows.insert(key(field), Row{fieldWidget, problem, tab});
    return box;
}

void FieldProblems::setFocusWidget(SiteField field, QWidget* widget) {
    m_rows[key(field)].field = widget;
}

QWidget* FieldProblems::rowOf(SiteField field) const {
    const auto row = m_rows.constFind(key(field));
    return row == m_rows.constEnd() ? nullptr : row->problem->parentWidget();
}

void FieldProblems::show(SiteField field, const QString& text) {
    const auto row = m_rows.constFind(key(field));
    if (row == m_rows.constEnd())
        return;
    QLabel* label = row->problem;
    label->setText(label->text().isEmpty() ? text : label->text() + QLatin1Char('\n') + text);
    label->setVisible(!label->text().isEmpty());
    markTabs();
}

void FieldProblems::clear(SiteField field) {
    const auto row = m_rows.constFind(key(field));
    if (row == m_rows.constEnd())
        return;
    row->problem->clear();
    row->problem->hide();
    markTabs();
}

void FieldProblems::clearAll() {
    for (const Row& row : std::as_const(m_rows)) {
        row.problem->clear();
        row.problem->hide();
    }
    markTabs();
}

void FieldProblems::showAll(const QList<FieldProblem>& problems) {
    clearAll();
    for (const FieldProblem& problem : problems)
        show(problem.field, problem.message);
    if (problems.isEmpty())
        return;
    const auto row = m_rows.constFind(key(problems.constFirst().field));
    if (row != m_rows.constEnd() && m_tabs) {
        m_tabs->setCurrentIndex(row->tab);
        row->field->setFocus();
    }
}

QString FieldProblems::text(SiteField field) const {
    const auto row = m_rows.constFind(key(field));
    return row == m_rows.constEnd() ? QString() : row->problem->text();
}

bool FieldProblems::isTabMarked(int tab) const {
    return m_tabs && !m_tabs->tabIcon(tab).isNull();
}

// A tab that holds a problem carries the warning sign and says so.
void FieldProblems::markTabs() {
    if (!m_tabs)
        return;
    QSet<int> withProblems;
    for (const Row& row : std::as_const(m_rows)) {
        if (!row.problem->text().isEmpty())
            withProblems.insert(row.tab);
    }
    const QIcon warning = m_tabs->style()->standardIcon(QStyle::SP_MessageBoxWarning);
    for (int tab = 0; tab < m_tabs->count(); ++tab) {
        const bool marked = withProblems.contains(tab);
        m_tabs->setTabIcon(tab, marked ? warning : QIcon());
        m_tabs->setTabToolTip(tab, marked ? QCoreApplication::translate(
                                                "SiteEditorDialog", "A setting on this page needs attention")
                                          : QString());
    }
}

} // namespace tw
