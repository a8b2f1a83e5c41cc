#include "FileListPanel.h"
#include "FileTableModel.h"
#include "StatusTableCell.h"
#include "TestEnvironment.h"

#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

namespace {

FilePtr file(const QString& path, const QString& gitStatus, bool willUpload = true) {
    FilePtr result = File::initWithPath(path);
    result->gitStatus = gitStatus;
    result->willUpload = willUpload;
    return result;
}

FileList someFiles() {
    return {file(u"index.html"_s, u"M"_s), file(u"css/site.css"_s, u"A"_s, false),
            file(u"old/gone.html"_s, u"D"_s), file(u"robots.txt"_s, u"-"_s)};
}

} // namespace

// The file table: its model over the controller's list and the check box
// above the list.
class TestFileTable : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }
    void init() { test::TestEnvironment::resetPreferences(); }

    // The tester checks every answer of the model through a list that comes,
    // changes and goes; a transfer's status repaints its one row, however
    // long the list.
    void modelOverTheList() {
        std::optional<FileList> files;
        FileTableModel model(&files);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        files = someFiles();
        for (int i = 0; i < 10000; ++i)
            files->append(file(u"pages/%1.html"_s.arg(i), u"A"_s));
        model.reload();
        QSignalSpy changes(&model, &FileTableModel::dataChanged);
        files->at(9000)->status = u"12.5 %"_s;
        model.fileStatusDidChange(9000);
        model.fileStatusDidChange(10004);
        QCOMPARE(changes.size(), 1);
        QCOMPARE(changes.at(0).at(0).toModelIndex(), model.index(9000, FileTableModel::StatusColumn));
        QCOMPARE(changes.at(0).at(1).toModelIndex(), model.index(9000, FileTableModel::StatusColumn));
        files.reset();
        model.reload();
        QCOMPARE(model.rowCount(), 0);
    }

    // Sorted by status and filtered, the rows handed on are still the list's
    // own rows; Space and the check box above the list toggle the selected
    // ones.
    void sortFilterAndToggle() {
        std::optional<FileList> files = someFiles();
        files->at(0)->status = u"ERROR"_s;
        files->at(2)->status = u"100%"_s;
        files->at(3)->status = u"42.5 %"_s;
        FileTableModel model(&files);
        FileListPanel panel(&model);
        QList<QPair<bool, QList<qsizetype>>> handed;
        panel.setCheckboxHandler([&](bool checked, const QList<qsizetype>& rows) {
            handed.append({checked, rows});
            for (const qsizetype row : rows)
                files->at(row)->willUpload = checked;
        });
        panel.show();
        QTableView* table = panel.tableView();
        // Tab leaves the list instead of walking its cells.
        QVERIFY(!table->tabKeyNavigation());
        auto column = [table] {
            QStringList paths;
            for (int row = 0; row < table->model()->rowCount(); ++row)
                paths.append(table->model()->index(row, 0).data(FileTableModel::PathRole).toString());
            return paths;
        };
        // Not sent, by percentage, sent, failed.
        table->sortByColumn(FileTableModel::StatusColumn, Qt::AscendingOrder);
        QCOMPARE(column(),
                 (QStringList{u"css/site.css"_s, u"robots.txt"_s, u"old/gone.html"_s, u"index.html"_s}));

        for (const int row : {2, 3})
            table->selectionModel()->select(table->model()->index(row, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
        QCOMPARE(panel.selectedRows(), (QList<qsizetype>{0, 2}));
        table->setFocus();
        QTest::keyClick(table, Qt::Key_Space);
        QCOMPARE(handed.last(), (QPair<bool, QList<qsizetype>>{false, {0, 2}}));
        QCOMPARE(panel.checkbox()->checkState(), Qt::Unchecked);
        QTest::mouseClick(panel.checkbox(), Qt::LeftButton);
        QCOMPARE(handed.last(), (QPair<bool, QList<qsizetype>>{true, {0, 2}}));
        QVERIFY(table->model()->setData(table->model()->index(0, FileTableModel::UploadColumn), Qt::Checked,
                                        Qt::CheckStateRole));
        QCOMPARE(handed.last().second, (QList<qsizetype>{1}));

        // The filter matches anywhere in the path, any case.
        panel.filterField()->setText(u"CSS/"_s);
        QCOMPARE(column(), (QStringList{u"css/site.css"_s}));
    }

    // The letters on the badges stand out from them by at least 4.5:1, on a
    // light and on a dark table.
    void badgeLettersAreReadable() {
        for (const QColor& base : {QColor(Qt::white), QColor(30, 30, 32), QColor(53, 132, 228)}) {
            for (const QString& letter : {u"A"_s, u"M"_s, u"D"_s, u"-"_s}) {
                const QColor fill = StatusTableCell::composited(*StatusTableCell::badgeColor(letter), base);
                const double ratio =
                    StatusTableCell::contrastRatio(StatusTableCell::letterColor(letter, base), fill);
                QVERIFY2(ratio >= 4.5, qPrintable(u"%1 on %2: %3"_s.arg(letter, base.name()).arg(ratio)));
            }
        }
    }
};

QTEST_MAIN(TestFileTable)
#include "tst_filetable.moc"
