// The History window: opened from the File menu and by a drop, its folders,
// entries and lines of life followed by mouse and keys, and two generations
// opened as a compared pair.

#include "TemporaryHome.h"
#include "TestFrame.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"
#include "shell/MainWindow.h"
#include "shell/StartUp.h"
#include "views/HistoryModels.h"
#include "views/HistoryWindow.h"
#include "views/SnapshotWindow.h"

using namespace kestrel;
using namespace Qt::StringLiterals;

namespace {

// Scans folder and saves it as file.
void saveSnapshotOf(const QString& folder, const QString& file) {
    engine::Snapshot s;
    s.header.rootFolder = folder + u'/';
    s.header.recurse = s.header.hidden = true;
    s.header.fileName = file;
    engine::ProgressMeter meter;
    QVERIFY(engine::CreateSnapshot(s, engine::ScanSettings{}, meter).ok);
    QVERIFY(engine::SaveSnapshot(s, meter).ok);
}

QStringList column(const QAbstractItemModel& model, int column) {
    QStringList texts;
    for (int row = 0; row < model.rowCount(); ++row)
        texts << model.index(row, column).data().toString();
    return texts;
}

void clickRow(QAbstractItemView* view, const QModelIndex& index,
              Qt::KeyboardModifiers modifiers = {}) {
    view->scrollTo(index);
    QTest::mouseClick(view->viewport(), Qt::LeftButton, modifiers,
                      view->visualRect(index).center());
}

} // namespace

class HistoryWindowTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;
    QString m_tree;

    QString ini() const { return m_home.filePath(u"Kestrel.ini"_s); }
    QString file(int number) const {
        return m_home.filePath(u"Data.#%1"_s.arg(number, 2, 10, QLatin1Char('0')));
    }

