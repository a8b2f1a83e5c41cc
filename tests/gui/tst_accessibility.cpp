#include "GitRepository.h"
#include "PreferencesDialog.h"
#include "ProgressViewController.h"
#include "ScriptEditorDialog.h"
#include "ScriptedInteraction.h"
#include "SiteEditorDialog.h"
#include "TestEnvironment.h"
#include "WindowTesting.h"
#include "model/SiteListActions.h"

#include <QAbstractItemView>
#include <QAbstractSlider>
#include <QAbstractSpinBox>
#include <QAccessible>
#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTabBar>
#include <QTest>
#include <QTextEdit>
#include <QToolButton>

#include <algorithm>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

bool isAny(const QWidget* widget, std::initializer_list<const char*> classes) {
    return std::ranges::any_of(classes, [widget](const char* name) { return widget->inherits(name); });
}

// Widgets a screen reader reaches as one input: fields, lists, and buttons
// that show only an icon. Qt's own parts (scroll bars, headers, the
// extension buttons of tool bars) and the parts Qt builds inside an input
// (a combo box's line edit, a tab bar's arrows) are not walked.
bool isInput(const QWidget* widget, const QWidget* top) {
    if (widget->objectName().startsWith(u"qt_"_s) || isAny(widget, {"QScrollBar", "QHeaderView"}))
        return false;
    for (const QWidget* parent = widget->parentWidget(); parent && parent != top;
         parent = parent->parentWidget()) {
        if (isAny(parent, {"QComboBox", "QAbstractSpinBox", "QTabBar", "QAbstractItemView", "QLineEdit"}))
            return false;
    }
    if (const auto* button = qobject_cast<const QToolButton*>(widget))
        return button->toolButtonStyle() == Qt::ToolButtonIconOnly || button->text().isEmpty();
    return isAny(widget, {"QLineEdit", "QComboBox", "QAbstractItemView", "QAbstractSpinBox", "QPlainTextEdit",
                          "QTextEdit", "QAbstractSlider"});
}

// The inputs under top that a screen reader would announce without a name.
QStringList unnamedInputs(QWidget* top) {
    QStringList unnamed;
    for (QWidget* widget : top->findChildren<QWidget*>()) {
        if (!isInput(widget, top))
            continue;
        QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
        const QString name = accessible ? accessible->text(QAccessible::Name).trimmed() : QString();
        if (name.isEmpty())
            unnamed.append(QString::fromLatin1(widget->metaObject()->className()) + u" "_s +
                           widget->objectName());
    }
    return unnamed;
}

} // namespace

// Every field, list and icon button of every window has a name a screen
// reader can say.
class TestAccessibility : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    void everyInputHasAName() {
        test::GitRepository repo;
        repo.commit({{u"index.html"_s, "a"}}, u"one"_s);
        const SitePtr site = test::siteFor(repo.path(), u"Blog"_s);
        SiteListActions::add(site);

        test::LoadedWindow window;
        test::ScriptedInteraction interaction;
        SiteEditorDialog editor(site, interaction);
        ScriptEditorDialog scripts(site);
        PreferencesDialog preferences;
        ProgressViewController sheet;
        for (QWidget* top : std::initializer_list<QWidget*>{&window, &editor, &scripts, &preferences, &sheet})
            QCOMPARE(unnamedInputs(top), QStringList());
    }
};

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
