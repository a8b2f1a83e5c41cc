// How quickly the file table shows a big deployable list, and how much of it
// a transfer's status report repaints.
//
// Makes a list of 100,000 files, as git's answer becomes it (paths in 200
// folders, change letters A, M, D and some always-uploaded files), then, on
// the offscreen platform unless a display is given, times a few rounds,
// median:
//   - from "the list was rebuilt" (the model's reset) to the table painted
//     with its first screen of rows and the count label up to date;
//   - the same after scrolling to the end of the list;
//   - one status report (FileTableModel::fileStatusDidChange) until it is
//     painted, over 2,000 reports on rows on screen, counting the rows whose
//     data the paint asked for.
// Prints the figures and last "value=<milliseconds until 100,000 rows show>".
//
//   file_table [--files N] [--rounds N] [--updates N]

#include "FileListPanel.h"
#include "FileTableModel.h"
#include "app/Preferences.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QLabel>
#include <QScrollBar>
#include <QSet>
#include <QTableView>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// Counts the rows whose data a paint asks for.
class CountingModel : public tw::FileTableModel {
public:
    using FileTableModel::FileTableModel;
    mutable QSet<int> rowsAsked;
    bool counting = false;

    QVariant data(const QModelIndex& index, int role) const override {
        if (counting)
            rowsAsked.insert(index.row());
        return FileTableModel::data(index, role);
    }
};

tw::FileList makeFiles(int count) {
    tw::FileList files;
    files.reserve(count);
    const QString letters[] = {QStringLiteral("M"), QStringLiteral("A"), QStringLiteral("M"),
                               QStringLiteral("D"), QStringLiteral("M")};
    for (int i = 0; i < count; ++i) {
        tw::FilePtr file = tw::File::initWithPath(
            QStringLiteral("site/section-%1/page-%2.html").arg(i % 200).arg(i, 6, 10, QLatin1Char('0')));
        file->gitStatus = i % 97 == 0 ? QStringLiteral("-") : letters[i % 5];
        file->willUpload = i % 11 != 0;
        files.append(file);
    }
    return files;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values.at(values.size() / 2);
}

int argument(const QStringList& arguments, const QString& name, int fallback) {
    const qsizetype at = arguments.indexOf(name);
    if (at < 0 || at + 1 >= arguments.size())
        return fallback;
    bool ok = false;
    const int value = arguments.at(at + 1).toInt(&ok);
    return ok && value > 0 ? value : fallback;
}

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int fileCount = argument(arguments, QStringLiteral("--files"), 100000);
    const int rounds = argument(arguments, QStringLiteral("--rounds"), 5);
    const int updates = argument(arguments, QStringLiteral("--updates"), 2000);

    // Preferences of our own, not the person's.
    QTemporaryDir home;
    tw::Preferences::instance().setFileName(home.path() + QStringLiteral("/bench.conf"));
    tw::Preferences::instance().registerDefaultsFromResource();

    std::optional<tw::FileList> files;
    CountingModel model(&files);
    tw::FileListPanel panel(&model);
    panel.resize(900, 700);
    panel.show();
    QApplication::processEvents();
    QTableView* table = panel.tableView();

    std::vector<double> showTimes;
    std::vector<double> endTimes;
    QString label;
    for (int round = 0; round < rounds; ++round) {
        files.reset();
        model.reload();
        QApplication::processEvents();
        tw::FileList answer = makeFiles(fileCount); // git's answer, made into records

        QElapsedTimer clock;
        clock.start();
        files = std::move(answer);
        model.reload();
        QApplication::processEvents();
        table->viewport()->repaint();
        showTimes.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
        label = panel.selectedLabel()->text();

        clock.restart();
        table->scrollToBottom();
        QApplication::processEvents();
        table->viewport()->repaint();
        endTimes.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
        table->scrollToTop();
        QApplication::processEvents();
    }

    // Status reports on rows on screen: each repaints its row only.
    table->viewport()->repaint();
    const int visibleRows = std::max(1, table->rowAt(table->viewport()->height() - 1));
    std::vector<double> updateTimes;
    double rowsPerUpdate = 0;
    int paintedUpdates = 0;
    for (int i = 0; i < updates; ++i) {
        const int row = (i * 7) % visibleRows;
        (*files)[row]->status = QStringLiteral("%1 %").arg((i % 1000) / 10.0, 0, 'f', 1);
        model.rowsAsked.clear();
        model.counting = true;
        QElapsedTimer clock;
        clock.start();
        model.fileStatusDidChange(row);
        QApplication::processEvents();
        updateTimes.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e3);
        model.counting = false;
        if (!model.rowsAsked.isEmpty()) {
            ++paintedUpdates;
            rowsPerUpdate += model.rowsAsked.size();
        }
    }
    rowsPerUpdate = paintedUpdates > 0 ? rowsPerUpdate / paintedUpdates : 0;

    const double show = median(showTimes);
    std::printf("files: %d, rounds: %d, label: %s\n", fileCount, rounds, qPrintable(label));
    std::printf("list rebuilt until painted: %.1f ms (median; first round %.1f ms)\n", show,
                showTimes.front());
    std::printf("scrolled to the end and painted: %.1f ms (median)\n", median(endTimes));
    std::printf("status report until painted: %.1f us (median of %d), rows repainted per report: %.2f "
                "(%d of %d reports painted, %d rows on screen)\n",
                median(updateTimes), updates, rowsPerUpdate, paintedUpdates, updates, visibleRows + 1);
    std::printf("value=%.1f\n", show);
    return 0;
}