private Q_SLOTS:
    void initTestCase() {
        m_tree = m_home.filePath(u"Data"_s);
        QVERIFY(QDir().mkpath(m_tree + u"/sub"_s));
        writeFile(m_tree + u"/a.txt"_s, "a");
        writeFile(m_tree + u"/sub/b.txt"_s, "bb");
        saveSnapshotOf(m_tree, file(1));
        writeFile(m_tree + u"/sub/b.txt"_s, "bbbb");
        saveSnapshotOf(m_tree, file(2));
        QVERIFY(QFile::remove(m_tree + u"/a.txt"_s));
        QVERIFY(QDir().mkpath(m_tree + u"/new"_s));
        writeFile(m_tree + u"/new/c.txt"_s, "ccc");
        saveSnapshotOf(m_tree, file(3));
    }

    void openedFromTheMenuAndFollowedByMouseAndKeys() {
        Frame frame(ini());
        frame->show();
        frame->chooseHistoryFiles = [this] { return QStringList{file(2)}; };
        // File, then Open History, by keys.
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
        QTest::keyClick(frame.window.get(), Qt::Key_F, Qt::AltModifier);
        QTRY_VERIFY(QApplication::activePopupWidget());
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_H);
        QTRY_VERIFY(frame->findChild<views::HistoryWindow*>());
        auto* history = frame->findChild<views::HistoryWindow*>();
        QCOMPARE(history->windowTitle(), u"History of "_s + m_tree + u'/');

        // A row for each snapshot of the series, with what changed.
        const QAbstractItemModel& generations = *history->generations()->model();
        QCOMPARE(column(generations, views::GenerationTableModel::NumberColumn),
                 words(u"#01 #02 #03"_s));
        QCOMPARE(column(generations, views::GenerationTableModel::ChangesColumn),
                 (QStringList{QString(), u"+0 \u22120 ~1"_s, u"+2 \u22121 ~0"_s}));

        // The top lists its entries across the snapshots: a.txt gone in the
        // third, its cell marked there.
        const QAbstractItemModel& files = *history->files()->model();
        QCOMPARE(column(files, 0), (QStringList{u"new/"_s, u"sub/"_s, u"a.txt"_s}));
        QCOMPARE(files.index(2, 3).data().toString(), u"\u2014"_s);
        QVERIFY(files.index(2, 3).data(Qt::BackgroundRole).isValid());
        QVERIFY(!files.index(2, 2).data(Qt::BackgroundRole).isValid());
        // A click on a heading sorts, again the other way.
        QHeaderView* heading = history->files()->horizontalHeader();
        const auto clickHeading = [&](int section) {
            QTest::mouseClick(
                heading->viewport(), Qt::LeftButton, {},
                QPoint(heading->sectionViewportPosition(section) + 4, heading->height() / 2));
        };
        clickHeading(0);
        QCOMPARE(column(files, 0), (QStringList{u"a.txt"_s, u"sub/"_s, u"new/"_s}));
        clickHeading(0);
        QCOMPARE(column(files, 0), (QStringList{u"new/"_s, u"sub/"_s, u"a.txt"_s}));

        // A click on a folder lists it; a click on an entry shows its life.
        QTreeView* tree = history->folders();
        const QModelIndex top = tree->model()->index(0, 0);
        tree->expand(top);
        clickRow(tree, tree->model()->index(1, 0, top));
        QCOMPARE(column(files, 0), QStringList{u"b.txt"_s});
        QCOMPARE(column(files, 2), QStringList{u"4"_s});
        clickRow(history->files(), files.index(0, 0));
        const QAbstractItemModel& life = history->lifeModel();
        QCOMPARE(column(life, views::LineOfLifeModel::SizeColumn), words(u"2 4 4"_s));
        QCOMPARE(column(life, views::LineOfLifeModel::ChangeColumn),
                 (QStringList{QString(), u"changed"_s, QString()}));

        // Folders are coloured by what changed in the snapshots chosen on
        // top: "new" came in the third.
        QTableView* table = history->generations();
        const QModelIndex added = tree->model()->index(0, 0, top);
        QCOMPARE(added.data().toString(), u"new"_s);
        QVERIFY(added.data(Qt::BackgroundRole).isValid());
        clickRow(table, generations.index(0, 0));
        clickRow(table, generations.index(1, 0), Qt::ControlModifier);
        QVERIFY(!added.data(Qt::BackgroundRole).isValid());
        clickRow(table, generations.index(2, 0), Qt::ControlModifier);
        QVERIFY(added.data(Qt::BackgroundRole).isValid());

        // Two snapshots chosen, Enter: the pair opens, compared.
        clickRow(table, generations.index(0, 0));
        clickRow(table, generations.index(2, 0), Qt::ControlModifier);
        QTest::keyClick(table, Qt::Key_Return);
        QCOMPARE(frame->snapshotWindows().size(), 2);
        views::SnapshotWindow* newer = frame->snapshotWindows().constLast();
        QVERIFY(newer->compared());
        QCOMPARE(newer->snapshot().header.fileName, file(3));
        // With the pair open, another is refused with a message.
        QTest::keyClick(table, Qt::Key_Return);
        QCOMPARE(frame.titles, QStringList{u"Compare Snapshots"_s});
        QCOMPARE(frame->snapshotWindows().size(), 2);
    }

    // Snapshot files of one folder dropped together open their history;
    // a damaged one is shown as such and left out of the comparisons.
    void droppedFilesOpenTheirHistory() {
        writeFile(m_home.filePath(u"Data.#04"_s), "damaged");
        Frame frame(ini());
        frame->show();
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(file(4)), QUrl::fromLocalFile(file(1)),
                      QUrl::fromLocalFile(file(3))});
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(frame.window.get(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(frame.window.get(), &drop);
        QTRY_VERIFY(frame->findChild<views::HistoryWindow*>());
        const engine::History& h = frame->findChild<views::HistoryWindow*>()->history();
        QCOMPARE(h.generations.size(), size_t(3));
        QCOMPARE(h.generations[1].number, 3);
        QCOMPARE(h.generations[1].changed, 1); // b.txt, from #01 to #03
        QVERIFY(!h.generations[2].readable());
        QVERIFY(QFile::remove(file(4)));
    }

    // kestrel Data.#01 --history: one file stands for its series.
    void startedWithHistoryOnTheCommandLine() {
        Frame frame(ini());
        shell::StartUp(*frame.window, {file(1)}, true);
        auto* history = frame->findChild<views::HistoryWindow*>();
        QVERIFY(history);
        QCOMPARE(history->history().generations.size(), size_t(3));
        QVERIFY(frame->snapshotWindows().isEmpty());
    }
};

int main(int argc, char** argv) {
    return runWindowTest<HistoryWindowTest>(argc, argv);
}

#include "HistoryWindowTest.moc"
