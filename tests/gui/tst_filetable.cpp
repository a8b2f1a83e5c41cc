#include "FileListPanel.h"
#include "FileSortFilterModel.h"
#include "FileTableModel.h"
#include "StatusTableCell.h"
#include "TestEnvironment.h"

#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QLabel>
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
    // changes, is rebuilt and goes.
    void modelPassesTheTester() {
        std::optional<FileList> files;
        FileTableModel model(&files);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(model.rowCount(), 0);
        QVERIFY(!model.hasList());

        files = someFiles();
        model.reload();
        QCOMPARE(model.rowCount(), 4);
        QCOMPARE(model.columnCount(), 4);
        QVERIFY(model.setData(model.index(1, FileTableModel::UploadColumn), Qt::Checked, Qt::CheckStateRole));
        files->at(0)->status = u"42.0 %"_s;
        model.fileStatusDidChange(0);
        model.setWillUpload({0, 3}, false);

        files->append(file(u"new.html"_s, u"A"_s));
        model.reload();
        QCOMPARE(model.rowCount(), 5);
        files.reset();
        model.reload();
        QCOMPARE(model.rowCount(), 0);
        model.setFiles(nullptr);
        QCOMPARE(model.rowCount(), 0);
    }

    // A transfer's status repaints its one row, however long the list; the
    // check box writes willUpload and nothing else.
    void statusChangeIsOneRow() {
        std::optional<FileList> files = someFiles();
        for (int i = 0; i < 10000; ++i)
            files->append(file(u"pages/%1.html"_s.arg(i), u"A"_s));
        FileTableModel model(&files);
        QCOMPARE(model.rowCount(), 10004);
        QSignalSpy changes(&model, &FileTableModel::dataChanged);
        QSignalSpy resets(&model, &FileTableModel::modelReset);
        files->at(9000)->status = u"12.5 %"_s;
        model.fileStatusDidChange(9000);
        QCOMPARE(changes.size(), 1);
        QCOMPARE(changes.at(0).at(0).toModelIndex(), model.index(9000, FileTableModel::StatusColumn));
        QCOMPARE(changes.at(0).at(1).toModelIndex(), model.index(9000, FileTableModel::StatusColumn));
        QCOMPARE(model.index(9000, FileTableModel::StatusColumn).data().toString(), u"12.5 %"_s);
        QCOMPARE(resets.size(), 0);
        // Rows the views were never told about are not announced.
        model.fileStatusDidChange(10004);
        model.fileStatusDidChange(-1);
        QCOMPARE(changes.size(), 1);

        QSignalSpy marks(&model, &FileTableModel::checkMarksChanged);
        QCOMPARE(model.checkedCount(), 10003);
        QVERIFY(
            model.setData(model.index(0, FileTableModel::UploadColumn), Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(!files->at(0)->willUpload);
        QCOMPARE(model.checkedCount(), 10002);
        QCOMPARE(marks.size(), 1);
        QVERIFY(!model.setData(model.index(0, FileTableModel::NameColumn), u"x"_s, Qt::EditRole));
        QCOMPARE(files->at(0)->pathWithFilename, u"index.html"_s);
    }

    void checkboxAboveTheListSetsTheSelectedRows() {
        std::optional<FileList> files = someFiles();
        FileTableModel model(&files);
        FileListPanel panel(&model);
        panel.resize(500, 300);
        panel.show();
        QCOMPARE(panel.selectedLabel()->text(), u"3 of 4 files to deploy"_s);
        QVERIFY(!panel.checkbox()->isEnabled());

        // Rows 0 and 1: one checked, one not.
        QTableView* table = panel.tableView();
        QCOMPARE(table->selectionMode(), QAbstractItemView::ExtendedSelection);
        table->selectionModel()->select(table->model()->index(0, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
        table->selectionModel()->select(table->model()->index(1, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
        QCOMPARE(panel.selectedRows(), (QList<qsizetype>{0, 1}));
        QVERIFY(panel.checkbox()->isEnabled());
        QCOMPARE(panel.checkbox()->checkState(), Qt::PartiallyChecked);

        QTest::mouseClick(panel.checkbox(), Qt::LeftButton);
        QVERIFY(files->at(0)->willUpload);
        QVERIFY(files->at(1)->willUpload);
        QCOMPARE(panel.checkbox()->checkState(), Qt::Checked);
        QCOMPARE(panel.selectedLabel()->text(), u"4 of 4 files to deploy"_s);

        QTest::mouseClick(panel.checkbox(), Qt::LeftButton);
        QVERIFY(!files->at(0)->willUpload);
        QVERIFY(!files->at(1)->willUpload);
        QVERIFY(files->at(2)->willUpload);
        QCOMPARE(panel.selectedLabel()->text(), u"2 of 4 files to deploy"_s);

        // The main window hands the rows to the controller instead.
        QList<qsizetype> handed;
        bool handedState = false;
        panel.setCheckboxHandler([&](bool checked, const QList<qsizetype>& rows) {
            handedState = checked;
            handed = rows;
            for (const qsizetype row : rows)
                files->at(row)->willUpload = checked;
        });
        panel.updateCheckboxes(true);
        QVERIFY(handedState);
        QCOMPARE(handed, (QList<qsizetype>{0, 1}));
        QCOMPARE(panel.selectedLabel()->text(), u"4 of 4 files to deploy"_s);

        files.reset();
        model.reload();
        QVERIFY(panel.selectedLabel()->text().isEmpty());
        QVERIFY(!panel.checkbox()->isEnabled());
    }

    // Sorted by a header, filtered by the field: the rows handed on are
    // still the list's own rows, and Space toggles the selected ones.
    void sortFilterAndSpace() {
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
        panel.resize(600, 300);
        panel.show();
        QTableView* table = panel.tableView();
        QVERIFY(table->isSortingEnabled());
        QVERIFY(!table->tabKeyNavigation());
        auto column = [table](int c) {
            QStringList paths;
            for (int row = 0; row < table->model()->rowCount(); ++row)
                paths.append(table->model()->index(row, c).data(FileTableModel::PathRole).toString());
            return paths;
        };
        const QStringList listOrder{u"index.html"_s, u"css/site.css"_s, u"old/gone.html"_s, u"robots.txt"_s};
        QCOMPARE(column(0), listOrder);

        table->sortByColumn(FileTableModel::NameColumn, Qt::AscendingOrder);
        QCOMPARE(column(0),
                 (QStringList{u"css/site.css"_s, u"index.html"_s, u"old/gone.html"_s, u"robots.txt"_s}));
        table->sortByColumn(FileTableModel::ChangeColumn, Qt::AscendingOrder);
        QCOMPARE(column(0),
                 (QStringList{u"robots.txt"_s, u"css/site.css"_s, u"old/gone.html"_s, u"index.html"_s}));
        // Not sent, by percentage, sent, failed.
        table->sortByColumn(FileTableModel::StatusColumn, Qt::AscendingOrder);
        QCOMPARE(column(0),
                 (QStringList{u"css/site.css"_s, u"robots.txt"_s, u"old/gone.html"_s, u"index.html"_s}));

        // The rows selected in the sorted view are the list's rows 0 and 2.
        table->selectionModel()->select(table->model()->index(2, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
        table->selectionModel()->select(table->model()->index(3, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
        QCOMPARE(panel.selectedRows(), (QList<qsizetype>{0, 2}));
        table->setFocus();
        // Both checked: Space unchecks both; again, checks both.
        QTest::keyClick(table, Qt::Key_Space);
        QCOMPARE(handed.size(), 1);
        QCOMPARE(handed.last().first, false);
        QCOMPARE(handed.last().second, (QList<qsizetype>{0, 2}));
        QTest::keyClick(table, Qt::Key_Space);
        QCOMPARE(handed.last().first, true);
        QVERIFY(files->at(0)->willUpload && files->at(2)->willUpload);

        // A row's own check box reaches the handler too (the controller
        // remembers the file as waiting).
        const QModelIndex box = table->model()->index(0, FileTableModel::UploadColumn);
        QVERIFY(table->model()->setData(box, Qt::Checked, Qt::CheckStateRole));
        QCOMPARE(handed.last().second, (QList<qsizetype>{1}));

        // The filter matches anywhere in the path, any case.
        panel.filterField()->setText(u"HTML"_s);
        QCOMPARE(table->model()->rowCount(), 2);
        panel.filterField()->setText(u"css/"_s);
        QCOMPARE(column(0), (QStringList{u"css/site.css"_s}));
        panel.filterField()->clear();
        QCOMPARE(table->model()->rowCount(), 4);
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
        QCOMPARE(FileSortFilterModel::statusRank(u""_s), 0.0);
        QVERIFY(FileSortFilterModel::statusRank(u"99.5 %"_s) < FileSortFilterModel::statusRank(u"100%"_s));
    }
};

QTEST_MAIN(TestFileTable)
#include "tst_filetable.moc"
