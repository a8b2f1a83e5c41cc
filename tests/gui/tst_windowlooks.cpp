#include "AboutBox.h"
#include "ElidedLabel.h"
#include "EmptyTablePlaceholder.h"
#include "GitRepository.h"
#include "ScriptEditorDialog.h"
#include "ScriptedInteraction.h"
#include "SiteItemDelegate.h"
#include "SitesSidebar.h"
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
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

double luminance(const QColor& color) {
    auto channel = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

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
            if (contrast(pixel, background) >= 3.0)
                ++seen;
        }
    }
    return drawn == 0 ? 0.0 : double(seen) / double(drawn);
}

} // namespace

// How the window looks: icons that stay visible with a light and a dark
// palette, names cut between words, the About box's versions, the sizes of
// the editors and the script editor's question before changes go.
class TestWindowLooks : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        QApplication::setStyle(u"Fusion"_s);
    }
    void init() { test::TestEnvironment::resetPreferences(); }
    void cleanup() { QApplication::setPalette(QApplication::style()->standardPalette()); }

    // The Deploy button, the tool bar's sidebar switch, the sidebar's buttons
    // and the placeholder's picture are drawn in the palette's colours, and
    // drawn again when the palette changes.
    void iconsStandOutInLightAndDark() {
        test::LoadedWindow window;
        QVERIFY(window.placeholder()->imageView()->isVisible());
        for (const bool dark : {false, true, false}) {
            QApplication::setPalette(dark ? ThemeColors::darkPalette()
                                          : QApplication::style()->standardPalette());
            QCoreApplication::processEvents();
            const QColor windowColor = window.palette().color(QPalette::Window);
            const QColor buttonColor = window.deployButton()->palette().color(QPalette::Button);
            QCOMPARE(ThemeColors::isDark(window.palette()), dark);
            const struct {
                const char* what;
                QPixmap pixmap;
                QColor background;
            } pictures[] = {
                {"Deploy button", window.deployButton()->icon().pixmap(QSize(24, 24)), buttonColor},
                {"Deploy action", window.action(u"deploy"_s)->icon().pixmap(QSize(24, 24)), windowColor},
                {"sidebar switch", window.sidebar()->toggleAction()->icon().pixmap(QSize(24, 24)),
                 windowColor},
                {"Add site", window.sidebar()->addButton()->icon().pixmap(QSize(16, 16)), windowColor},
                {"placeholder", window.placeholder()->imageView()->pixmap(), windowColor},
            };
            for (const auto& picture : pictures) {
                const double share = standingOut(picture.pixmap, picture.background);
                QVERIFY2(share >= 0.6,
                         qPrintable(u"%1 %2: %3 of its pixels stand out"_s
                                        .arg(QLatin1String(picture.what), dark ? u"dark"_s : u"light"_s)
                                        .arg(share)));
            }
        }
    }

    // A long text is cut after a whole word, never inside one; a single word
    // too long for the room is cut where it must be.
    void cutBetweenWords() {
        const QFontMetrics metrics(QApplication::font());
        const QString text = u"The connection test failed: the server refused the user name or password."_s;
        for (int width = 40; width < metrics.horizontalAdvance(text); width += 7) {
            const QString shown = ElidedLabel::elidedAtWord(text, metrics, width);
            QVERIFY(metrics.horizontalAdvance(shown) <= width);
            QVERIFY2(shown.endsWith(u"\u2026"_s), qPrintable(shown));
            const QString start = shown.chopped(1);
            QVERIFY2(start.isEmpty() || (text.startsWith(start) && text.at(start.size()) == u' '),
                     qPrintable(u"%1 px: %2"_s.arg(width).arg(shown)));
        }
        QCOMPARE(ElidedLabel::elidedAtWord(text, metrics, 10000), text);
        const QString word = u"Supercalifragilisticexpialidocious"_s;
        const QString cut = ElidedLabel::elidedAtWord(word, metrics, metrics.horizontalAdvance(word) / 2);
        QVERIFY(cut.endsWith(u"\u2026"_s) && word.startsWith(cut.chopped(1)) && cut.size() > 2);
    }

    // A long site name never widens the sidebar: it is cut in the list and
    // whole in the tool tip and for screen readers.
    void longNamesInTheSidebar() {
        const QString longName =
            u"A site whose name goes on and on well past any sidebar "_s.repeated(3).trimmed();
        SitePtr site = Site::newSite();
        site->name = longName;
        site->host = u"ftp.example.org"_s;
        SiteListActions::add(site);
        test::ScriptedInteraction interaction;
        SitesSidebar sidebar(interaction);
        sidebar.resize(220, 400);
        sidebar.show();
        const QModelIndex index = sidebar.model()->index(0, 0);
        QCOMPARE(index.data(Qt::ToolTipRole).toString(), longName + u"\nftp.example.org"_s);
        QCOMPARE(index.data(Qt::DisplayRole).toString(), longName);
        QVERIFY(sidebar.listView()->sizeHintForColumn(0) < 300);
        QVERIFY(sidebar.sizeHint().width() < 300);
        // The name drawn in the row is cut with an ellipsis and fits it.
        const QRect row = sidebar.listView()->visualRect(index);
        const QFont font = sidebar.listView()->font();
        const QString shown = SiteItemDelegate::shownName(longName, font, row.width());
        QVERIFY2(shown.endsWith(u"\u2026"_s) && longName.startsWith(shown.chopped(1)), qPrintable(shown));
        QVERIFY(QFontMetrics(font).horizontalAdvance(shown) < row.width());
        QCOMPARE(SiteItemDelegate::shownName(u"Shop"_s, font, row.width()), u"Shop"_s);
    }

    // About names the versions of Qt, git and curl; it asks git and curl once,
    // without waiting for them, and fills them in when they answer.
    void aboutNamesTheVersions() {
        QTemporaryDir tools;
        const QString asked = tools.filePath(u"asked"_s);
        auto fake = [&](const QString& name, const QString& answer, int delay) {
            const QString path = tools.filePath(name);
            QVERIFY(
                test::writeFile(path, u"#!/bin/sh\necho %1 >> '%2'\nsleep %3\necho '%4'\n"_s.arg(name, asked)
                                          .arg(delay)
                                          .arg(answer)
                                          .toUtf8()));
            QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        };
        fake(u"git"_s, u"git version 9.8.7"_s, 2);
        fake(u"curl"_s, u"curl 9.9.1 (x86_64-pc-linux-gnu) libcurl/9.9.1"_s, 0);
        ToolPaths::setToolsDirectory(tools.path());

        QElapsedTimer clock;
        clock.start();
        AboutBox::show(nullptr);
        QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
        QMessageBox* box = test::openAlert();
        QVERIFY(box);
        QVERIFY(box->text().contains(u"Qt "_s + QString::fromLatin1(qVersion())));
        QTRY_VERIFY_WITH_TIMEOUT(box->text().contains(u"git version 9.8.7"_s), 15000);
        QVERIFY2(box->text().contains(u"curl 9.9.1"_s), qPrintable(box->text()));
        box->close();

        AboutBox::show(nullptr);
        QTRY_VERIFY(test::openAlert());
        QVERIFY(test::openAlert()->text().contains(u"git version 9.8.7"_s));
        test::openAlert()->close();
        QStringList runs = QString::fromUtf8(test::readFile(asked)).split(u'\n', Qt::SkipEmptyParts);
        runs.sort();
        QCOMPARE(runs, (QStringList{u"curl"_s, u"git"_s}));
        ToolPaths::setToolsDirectory(std::nullopt);
    }

    // Escape in the script editor asks before changes go; Cancel keeps them.
    void scriptEditorAsksBeforeEscape() {
        SitePtr site = Site::newSite();
        site->preDeployScriptLocal = u"echo one"_s;
        ScriptEditorDialog editor(site);
        editor.show();
        QTest::keyClick(&editor, Qt::Key_Escape);
        QVERIFY(!editor.isVisible());

        editor.show();
        QPlainTextEdit* script = nullptr;
        for (QPlainTextEdit* candidate : editor.findChildren<QPlainTextEdit*>()) {
            if (candidate->accessibleName() == u"Before (local)"_s)
                script = candidate;
        }
        QVERIFY(script);
        script->appendPlainText(u"echo two"_s);
        QString asked;
        bool cancelIsDefault = false;
        const auto answer = [&](QMessageBox::StandardButton button) {
            QTimer::singleShot(50, [&, button] {
                QMessageBox* box = test::openAlert();
                QVERIFY(box);
                asked = box->text();
                cancelIsDefault = box->defaultButton() == box->button(QMessageBox::Cancel);
                box->button(button)->click();
            });
        };
        answer(QMessageBox::Cancel);
        QTest::keyClick(&editor, Qt::Key_Escape);
        QCOMPARE(asked, u"Discard the changes to the scripts?"_s);
        QVERIFY(cancelIsDefault);
        QVERIFY(editor.isVisible());
        QVERIFY(script->toPlainText().contains(u"echo two"_s));
        answer(QMessageBox::Discard);
        QTest::keyClick(&editor, Qt::Key_Escape);
        QVERIFY(!editor.isVisible());
    }
};

QTEST_MAIN(TestWindowLooks)
#include "tst_windowlooks.moc"
