#include "FileListPanel.h"
#include "FileTableModel.h"
#include "StatusTableCell.h"
#include "TestEnvironment.h"
#include "app/Preferences.h"

#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QLabel>
#include <QPainter>
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

// The file table: its model over the controller's list, the badge, and the
// check box above the list.
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

    void columnsShowTheFile() {
        std::optional<FileList> files = someFiles();
        files->at(2)->status = u"ERROR"_s;
        FileTableModel model(&files);
        QCOMPARE(
            model.index(0, FileTableModel::UploadColumn).data(Qt::CheckStateRole).value<Qt::CheckState>(),
            Qt::Checked);
        QCOMPARE(
            model.index(1, FileTableModel::UploadColumn).data(Qt::CheckStateRole).value<Qt::CheckState>(),
            Qt::Unchecked);
        QCOMPARE(model.index(2, FileTableModel::ChangeColumn).data().toString(), u"D"_s);
        QCOMPARE(model.index(2, FileTableModel::ChangeColumn).data(FileTableModel::GitStatusRole).toString(),
                 u"D"_s);
        QCOMPARE(model.index(1, FileTableModel::NameColumn).data().toString(), u"site.css"_s);
        QCOMPARE(model.index(1, FileTableModel::NameColumn).data(Qt::ToolTipRole).toString(),
                 u"css/site.css"_s);
        QCOMPARE(model.index(2, FileTableModel::StatusColumn).data().toString(), u"ERROR"_s);
        QVERIFY(model.index(2, FileTableModel::StatusColumn).data(Qt::ForegroundRole).isValid());
        QVERIFY(!model.index(0, FileTableModel::StatusColumn).data().toString().size());
        QVERIFY(model.flags(model.index(0, FileTableModel::UploadColumn)) & Qt::ItemIsUserCheckable);
        QVERIFY(!(model.flags(model.index(0, FileTableModel::NameColumn)) & Qt::ItemIsUserCheckable));

        // A file without a change letter has none in the badge's role.
        files->at(0)->gitStatus.reset();
        QVERIFY(!model.index(0, FileTableModel::ChangeColumn).data(FileTableModel::GitStatusRole).isValid());
    }

    // "showFullPath" switches the name column to the full path at once.
    void fullPathFollowsThePreference() {
        std::optional<FileList> files = someFiles();
        FileTableModel model(&files);
        QSignalSpy changes(&model, &FileTableModel::dataChanged);
        Preferences::instance().setBool(u"showFullPath"_s, true);
        QCOMPARE(changes.size(), 1);
        QCOMPARE(changes.at(0).at(0).toModelIndex(), model.index(0, FileTableModel::NameColumn));
        QCOMPARE(changes.at(0).at(1).toModelIndex(), model.index(3, FileTableModel::NameColumn));
        QCOMPARE(model.index(1, FileTableModel::NameColumn).data().toString(), u"css/site.css"_s);
        Preferences::instance().setBool(u"showFullPath"_s, false);
        QCOMPARE(model.index(1, FileTableModel::NameColumn).data().toString(), u"site.css"_s);
    }

    // A transfer's status repaints its one row; the check box writes
    // willUpload and nothing else.
    void statusChangeIsOneRow() {
        std::optional<FileList> files = someFiles();
        FileTableModel model(&files);
        QSignalSpy changes(&model, &FileTableModel::dataChanged);
        QSignalSpy resets(&model, &FileTableModel::modelReset);
        files->at(2)->status = u"12.5 %"_s;
        model.fileStatusDidChange(2);
        QCOMPARE(changes.size(), 1);
        QCOMPARE(changes.at(0).at(0).toModelIndex(), model.index(2, FileTableModel::StatusColumn));
        QCOMPARE(changes.at(0).at(1).toModelIndex(), model.index(2, FileTableModel::StatusColumn));
        QCOMPARE(resets.size(), 0);
        // Rows the views were never told about are not announced.
        model.fileStatusDidChange(4);
        model.fileStatusDidChange(-1);
        QCOMPARE(changes.size(), 1);

        QSignalSpy marks(&model, &FileTableModel::checkMarksChanged);
        QCOMPARE(model.checkedCount(), 3);
        QVERIFY(
            model.setData(model.index(0, FileTableModel::UploadColumn), Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(!files->at(0)->willUpload);
        QCOMPARE(model.checkedCount(), 2);
        QCOMPARE(marks.size(), 1);
        QVERIFY(!model.setData(model.index(0, FileTableModel::NameColumn), u"x"_s, Qt::EditRole));
        QCOMPARE(files->at(0)->pathWithFilename, u"index.html"_s);
    }

    // The list grows behind the model's back until the controller says it
    // was rebuilt: the model keeps to the rows it announced.
    void rowsOnlyChangeWithAReset() {
        std::optional<FileList> files = someFiles();
        FileTableModel model(&files);
        files->append(file(u"late.html"_s, u"A"_s));
        QCOMPARE(model.rowCount(), 4);
        files->removeLast();
        files->removeLast();
        QCOMPARE(model.rowCount(), 4);
        QVERIFY(!model.index(3, FileTableModel::NameColumn).data().isValid());
        model.reload();
        QCOMPARE(model.rowCount(), 3);
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
        table->selectionModel()->select(model.index(0, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
        table->selectionModel()->select(model.index(1, 0),
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

    void badgeColours_data() {
        QTest::addColumn<QString>("gitStatus");
        QTest::addColumn<QColor>("colour");
        QColor faint(Qt::black);
        faint.setAlphaF(0.1f);
        QTest::newRow("deleted") << u"D"_s << QColor(246, 124, 121);
        QTest::newRow("added") << u"A"_s << QColor(142, 203, 119);
        QTest::newRow("modified") << u"M"_s << QColor(105, 202, 240);
        QTest::newRow("always uploaded") << u"-"_s << faint;
        QTest::newRow("renamed") << u"R"_s << QColor();
        QTest::newRow("empty") << QString() << QColor();
    }
    void badgeColours() {
        QFETCH(QString, gitStatus);
        QFETCH(QColor, colour);
        const std::optional<QColor> chosen = StatusTableCell::badgeColor(gitStatus);
        QCOMPARE(chosen.has_value(), colour.isValid());
        if (colour.isValid())
            QCOMPARE(*chosen, colour);

        // Drawn: the middle of the badge has the colour, its corner is rounded off.
        QImage image(40, 20, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            StatusTableCell::paintBadge(&painter, QRectF(0, 0, 40, 20), gitStatus);
        }
        const QColor middle = image.pixelColor(20, 10);
        if (colour.isValid()) {
            QCOMPARE(middle.red(), colour.red());
            QCOMPARE(middle.green(), colour.green());
            QCOMPARE(middle.blue(), colour.blue());
            QVERIFY(qAbs(middle.alphaF() - colour.alphaF()) < 0.01);
            QVERIFY(image.pixelColor(0, 0).alpha() < middle.alpha() / 2);
        } else {
            QCOMPARE(middle.alpha(), 0);
        }
    }

    // Without a change letter the badge takes the painter's current brush.
    void badgeWithoutLetterUsesTheCurrentColour() {
        QImage image(20, 20, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            painter.setBrush(QColor(10, 20, 30));
            StatusTableCell::paintBadge(&painter, QRectF(0, 0, 20, 20), std::nullopt);
        }
        QCOMPARE(image.pixelColor(10, 10), QColor(10, 20, 30));
    }

    // The table draws its badges through the delegate.
    void tableDrawsBadges() {
        std::optional<FileList> files = someFiles();
        FileTableModel model(&files);
        FileListPanel panel(&model);
        panel.resize(500, 300);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QTableView* table = panel.tableView();
        QVERIFY(qobject_cast<StatusTableCell*>(table->itemDelegateForColumn(FileTableModel::ChangeColumn)));
        const QRect cell = table->visualRect(model.index(2, FileTableModel::ChangeColumn));
        const QImage shot = table->viewport()->grab().toImage();
        auto hasColour = [&shot](const QRect& area, const QColor& colour) {
            for (int y = area.top(); y <= area.bottom(); ++y)
                for (int x = area.left(); x <= area.right(); ++x)
                    if (shot.pixelColor(x, y) == colour)
                        return true;
            return false;
        };
        QVERIFY(hasColour(cell, QColor(246, 124, 121)));
        QVERIFY(!hasColour(cell, QColor(142, 203, 119)));
        QVERIFY(hasColour(table->visualRect(model.index(1, FileTableModel::ChangeColumn)),
                          QColor(142, 203, 119)));
    }
};

QTEST_MAIN(TestFileTable)
#include "tst_filetable.moc"
