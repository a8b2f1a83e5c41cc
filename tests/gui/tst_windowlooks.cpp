#include "AboutBox.h"
#include "ElidedLabel.h"
#include "EmptyTablePlaceholder.h"
#include "ScriptEditorDialog.h"
#include "ScriptedInteraction.h"
#include "SiteItemDelegate.h"
#include "SitesSidebar.h"
#include "StatusTableCell.h"
#include "TestEnvironment.h"
#include "ThemeColors.h"
#include "Traces.h"
#include "WindowTesting.h"
#include "app/ToolPaths.h"
#include "model/SiteListActions.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QListView>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

// The share of an image's drawn pixels (the transparent ones left out) whose
// colour stands out from the background by 3:1 or more, the contrast asked
// of the parts of a picture people must see.
double standingOut(const QPixmap& pixmap, const QColor& background) {
    const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    qsizetype drawn = 0, seen = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() < 160)
                continue;
            ++drawn;
            if (StatusTableCell::contrastRatio(pixel, background) >= 3.0)
                ++seen;
        }
    }
    return drawn == 0 ? 0.0 : double(seen) / double(drawn);
}

} // namespace

// How the window looks: icons that stay visible with a light and a dark
// palette, names cut between words, the About box's versions and the script
// editor's question before changes go.
class TestWindowLooks : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QApplication::setStyle(u"Fusion"_s);
    }
    void init() { test::TestEnvironment::resetPreferences(); }
    void cleanup() { QApplication::setPalette(QApplication::style()->standardPalette()); }

    // The window's icons and the placeholder's picture are drawn in the
    // palette's colours, and drawn again when the palette changes.
    void iconsStandOutInLightAndDark() {
        test::LoadedWindow window;
        for (const bool dark : {false, true, false}) {
            QApplication::setPalette(dark ? ThemeColors::darkPalette()
                                          : QApplication::style()->standardPalette());
            QCoreApplication::processEvents();
            const QColor background = window.palette().color(QPalette::Window);
            const QList<QPair<const char*, QPixmap>> pictures{
                {"Deploy button", window.deployButton()->icon().pixmap(QSize(24, 24))},
                {"sidebar switch", window.sidebar()->toggleAction()->icon().pixmap(QSize(24, 24))},
                {"Add site", window.sidebar()->addButton()->icon().pixmap(QSize(16, 16))},
                {"placeholder", window.placeholder()->imageView()->pixmap()},
            };
            for (const auto& [what, pixmap] : pictures) {
                const double share = standingOut(pixmap, background);
                QVERIFY2(share >= 0.6,
                         qPrintable(u"%1 %2: %3"_s.arg(QLatin1String(what)).arg(dark).arg(share)));
            }
        }
    }

    // A long text, such as the connection test's result, is cut after a
    // whole word, never inside one.
    void cutBetweenWords() {
        const QFontMetrics metrics(QApplication::font());
        const QString text = u"The connection test failed: the server refused the user name or password."_s;
        for (int width = 40; width < metrics.horizontalAdvance(text); width += 7) {
            const QString shown = ElidedLabel::elidedAtWord(text, metrics, width);
            const QString start = shown.chopped(1);
            QVERIFY(metrics.horizontalAdvance(shown) <= width && shown.endsWith(u"\u2026"_s));
            QVERIFY2(start.isEmpty() || (text.startsWith(start) && text.at(start.size()) == u' '),
                     qPrintable(u"%1 px: %2"_s.arg(width).arg(shown)));
        }
    }

    // A long site name never widens the sidebar: it is cut in the row, whole
    // in the tool tip.
    void longNamesInTheSidebar() {
        const QString longName =
            u"A site whose name goes on and on well past any sidebar "_s.repeated(3).trimmed();
        SitePtr site = Site::newSite();
        site->name = longName;
        SiteListActions::add(site);
        test::ScriptedInteraction interaction;
        SitesSidebar sidebar(interaction);
        sidebar.resize(220, 400);
        sidebar.show();
        const QModelIndex index = sidebar.model()->index(0, 0);
        QVERIFY(index.data(Qt::ToolTipRole).toString().startsWith(longName));
        QVERIFY(sidebar.sizeHint().width() < 300);
        const int width = sidebar.listView()->visualRect(index).width();
        const QFont font = sidebar.listView()->font();
        const QString shown = SiteItemDelegate::shownName(longName, font, width);
        QVERIFY2(shown.endsWith(u"\u2026"_s) && longName.startsWith(shown.chopped(1)), qPrintable(shown));
        QVERIFY(QFontMetrics(font).horizontalAdvance(shown) < width);
    }

    // Escape in the script editor asks before changes go; Cancel, the
    // default, keeps them.
    void scriptEditorAsksBeforeEscape() {
        ScriptEditorDialog editor(Site::newSite());
        editor.show();
        QPlainTextEdit* script = nullptr;
        for (QPlainTextEdit* candidate : editor.findChildren<QPlainTextEdit*>())
            script = candidate->accessibleName() == u"Before (local)"_s ? candidate : script;
        QVERIFY(script);
        script->appendPlainText(u"echo two"_s);
        // Return takes the default answer.
        test::answerLater([](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Return); });
        QTest::keyClick(&editor, Qt::Key_Escape);
        QVERIFY(editor.isVisible());
        QVERIFY(script->toPlainText().contains(u"echo two"_s));
        test::answerLater([](QMessageBox* box) { box->button(QMessageBox::Discard)->click(); });
        QTest::keyClick(&editor, Qt::Key_Escape);
        QVERIFY(!editor.isVisible());
    }
};

QTEST_MAIN(TestWindowLooks)
#include "tst_windowlooks.moc"
