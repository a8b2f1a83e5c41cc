#include "TestEnvironment.h"
#include "WidgetInteraction.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace tw;
using namespace Qt::StringLiterals;

// The desktop's answers to the core's questions: the index of the button
// chosen, whatever order the style shows the buttons in.
class TestInteraction : public QObject {
    Q_OBJECT

    QMainWindow* m_window = nullptr;
    AlertRequest m_seen;

    // Answers the next box that shows: a click on the titled button, or
    // Escape when the title is empty.
    void answerNextBox(const QString& title) {
        QTimer::singleShot(0, this, [this, title] {
            QTRY_VERIFY(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            m_seen.message = box->text();
            m_seen.informativeText = box->informativeText();
            if (title.isEmpty()) {
                QTest::keyClick(box, Qt::Key_Escape);
                return;
            }
            for (QAbstractButton* button : box->buttons()) {
                if (button->text() == title) {
                    button->click();
                    return;
                }
            }
            QFAIL(qPrintable(u"no button "_s + title));
        });
    }

private slots:
    void initTestCase() {
        test::TestEnvironment::isolate();
        m_window = new QMainWindow;
        m_window->show();
    }
    void cleanupTestCase() { delete m_window; }

    void answersTheButtonChosen_data() {
        QTest::addColumn<QStringList>("buttons");
        QTest::addColumn<QString>("click");
        QTest::addColumn<int>("answer");
        const QStringList three{u"Cancel"_s, u"Yes"_s, u"No, use mine"_s};
        QTest::newRow("first") << three << u"Cancel"_s << 0;
        QTest::newRow("second") << three << u"Yes"_s << 1;
        QTest::newRow("third") << three << u"No, use mine"_s << 2;
        QTest::newRow("escape means Cancel") << three << QString() << 0;
        QTest::newRow("escape on force") << QStringList{u"Force deploy"_s, u"Cancel"_s} << QString() << 1;
        QTest::newRow("escape without Cancel")
            << QStringList{u"Abort"_s, u"Show log\u2026"_s} << QString() << 0;
        QTest::newRow("show log") << QStringList{u"Abort"_s, u"Show log\u2026"_s} << u"Show log\u2026"_s << 1;
        QTest::newRow("default button") << QStringList() << u"OK"_s << 0;
    }
    void answersTheButtonChosen() {
        QFETCH(QStringList, buttons);
        QFETCH(QString, click);
        QFETCH(int, answer);
        WidgetInteraction interaction(m_window);
        AlertRequest alert;
        alert.message = u"Last commit on target site is earlier"_s;
        alert.informativeText = u"More."_s;
        alert.buttons = buttons;
        answerNextBox(click);
        QCOMPARE(interaction.runModal(alert), answer);
        QCOMPARE(m_seen.message, alert.message);
        QCOMPARE(m_seen.informativeText, alert.informativeText);
    }

    void sheetAnswersLater() {
        WidgetInteraction interaction(m_window);
        AlertRequest alert;
        alert.message = u"Target site was last deployed with a different branch"_s;
        alert.buttons = {u"Force deploy"_s, u"Cancel"_s};
        int answer = -1;
        interaction.beginSheet(alert, [&answer](int button) { answer = button; });
        QCOMPARE(answer, -1);
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        QVERIFY(box);
        QCOMPARE(box->windowModality(), Qt::WindowModal);
        QCOMPARE(box->parentWidget(), m_window);
        QCOMPARE(box->buttons().size(), 2);
        for (QAbstractButton* button : box->buttons())
            if (button->text() == u"Force deploy")
                button->click();
        QTRY_COMPARE(answer, 0);
    }
};

QTEST_MAIN(TestInteraction)
#include "tst_interaction.moc"
